#pragma once

#include "disk/hv_byte_source.h"

#include <algorithm>
#include <vector>

namespace test_support {

/// A medium in memory.
class memory_source : public hv::byte_source {
public:
    explicit memory_source(std::vector<hv::u8> bytes) : m_bytes(std::move(bytes)) {}

    hv::u64 size() const override { return m_bytes.size(); }
    std::size_t read(hv::u64 offset, std::span<hv::u8> out) const override
    {
        if (offset >= size()) return 0;
        const std::size_t count = std::min<hv::u64>(out.size(), size() - offset);
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), count,
                    out.begin());
        return count;
    }

private:
    std::vector<hv::u8> m_bytes;
};

/// All bytes of a source, read in pieces of `piece` bytes.
inline std::vector<hv::u8> read_all(const hv::byte_source &source,
                                    std::size_t piece = 1 << 20)
{
    std::vector<hv::u8> bytes(source.size());
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        source.read(at,
                    std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    return bytes;
}

} // namespace test_support

#pragma once

#include "disk/hv_byte_source.h"
#include "stress/whole_runs.h"

#include <algorithm>

namespace stress {

/// A medium in memory that counts what is asked of it.
class span_source : public hv::byte_source {
public:
    /// The bytes outlive the source.
    explicit span_source(std::span<const u8> bytes, access how = access::lent)
        : m_bytes(bytes),
          m_how(how)
    {
    }

    u64 size() const override { return m_bytes.size(); }

    std::size_t read(u64 offset, std::span<u8> out) const override
    {
        if (offset >= size()) return 0;
        const std::size_t count = std::min<u64>(out.size(), size() - offset);
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), count,
                    out.begin());
        m_asked += count;
        return count;
    }

    std::span<const u8> view(u64 offset, std::size_t length) const override
    {
        if (m_how == access::read || offset >= size() || length > size() - offset)
            return {};
        m_asked += length;
        return m_bytes.subspan(offset, length);
    }

    /// How many bytes were read or lent so far.
    u64 asked() const { return m_asked; }

private:
    std::span<const u8> m_bytes;
    access m_how;
    mutable u64 m_asked = 0;
};

} // namespace stress

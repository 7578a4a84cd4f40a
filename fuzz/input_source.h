#pragma once

#include "base/hv_byte_view.h"
#include "disk/hv_byte_source.h"

#include <algorithm>

namespace fuzz {

/// An input as a medium. The bytes outlive it.
class input_source : public hv::byte_source {
public:
    explicit input_source(hv::byte_view bytes) : m_bytes(bytes) {}

    hv::u64 size() const override { return m_bytes.size(); }
    std::size_t read(hv::u64 offset, std::span<hv::u8> out) const override
    {
        const auto found = m_bytes.clip(offset, out.size()).bytes();
        std::ranges::copy(found, out.begin());
        return found.size();
    }
    std::span<const hv::u8> view(hv::u64 offset, std::size_t length) const override
    {
        return m_bytes.fits(offset, length) ? m_bytes.clip(offset, length).bytes()
                                            : std::span<const hv::u8>();
    }

private:
    hv::byte_view m_bytes;
};

} // namespace fuzz

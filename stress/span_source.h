#pragma once

#include "disk/hv_byte_source.h"
#include "stress/whole_runs.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace stress {

/// A medium in memory that counts what is asked of it. One that lends windows also
/// knows where it has holes, like a sparse file; one that has to be read knows of none.
class span_source : public hv::byte_source {
public:
    /// The bytes outlive the source.
    explicit span_source(std::span<const u8> bytes, access how = access::lent)
        : m_bytes(bytes),
          m_how(how)
    {
        if (how == access::read) return;
        for (u64 at = 0; at < bytes.size(); at += hole_unit)
            m_is_hole.push_back(
                is_zero(bytes.subspan(at, std::min(hole_unit, bytes.size() - at))));
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

    u64 next_data(u64 offset) const override { return next(offset, 0); }
    u64 next_hole(u64 offset) const override
    {
        return m_how == access::read ? size() : next(offset, 1);
    }

    /// How many bytes were read or lent so far.
    u64 asked() const { return m_asked; }

private:
    static constexpr u64 hole_unit = 4096;

    static bool is_zero(std::span<const u8> bytes)
    {
        return bytes[0] == 0 &&
               std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
    }

    // The first byte from `offset` on that is in a hole, or isn't.
    u64 next(u64 offset, u8 is_hole) const
    {
        if (offset >= size()) return size();
        if (m_how == access::read) return offset;
        u64 unit = offset / hole_unit;
        if (m_is_hole[unit] == is_hole) return offset;
        while (unit < m_is_hole.size() && m_is_hole[unit] != is_hole) ++unit;
        return std::min(unit * hole_unit, size());
    }

    std::span<const u8> m_bytes;
    std::vector<u8> m_is_hole; // of each unit: 1 or 0
    access m_how;
    mutable u64 m_asked = 0;
};

} // namespace stress

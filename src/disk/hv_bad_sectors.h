#pragma once

#include "disk/hv_byte_source.h"

#include <functional>
#include <map>
#include <span>

namespace hv {

/// Reads around what a medium doesn't deliver, and remembers it.
class bad_sectors {
public:
    /// Reads some bytes at an offset. Returns how many; 0 where the medium ends, -1 for
    /// an error.
    using read_some = std::function<i64(u64 offset, std::span<u8> out)>;

    /// Fills `out` with the bytes at `offset`. Some systems refuse a whole request for
    /// one bad sector in it, so after an error smaller and smaller ones are tried, down
    /// to sectors of 512 bytes; after an early end nothing is. What isn't delivered is
    /// zeros.
    void read(u64 offset, std::span<u8> out, const read_some &from);
    /// How many different bytes weren't delivered so far.
    u64 bytes() const { return m_bytes; }
    /// Which bytes of a stretch weren't delivered so far, in order.
    std::vector<byte_source::unread_part> within(u64 offset, u64 length) const;

private:
    void add(u64 begin, u64 end);

    std::map<u64, u64> m_stretches; ///< begin and end; they don't touch
    u64 m_bytes = 0;
};

} // namespace hv

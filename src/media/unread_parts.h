#pragma once

#include "disk/hv_byte_source.h"

#include <algorithm>
#include <vector>

namespace hv {

using unread_parts = std::vector<byte_source::unread_part>;

/// Adds what `from` couldn't deliver of its `length` bytes at `place`, as parts of a
/// source that has these bytes at `offset`.
inline void add_unread(unread_parts &parts, const byte_source &from, u64 place,
                       u64 length, u64 offset)
{
    for (const auto &bad : from.unreadable_in(place, length))
        parts.push_back({offset + (bad.offset - place), bad.length});
}

/// Puts parts in order, and joins those that overlap.
inline void join_unread(unread_parts &parts)
{
    std::ranges::sort(parts, {}, &byte_source::unread_part::offset);
    unread_parts joined;
    for (const auto &part : parts) {
        const u64 end =
            joined.empty() ? 0 : joined.back().offset + joined.back().length;
        if (joined.empty() || end < part.offset)
            joined.push_back(part);
        else
            joined.back().length =
                std::max(end, part.offset + part.length) - joined.back().offset;
    }
    parts.swap(joined);
}

} // namespace hv

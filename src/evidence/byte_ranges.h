#pragma once

#include "base/hv_checked_math.h"
#include "evidence/sighting.h"

#include <algorithm>
#include <vector>

namespace hv {

/// A structure that ends in a hole of a sparse image ends with zeros. None that is
/// searched for is longer than this.
inline constexpr u64 bytes_into_hole = u64{128} << 10;

inline u64 end_of(byte_range range)
{
    return saturating_sum(range.offset, range.length);
}

/// What of `whole` is in none of the ranges.
inline std::vector<byte_range> rest_of(byte_range whole, std::vector<byte_range> ranges)
{
    std::ranges::sort(ranges);
    std::vector<byte_range> rest;
    u64 at = whole.offset;
    const u64 end = end_of(whole);
    for (const byte_range range : ranges) {
        if (range.offset > at && at < end)
            rest.push_back({at, std::min(range.offset, end) - at});
        at = std::max(at, end_of(range));
    }
    if (at < end) rest.push_back({at, end - at});
    return rest;
}

} // namespace hv

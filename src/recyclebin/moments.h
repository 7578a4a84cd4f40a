#pragma once

#include "base/hv_types.h"

#include <optional>
#include <string>
#include <string_view>

/// Moments as the evidence has them, FILETIMEs (100 ns since 1601-01-01 UTC), and as
/// RFC 3339 writes them.
namespace hv {

/// "2024-03-05T09:41:17.2500000Z"; nothing for 0, which means "no time", and for years
/// from 10000 on, which RFC 3339 can't write.
std::optional<std::string> rfc3339(u64 filetime);
/// For people: "2024-03-05 09:41:17.250", the rest of the second cut off. What RFC 3339
/// can't write is "FILETIME" and its number.
std::string short_moment(u64 filetime);
/// For people: all seven digits, "2024-03-05 09:41:17.2500000 UTC".
std::string whole_moment(u64 filetime);

/// Which end of a day a date without a time of day means.
enum class day_end { first_moment, last_moment };
/// Reads a date, "2024-03-05", or a moment, "2024-03-05T09:41:17.25Z", with "Z" or the
/// distance to UTC, and with up to nine digits of a second. Nothing for any other text.
std::optional<u64> parse_rfc3339(std::string_view text, day_end end);

} // namespace hv

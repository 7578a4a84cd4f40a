#pragma once

#include "base/hv_types.h"

#include <ctime>
#include <string_view>

namespace hv {

/// How a raw 64-bit time value is to be read.
enum class type_time : u32 {
    filetime = 1,            ///< 100 ns ticks since 1601-01-01 UTC
    chrome = 2,              ///< microseconds since 1601-01-01 UTC
    firefox3 = 4,            ///< microseconds since 1970-01-01 UTC, signed
    unix_time = 8,           ///< seconds since 1970-01-01 UTC
    unix_millisec = 16,      ///< milliseconds since 1970-01-01 UTC
    dos_time = 32,           ///< display only
    ntp = 64,                ///< display only
    guid = 128,              ///< display only
    ole = 256,               ///< whole days since 1899-12-30; signed values only
    system_time = 512,       ///< display only
    system_time_2 = 1024,    ///< display only
    vhd_time = 2048,         ///< seconds since 2000-01-01 17:00:00 UTC
    qpc_time = 4096,         ///< display only
    csharp_time = 32768,     ///< 100 ns ticks since 0001-01-01; unsigned values only
    snowflake_time = 131072, ///< bits from 22 up: milliseconds since 2015-01-01 UTC
    safari_time = 262144,    ///< seconds since 2001-01-01 UTC, or nanoseconds if large
    hfs_plus_time = 524288,  ///< seconds since 1904-01-01
};

/// What a time of this type is called in reports, for example "filetime". Kept for
/// callers of the library.
std::string_view type_time_text(type_time type);

inline constexpr u64 ticks_per_second = 10'000'000;
/// The FILETIME of 1970-01-01 00:00:00 UTC.
inline constexpr u64 unix_epoch_filetime = 116'444'736'000'000'000;

/// A date and a time of day in UTC. Each of the three wide fractions is the whole part
/// of the second, in another unit.
struct _windows_systemtime {
    u16 year = 0;
    u16 month = 0;       ///< 1 to 12
    u16 day_of_week = 0; ///< 0 is Sunday
    u16 day = 0;
    u16 hour = 0;
    u16 minute = 0;
    u16 second = 0;
    u16 milliseconds = 0;
    u64 microseconds = 0;
    u64 nanoseconds = 0; ///< a multiple of 100
    u64 picoseconds = 0;
};

/// One timestamp with all its derived forms. Test `valid` before printing or comparing
/// one: it is set for the years 1900 to 3000, except for the first second of 1970,
/// which means "no time".
class time {
public:
    time() = default;
    /// From a raw value. A type that is for display only, or only for values of the
    /// other signedness, leaves the object invalid.
    time(u64 value, type_time type);
    time(i64 value, type_time type);
    /// From a date and an optional time of day in UTC, such as "01/31/1986 12:30"; see
    /// `parse_date` and `parse_time_ms`. Invalid for any other text. The fields are
    /// converted by this class with `use_own_calendar`, else by the C library.
    time(const char *text, bool use_own_calendar);

    /// The present moment.
    static time now();

    /// Fills every field from a FILETIME. Returns `valid`.
    bool set_filetime(u64 value);
    /// Fills every field from a broken-down time in UTC. Returns `valid`, or false if
    /// it can't be converted.
    bool set_from_tm(const std::tm &fields, u32 milliseconds, bool use_own_calendar);

    i64 unix_seconds = 0; ///< meaningful from 1970 on
    u64 filetime = 0;
    u64 filetime_checked = 0; ///< the same, only if it could be broken down
    u16 dos_date = 0;
    u16 dos_time = 0;
    std::tm local_tm{};
    _windows_systemtime system_time;
    bool valid = false;
    bool tm_failed = false; ///< `local_tm` could not be filled
};

/// True if an `hv::time` of this FILETIME is valid.
bool is_plausible_filetime(u64 filetime);

/// Breaks down a FILETIME. False, with a zeroed result, if its top bit is set.
bool filetime_to_systemtime(u64 value, _windows_systemtime &result);
/// Converts a FILETIME to the two words of FAT; an odd second is rounded up. False,
/// results untouched, outside the years 1980 to 2037.
bool filetime_to_dos(u64 value, u16 &dos_date, u16 &dos_time);
/// The FILETIME of a broken-down time in UTC. A month outside 0 to 11 carries over.
u64 tm_to_filetime(const std::tm &fields, u32 milliseconds);
/// Breaks down seconds since 1970 plus `hours_offset` hours. False before 1970 and from
/// the year 3001 on.
bool unix_to_tm(i64 seconds, std::tm &result, float hours_offset);
/// The FILETIME of a count of seconds since 1970.
constexpr u64 unix_to_filetime(i64 seconds)
{
    return static_cast<u64>(seconds) * ticks_per_second + unix_epoch_filetime;
}

/// Seconds since 1900 and a normalised fraction, both as big-endian words.
struct ntp_stamp {
    u32 seconds = 0;
    u32 fraction = 0;
};
/// Zero for a FILETIME with the top bit set.
ntp_stamp ntp_from_filetime(u64 filetime);
/// The present moment. Kept for callers of the library.
ntp_stamp ntp_now();

} // namespace hv

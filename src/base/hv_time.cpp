#include "base/hv_time.h"

#include <bit>
#include <chrono>

namespace hv {

namespace {

constexpr u64 top_bit = u64{1} << 63;
constexpr u64 ntp_epoch_filetime = 94'354'848'000'000'000;
constexpr i64 seconds_per_day = 86400;
constexpr i64 days_1601_to_1970 = 134774;
constexpr u16 first_valid_year = 1900;
constexpr u16 last_valid_year = 3000;

// The first instant of the year 3001, in seconds since 1970.
constexpr i64 unix_year_3001 = 32'535'216'000;

using std::chrono::days;
using std::chrono::sys_days;

// The present difference between local time and UTC in hours. It is computed once: the
// C library takes microseconds for it, and nothing that is printed depends on it.
float local_offset_hours()
{
    static const float hours = [] {
        const std::time_t present = ::time(nullptr);
        std::tm local{};
        std::tm utc{};
        localtime_r(&present, &local);
        gmtime_r(&present, &utc);
        return static_cast<float>(std::mktime(&local) - std::mktime(&utc)) / 3600.0F;
    }();
    return hours;
}

// Signed also for values of the unsigned constructor: times before 1970 are negative.
u64 firefox_ticks(i64 value)
{
    return unix_to_filetime(value / 1'000'000) +
           static_cast<u64>(value % 1'000'000 * 10);
}

u64 safari_ticks(u64 value, bool nanoseconds)
{
    constexpr u64 epoch_2001 = 12'622'780'800;
    if (!nanoseconds) return (value + epoch_2001) * ticks_per_second;
    // The rest is the raw value modulo ten million, added without scaling: known values
    // were read like this.
    return (value / 1'000'000'000 + epoch_2001) * ticks_per_second +
           value % ticks_per_second;
}

// Converts the types for which signed and unsigned values mean the same. False for any
// other type.
bool common_ticks(u64 value, type_time type, u64 &ticks)
{
    switch (type) {
    case type_time::filetime: ticks = value; return true;
    case type_time::chrome: ticks = value * 10; return true;
    case type_time::firefox3:
        ticks = firefox_ticks(static_cast<i64>(value));
        return true;
    // From 17:00 on that day, not from midnight: known values were read like this.
    case type_time::vhd_time:
        ticks = value * ticks_per_second + 125'912'196'000'000'000;
        return true;
    case type_time::snowflake_time:
        ticks = static_cast<u64>(static_cast<i64>(value) >> 22) * 10000 +
                130'645'440'000'000'000;
        return true;
    case type_time::hfs_plus_time:
        ticks = (value + 9'561'628'800) * ticks_per_second;
        return true;
    default: return false;
    }
}

// Seconds of 0 or less mean "no time": only the ticks are kept.
void set_unix(time &result, i64 seconds, u64 ticks)
{
    if (seconds > 0) {
        result.set_filetime(ticks);
    } else {
        result.filetime = ticks;
    }
}

std::chrono::year_month_day civil_date(i64 days_since_1970)
{
    return std::chrono::year_month_day(sys_days(days(days_since_1970)));
}

} // namespace

std::string_view type_time_text(type_time type)
{
    switch (type) {
    case type_time::filetime: return "filetime";
    case type_time::chrome: return "chrome";
    case type_time::firefox3: return "firefox3";
    case type_time::unix_time: return "unix time";
    case type_time::unix_millisec: return "unix millisec time";
    case type_time::dos_time: return "dos time";
    case type_time::ntp: return "ntp";
    case type_time::guid: return "guid";
    case type_time::ole: return "ole";
    case type_time::system_time:
    case type_time::system_time_2: return "system time";
    case type_time::vhd_time: return "VHD time";
    case type_time::qpc_time: return "QPC time";
    case type_time::csharp_time: return "c# time";
    case type_time::snowflake_time: return "snowflake time";
    case type_time::safari_time: return "safari time";
    case type_time::hfs_plus_time: return "hfs+ time";
    }
    return {};
}

time::time(u64 value, type_time type)
{
    u64 ticks = 0;
    if (common_ticks(value, type, ticks)) {
        set_filetime(ticks);
    } else if (type == type_time::unix_time) {
        set_unix(*this, static_cast<i64>(value),
                 value * ticks_per_second + unix_epoch_filetime);
    } else if (type == type_time::unix_millisec) {
        set_unix(*this, static_cast<i64>(value / 1000),
                 value / 1000 * ticks_per_second + unix_epoch_filetime +
                     value % 1000 * 10000);
    } else if (type == type_time::csharp_time) {
        set_filetime(value - 504'911'232'000'000'000);
    } else if (type == type_time::safari_time) {
        set_filetime(safari_ticks(value, value >> 32 != 0));
    }
}

time::time(i64 value, type_time type)
{
    const u64 raw = static_cast<u64>(value);
    u64 ticks = 0;
    if (common_ticks(raw, type, ticks)) {
        set_filetime(ticks);
    } else if (type == type_time::unix_time) {
        set_unix(*this, value, unix_to_filetime(value));
    } else if (type == type_time::unix_millisec) {
        set_unix(*this, value / 1000,
                 unix_to_filetime(value / 1000) +
                     static_cast<u64>(value % 1000) * 10000);
    } else if (type == type_time::ole) {
        set_filetime((raw * seconds_per_day + 9'435'312'000) * ticks_per_second);
    } else if (type == type_time::safari_time) {
        set_filetime(safari_ticks(raw, value >> 32 > 0));
    }
}

time time::now()
{
    const auto since_1970 = std::chrono::floor<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return {unix_epoch_filetime + static_cast<u64>(since_1970.count()) * 10,
            type_time::filetime};
}

bool time::set_filetime(u64 value)
{
    valid = false;
    if (value == 0 || value >= top_bit) return false;
    filetime = value;
    // Unsigned on purpose: dates before 1970 wrap to huge numbers, which `unix_to_tm`
    // refuses. They are printed from `system_time`.
    unix_seconds = static_cast<i64>((value - unix_epoch_filetime) / ticks_per_second);
    if (unix_seconds == 0) return false;
    filetime_to_systemtime(value, system_time);
    filetime_checked = value;
    filetime_to_dos(value, dos_date, dos_time);
    tm_failed = !unix_to_tm(unix_seconds, local_tm, local_offset_hours());
    valid = system_time.year >= first_valid_year && system_time.year <= last_valid_year;
    return valid;
}

bool time::set_from_tm(const std::tm &fields, u32 milliseconds, bool use_own_calendar)
{
    u64 ticks = 0;
    if (use_own_calendar) {
        ticks = tm_to_filetime(fields, milliseconds);
        if (ticks == 0) return false;
    } else {
        std::tm copy = fields;
        const i64 seconds = std::mktime(&copy);
        if (seconds < 1) return false;
        const auto offset = static_cast<i64>(local_offset_hours() * 3600.0F);
        ticks = unix_to_filetime(seconds + offset) + u64{milliseconds} * 10000;
    }
    return set_filetime(ticks);
}

bool is_plausible_filetime(u64 filetime)
{
    return time(filetime, type_time::filetime).valid;
}

bool filetime_to_systemtime(u64 value, _windows_systemtime &result)
{
    result = {};
    if (value >= top_bit) return false;
    const u64 seconds = value / ticks_per_second;
    const u64 rest = value % ticks_per_second;
    const auto day_number = static_cast<i64>(seconds / seconds_per_day);
    const auto date = civil_date(day_number - days_1601_to_1970);
    result.year = static_cast<u16>(int{date.year()});
    result.month = static_cast<u16>(unsigned{date.month()});
    result.day = static_cast<u16>(unsigned{date.day()});
    result.day_of_week = static_cast<u16>((day_number + 1) % 7);
    result.hour = static_cast<u16>(seconds / 3600 % 24);
    result.minute = static_cast<u16>(seconds / 60 % 60);
    result.second = static_cast<u16>(seconds % 60);
    result.milliseconds = static_cast<u16>(rest / 10000);
    result.microseconds = rest / 10;
    result.nanoseconds = rest * 100;
    result.picoseconds = rest * 100000;
    return true;
}

bool filetime_to_dos(u64 value, u16 &dos_date, u16 &dos_time)
{
    _windows_systemtime utc;
    if (!filetime_to_systemtime(value, utc)) return false;
    if (utc.year < 1980 || utc.year > 2037) return false;
    dos_date = static_cast<u16>((utc.year - 1980) * 512 + utc.month * 32 + utc.day);
    dos_time =
        static_cast<u16>(utc.hour * 2048 + utc.minute * 32 + (utc.second + 1) / 2);
    return true;
}

u64 tm_to_filetime(const std::tm &fields, u32 milliseconds)
{
    // The whole years in the month; a month before January leads to earlier years.
    const int carry =
        fields.tm_mon >= 0 ? fields.tm_mon / 12 : (fields.tm_mon - 11) / 12;
    const std::chrono::year year(fields.tm_year + 1900 + carry);
    const std::chrono::month month(
        static_cast<unsigned>(fields.tm_mon - carry * 12 + 1));
    const i64 month_start = sys_days(year / month / 1).time_since_epoch().count();
    const i64 day_number = month_start + fields.tm_mday - 1 + days_1601_to_1970;
    const i64 seconds =
        ((day_number * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
    return static_cast<u64>(seconds) * ticks_per_second + u64{milliseconds} * 10000;
}

bool unix_to_tm(i64 seconds, std::tm &result, float hours_offset)
{
    result = {};
    if (seconds < 0 || seconds >= unix_year_3001 * 2) return false;
    seconds += static_cast<i64>(hours_offset * 3600.0F);
    if (seconds < 0 || seconds >= unix_year_3001) return false;
    const i64 day_number = seconds / seconds_per_day;
    const auto date = civil_date(day_number);
    const i64 january_first = sys_days(date.year() / 1 / 1).time_since_epoch().count();
    result.tm_year = int{date.year()} - 1900;
    result.tm_mon = static_cast<int>(unsigned{date.month()}) - 1;
    result.tm_mday = static_cast<int>(unsigned{date.day()});
    result.tm_yday = static_cast<int>(day_number - january_first);
    result.tm_wday = static_cast<int>((day_number + 4) % 7);
    result.tm_hour = static_cast<int>(seconds / 3600 % 24);
    result.tm_min = static_cast<int>(seconds / 60 % 60);
    result.tm_sec = static_cast<int>(seconds % 60);
    return true;
}

ntp_stamp ntp_from_filetime(u64 filetime)
{
    if (filetime >= top_bit) return {};
    const u64 ticks = filetime - ntp_epoch_filetime;
    auto fraction =
        static_cast<u32>((ticks % ticks_per_second << 28) / ticks_per_second);
    // Normalised: the top hexadecimal digit of a fraction isn't 0.
    while (fraction != 0 && fraction >> 28 == 0) fraction <<= 4;
    const auto big_endian = [](u32 word) {
        return std::endian::native == std::endian::little ? __builtin_bswap32(word)
                                                          : word;
    };
    return {big_endian(static_cast<u32>(ticks / ticks_per_second)),
            big_endian(fraction)};
}

ntp_stamp ntp_now()
{
    return ntp_from_filetime(time::now().filetime);
}

} // namespace hv

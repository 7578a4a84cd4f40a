#include "recyclebin/moments.h"

#include "base/hv_time.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace hv {

namespace {

using namespace std::chrono;

constexpr sys_days filetime_epoch = year{1601} / 1 / 1;
constexpr u64 ticks_per_day = 86400 * ticks_per_second;
constexpr u64 ticks_of_year_10000 =
    static_cast<u64>((sys_days{year{10000} / 1 / 1} - filetime_epoch).count()) *
    ticks_per_day;

// "2024-03-05" and, after `separator`, "09:41:17.2500000" with so many digits.
std::string moment_text(u64 filetime, char separator, unsigned digits)
{
    const year_month_day date{filetime_epoch + days{filetime / ticks_per_day}};
    const u64 seconds = filetime % ticks_per_day / ticks_per_second;
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u%c%02u:%02u:%02u.%07u",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), separator,
                  static_cast<unsigned>(seconds / 3600),
                  static_cast<unsigned>(seconds / 60 % 60),
                  static_cast<unsigned>(seconds % 60),
                  static_cast<unsigned>(filetime % ticks_per_second));
    const std::string whole = text;
    return whole.substr(0, whole.size() - 7 + digits);
}

bool is_writable(u64 filetime)
{
    return filetime != 0 && filetime < ticks_of_year_10000;
}

// Takes a number of exactly `digits` digits off the front.
bool take_digits(std::string_view &text, std::size_t digits, unsigned &number)
{
    if (text.size() < digits) return false;
    number = 0;
    for (const char c : text.substr(0, digits)) {
        if (c < '0' || c > '9') return false;
        number = number * 10 + static_cast<unsigned>(c - '0');
    }
    text.remove_prefix(digits);
    return true;
}

bool take_char(std::string_view &text, std::string_view accepted)
{
    if (text.empty() || accepted.find(text.front()) == std::string_view::npos)
        return false;
    text.remove_prefix(1);
    return true;
}

bool take_date(std::string_view &text, sys_days &date)
{
    unsigned y = 0, m = 0, d = 0;
    if (!take_digits(text, 4, y) || !take_char(text, "-") || !take_digits(text, 2, m) ||
        !take_char(text, "-") || !take_digits(text, 2, d))
        return false;
    const year_month_day parsed = year{static_cast<int>(y)} / month{m} / day{d};
    date = parsed;
    return parsed.ok() && date >= filetime_epoch;
}

// A fraction of a second in ticks; digits after the seventh are dropped.
bool take_fraction(std::string_view &text, u64 &ticks)
{
    if (!take_char(text, ".")) return true;
    const std::size_t digits =
        std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0 || digits > 9) return false;
    std::string padded(text.substr(0, digits));
    padded.resize(7, '0');
    ticks = std::stoul(padded);
    text.remove_prefix(digits);
    return true;
}

bool take_clock(std::string_view &text, u64 &ticks)
{
    unsigned h = 0, m = 0, s = 0;
    u64 fraction = 0;
    if (!take_digits(text, 2, h) || !take_char(text, ":") || !take_digits(text, 2, m) ||
        !take_char(text, ":") || !take_digits(text, 2, s) ||
        !take_fraction(text, fraction))
        return false;
    ticks = (u64{h} * 3600 + u64{m} * 60 + s) * ticks_per_second + fraction;
    return h < 24 && m < 60 && s < 61;
}

// How far a zone is ahead of UTC, in ticks.
bool take_zone(std::string_view &text, i64 &ticks)
{
    if (take_char(text, "Zz")) return true;
    const bool is_west = text.starts_with('-');
    unsigned h = 0, m = 0;
    if (!take_char(text, "+-") || !take_digits(text, 2, h) || !take_char(text, ":") ||
        !take_digits(text, 2, m) || h > 23 || m > 59)
        return false;
    ticks = static_cast<i64>((u64{h} * 60 + m) * 60 * ticks_per_second) *
            (is_west ? -1 : 1);
    return true;
}

} // namespace

std::optional<std::string> rfc3339(u64 filetime)
{
    if (!is_writable(filetime)) return {};
    return moment_text(filetime, 'T', 7) + "Z";
}

std::string short_moment(u64 filetime)
{
    return is_writable(filetime) ? moment_text(filetime, ' ', 3)
                                 : "FILETIME " + std::to_string(filetime);
}

std::string whole_moment(u64 filetime)
{
    return is_writable(filetime) ? moment_text(filetime, ' ', 7) + " UTC"
                                 : "FILETIME " + std::to_string(filetime);
}

std::optional<u64> parse_rfc3339(std::string_view text, day_end end)
{
    sys_days date;
    if (!take_date(text, date)) return {};
    const u64 midnight =
        static_cast<u64>((date - filetime_epoch).count()) * ticks_per_day;
    if (text.empty())
        return end == day_end::first_moment ? midnight : midnight + ticks_per_day - 1;
    u64 clock = 0;
    i64 zone = 0;
    if (!take_char(text, "Tt ") || !take_clock(text, clock) || !take_zone(text, zone) ||
        !text.empty())
        return {};
    const i64 moment = static_cast<i64>(midnight + clock) - zone;
    return moment < 0 ? std::nullopt : std::optional(static_cast<u64>(moment));
}

} // namespace hv

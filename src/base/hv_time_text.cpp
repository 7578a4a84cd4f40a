#include "base/hv_time_text.h"

#include "base/hv_string.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;

constexpr std::array<std::string_view, 13> month_names = {
    "",    "Jan", "Feb", "Mar", "Apr", "May", "Jun",
    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// The number of a month whose name begins with three letters of `text`, or 0.
int month_by_name(std::string_view text)
{
    for (int month = 1; month <= 12; ++month)
        if (equal_ignoring_case(text.substr(0, 3),
                                month_names[static_cast<unsigned>(month)]))
            return month;
    return 0;
}

std::string zero_filled(u64 value, std::size_t width)
{
    std::string digits = std::to_string(value);
    if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
    return digits;
}

bool holds(std::string_view text, std::string_view what)
{
    return text.find(what) != npos;
}

// The position of the longer form of a field or, without it, of the shorter one.
std::size_t find_field(std::string_view text, std::string_view longer,
                       std::string_view shorter)
{
    const std::size_t at = text.find(longer);
    return at != npos ? at : text.find(shorter);
}

// How many fraction digits a time template asks for; 0 without "xxx".
std::size_t count_fraction_digits(std::string_view time_template)
{
    const std::size_t first = time_template.find("xxx");
    return first == npos ? 0 : time_template.rfind('x') - first + 1;
}

// "." and the first `digits` digits of the fraction. Nothing for 0 or for more than 9.
std::string fraction_text(const _windows_systemtime &utc, std::size_t digits)
{
    if (digits == 0 || digits > 9) return {};
    u64 value = digits <= 6 ? utc.microseconds : utc.nanoseconds;
    for (std::size_t n = digits; n != 6 && n != 9; ++n) value /= 10;
    return "." + zero_filled(value, digits);
}

std::string hour_minute_text(const _windows_systemtime &utc)
{
    return zero_filled(utc.hour, 2) + ":" + zero_filled(utc.minute, 2);
}

// The flags of a template's order, or 0 for an order that isn't written.
u8 order_flag(std::size_t day, std::size_t month, std::size_t year)
{
    if (day < month && month < year) return date_time_format::day_month_year;
    if (month < day && day < year) return date_time_format::month_day_year;
    if (year < month && month < day) return date_time_format::year_month_day;
    return 0;
}

std::string date_by_format(const _windows_systemtime &utc,
                           const date_time_format &format)
{
    const u8 flags = format.date_flags;
    const bool number = (flags & date_time_format::month_number) != 0;
    const std::string day = zero_filled(utc.day, 2);
    const std::string month =
        number ? zero_filled(utc.month, 2) : std::string(month_names[utc.month]);
    const std::string year =
        zero_filled(utc.year, (flags & date_time_format::year_four) != 0 ? 4 : 2);
    const std::string separator(1, format.separator);
    if ((flags & date_time_format::month_day_year) != 0)
        return join_texts(std::array{month, day, year}, separator);
    if ((flags & date_time_format::day_month_year) != 0)
        return join_texts(std::array{day, month, year}, separator);
    // Nobody writes a month's name after the year: no date.
    if ((flags & date_time_format::year_month_day) != 0 && number)
        return join_texts(std::array{year, month, day}, separator);
    return {};
}

char template_separator(std::string_view date_template)
{
    for (const char c : {'/', '-', ' '})
        if (holds(date_template, std::string_view(&c, 1))) return c;
    return '/';
}

std::string date_by_template(const _windows_systemtime &utc,
                             std::string_view date_template)
{
    const std::size_t month_at = find_field(date_template, "mmm", "mm");
    const std::size_t day_at = date_template.find("dd");
    const std::size_t year_at = find_field(date_template, "yyyy", "yy");
    const char separator = template_separator(date_template);
    const std::string month = holds(date_template, "mmm")
                                  ? std::string(month_names[utc.month])
                                  : zero_filled(utc.month, 2);
    std::string day = zero_filled(utc.day, 2);
    std::string year = zero_filled(utc.year, 4);
    if (year_at != npos && !holds(date_template, "yyyy"))
        year.erase(0, year.size() - 2);
    if (month_at == npos || day_at == npos || year_at == npos)
        return month + "/" + day + "/" + year;

    const std::size_t comma_at = date_template.rfind(',');
    const bool comma =
        separator == ' ' && month_at < day_at && comma_at != npos && comma_at >= day_at;
    if (comma) day += ',';
    const std::string month_and_day =
        month_at < day_at ? month + separator + day : day + separator + month;
    return year_at != 0 ? month_and_day + separator + year
                        : year + separator + month_and_day;
}

std::string time_by_template(const _windows_systemtime &utc,
                             std::string_view time_template)
{
    std::string text;
    if (holds(time_template, "hh:mm")) text = hour_minute_text(utc);
    if (holds(time_template, "ss")) text += ":" + zero_filled(utc.second, 2);
    return text + fraction_text(utc, count_fraction_digits(time_template));
}

// A time of day cut into its fields, each as a number with a fraction.
struct time_fields {
    double hours = 0;
    double minutes = 0;
    double seconds = 0;
    bool afternoon = false;
};

// Larger fields aren't a time of day, whatever their unit is.
constexpr double max_time_field = 1000;

bool read_field(std::string_view text, double &value)
{
    value = std::strtod(std::string(text).c_str(), nullptr);
    return value >= 0 && value <= max_time_field;
}

bool read_time_fields(std::string_view source, time_fields &fields)
{
    std::string text = lower_copy(source);
    trim(text);
    const std::size_t colon = text.find(':');
    if (colon == npos) return false;
    const std::size_t suffix = text.find('m', colon);
    const std::size_t end = std::min(suffix, text.size());
    const std::size_t second_colon = text.find(':', colon + 1);
    const std::size_t minutes_end = std::min(second_colon, end);
    const std::string_view all = text;
    fields.afternoon = suffix != npos && text[suffix - 1] == 'p';
    if (!read_field(all.substr(0, std::min<std::size_t>(colon, 31)), fields.hours))
        return false;
    if (!read_field(all.substr(colon + 1, minutes_end - colon - 1), fields.minutes))
        return false;
    if (second_colon == npos || second_colon >= end) return true;
    return read_field(all.substr(second_colon + 1, end - second_colon - 1),
                      fields.seconds);
}

int leading_number(std::string_view text)
{
    return std::atoi(std::string(text).c_str());
}

int whole_year(int year, bool two_digits)
{
    if (!two_digits) return year;
    return year < 31 ? 2000 + year : 1900 + year;
}

} // namespace

bool is_date_template(std::string_view text)
{
    return text.size() == 8 || text.size() == 10;
}

bool is_time_template(std::string_view text)
{
    return (text.size() == 8 || (text.size() >= 12 && text.size() <= 18)) &&
           holds(text, ":");
}

bool parse_date_time_format(date_time_format &result, std::string_view date_template,
                            std::string_view time_template, bool pair)
{
    result = {};
    result.pair = pair;
    if (!date_template.empty()) {
        for (const char c : {' ', '-', '/'})
            if (date_template.find(c) != npos) result.separator = c;
        const std::size_t month = find_field(date_template, "mmm", "mm");
        if (month == npos) return false;
        result.date_flags |= holds(date_template, "mmm")
                                 ? date_time_format::month_name
                                 : date_time_format::month_number;
        const std::size_t year = find_field(date_template, "yyyy", "yy");
        if (year == npos) return false;
        result.date_flags |= holds(date_template, "yyyy") ? date_time_format::year_four
                                                          : date_time_format::year_two;
        if (holds(date_template, ",")) result.date_flags |= date_time_format::has_comma;
        const std::size_t day = date_template.find("dd");
        if (day == npos) return false;
        const u8 order = order_flag(day, month, year);
        if (order == 0) return false;
        result.date_flags |= order;
    }
    result.fraction_digits = static_cast<unsigned>(
        std::min<std::size_t>(count_fraction_digits(time_template), 9));
    return true;
}

bool format_date_time(std::string &date_text, std::string &time_text, const time &when,
                      const date_time_format &format)
{
    date_text.clear();
    time_text.clear();
    if (!when.valid) return false;
    if (!format.built()) {
        format_date_time(date_text, time_text, when, default_date_template,
                         default_time_template);
        return false;
    }
    const _windows_systemtime &utc = when.system_time;
    date_text = date_by_format(utc, format);
    time_text = hour_minute_text(utc) + ":" + zero_filled(utc.second, 2) +
                fraction_text(utc, format.fraction_digits);
    return true;
}

bool format_date_time(std::string &date_text, std::string &time_text, const time &when,
                      std::string_view date_template, std::string_view time_template)
{
    date_text.clear();
    time_text.clear();
    if (!when.valid) return false;
    if (!date_template.empty())
        date_text = date_by_template(when.system_time, date_template);
    if (!time_template.empty())
        time_text = time_by_template(when.system_time, time_template);
    return true;
}

time::time(const char *text, bool use_own_calendar)
{
    const std::string_view all = text == nullptr ? "" : text;
    const std::size_t blank = all.find(' ');
    const std::string_view clock = blank == npos ? "00:00:00" : all.substr(blank + 1);
    std::tm fields{};
    u32 milliseconds = 0;
    int month = 0;
    if (!parse_date(all.substr(0, blank), fields.tm_mday, month, fields.tm_year))
        return;
    if (!parse_time_ms(clock, milliseconds)) return;
    fields.tm_mon = month - 1;
    fields.tm_year -= 1900;
    const auto seconds = static_cast<int>(milliseconds / 1000);
    fields.tm_hour = seconds / 3600;
    fields.tm_min = seconds / 60 % 60;
    fields.tm_sec = seconds % 60;
    fields.tm_isdst = -1;
    set_from_tm(fields, 0, use_own_calendar);
}

bool parse_date(std::string_view text, int &day, int &month, int &year)
{
    constexpr std::size_t max_text = 512;
    text = text.substr(0, max_text);
    const char separator = holds(text, "-") ? '-' : '/';
    const std::size_t first = text.find(separator);
    if (first == npos) return false;
    const std::size_t second = text.find(separator, first + 1);
    if (second == npos || first > 2 || second - first - 1 > 3) return false;
    std::string_view third = text.substr(second + 1);
    third = third.substr(0, third.find(' '));
    if (third.empty() || third[0] < '0' || third[0] > '9') return false;

    const std::string_view middle = text.substr(first + 1, second - first - 1);
    month = month_by_name(middle);
    if (month != 0) {
        day = leading_number(text.substr(0, first));
    } else {
        month = leading_number(text.substr(0, first));
        day = leading_number(middle);
    }
    year = whole_year(leading_number(third.substr(0, 4)), third.size() == 2);
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

bool parse_time_ms(std::string_view text, u32 &milliseconds)
{
    time_fields fields;
    if (!read_time_fields(text, fields)) return false;
    milliseconds = static_cast<u32>(fields.hours * 3'600'000) +
                   static_cast<u32>(fields.minutes * 60'000) +
                   static_cast<u32>(fields.seconds * 1000);
    if (fields.afternoon) milliseconds += 43'200'000;
    return true;
}

bool parse_date_ordered(std::string_view text, std::string_view order, char separator,
                        int &day, int &month, int &year)
{
    constexpr u32 last_year_read = 30000;
    const bool month_is_name = holds(order, "Mon");
    std::string letters(order);
    if (month_is_name) letters.replace(letters.find("Mon"), 3, "M");
    std::vector<std::string> pieces;
    split(std::string(text), separator, pieces, piece_blanks::trim, empty_pieces::drop);
    if (pieces.size() < letters.size()) return false;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        u32 value = 0;
        if (letters[i] == 'M' && month_is_name)
            value = static_cast<u32>(month_by_name(pieces[i]));
        else if (!parse_u32(pieces[i], value))
            return false;
        if (value > last_year_read) return false;
        const int number = static_cast<int>(value);
        if (letters[i] == 'Y') year = whole_year(number, number < 100);
        if (letters[i] == 'M') month = number;
        if (letters[i] == 'D') day = number;
    }
    return month < 13 && day < 32;
}

bool parse_time_parts(std::string_view text, int &hours, int &minutes, double &seconds)
{
    time_fields fields;
    if (!read_time_fields(text, fields)) return false;
    hours = static_cast<int>(fields.hours) + (fields.afternoon ? 12 : 0);
    minutes = static_cast<int>(fields.minutes);
    seconds = fields.seconds;
    return true;
}

bool parse_date_time_ordered(std::string_view date, std::string_view time_text,
                             std::string_view order, char separator,
                             _windows_systemtime &result)
{
    int day = 0;
    int month = 0;
    int year = 0;
    int hours = 0;
    int minutes = 0;
    double seconds = 0;
    if (!parse_date_ordered(date, order, separator, day, month, year)) return false;
    if (!time_text.empty() && !parse_time_parts(time_text, hours, minutes, seconds))
        return false;
    const double whole = std::floor(seconds);
    result = {};
    result.year = static_cast<u16>(year);
    result.month = static_cast<u16>(month);
    result.day = static_cast<u16>(day);
    result.hour = static_cast<u16>(hours);
    result.minute = static_cast<u16>(minutes);
    result.second = static_cast<u16>(whole);
    result.milliseconds = static_cast<u16>(std::lround((seconds - whole) * 1000));
    return true;
}

} // namespace hv

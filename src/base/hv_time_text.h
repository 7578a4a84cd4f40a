#pragma once

#include "base/hv_time.h"

#include <string>
#include <string_view>

namespace hv {

inline constexpr std::string_view default_date_template = "yyyy-mm-dd";
inline constexpr std::string_view default_time_template = "hh:mm:ss.xxx";

/// True if `text` has the length of a date template: 8 or 10 characters.
bool is_date_template(std::string_view text);
/// True if `text` has the length of a time template, 8 or 12 to 18 characters, and a
/// ":".
bool is_time_template(std::string_view text);

/// The parsed form of a date and a time template.
struct date_time_format {
    enum date_flag : u8 {
        month_name = 1,
        month_number = 2,
        year_four = 4,
        year_two = 8,
        has_comma = 16,
        day_month_year = 32,
        month_day_year = 64,
        year_month_day = 128,
    };

    char separator = 0; ///< between the fields of a date; written also if it is NUL
    u8 date_flags = 0;
    bool pair = false;            ///< date and time share one column
    unsigned fraction_digits = 0; ///< 0 to 9

    /// True if a template has set any of the fields.
    bool built() const { return separator || date_flags || pair || fraction_digits; }
};

/// Fills `result` from the two templates, such as "yyyy-mm-dd" and "hh:mm:ss.xxx".
/// False if the date template can't be used; `result` then holds what was read before
/// the problem.
bool parse_date_time_format(date_time_format &result, std::string_view date_template,
                            std::string_view time_template, bool pair);

/// Writes the date and the time of day, in UTC. True if the format was built and the
/// time is valid. An invalid time makes both texts empty; a format that was never built
/// makes the default texts. A two-digit year is only a minimum width here.
bool format_date_time(std::string &date_text, std::string &time_text, const time &when,
                      const date_time_format &format);

/// The same directly from two templates. Here a two-digit year is cut, fields that the
/// time template leaves out are left out, and a date template without a separator is
/// written with "/". False, with both texts empty, for an invalid time.
bool format_date_time(std::string &date_text, std::string &time_text, const time &when,
                      std::string_view date_template, std::string_view time_template);

/// Reads "01/31/1986", "31-Jan-86" and the like: month first, unless the second field
/// is a name. Two-digit years below 31 are of this century.
bool parse_date(std::string_view text, int &day, int &month, int &year);
/// Reads "12:30", "1:02:03.5 pm" and the like as milliseconds. "pm" adds twelve hours
/// to any hour.
bool parse_time_ms(std::string_view text, u32 &milliseconds);
/// Reads a date whose fields are in the order of `order`, such as "YMD"; with "Mon" for
/// "M", the month is a name. Empty fields are skipped.
bool parse_date_ordered(std::string_view text, std::string_view order, char separator,
                        int &day, int &month, int &year);
/// Reads a time of day as `parse_time_ms` does, into whole hours, whole minutes and
/// seconds with a fraction.
bool parse_time_parts(std::string_view text, int &hours, int &minutes, double &seconds);
/// Reads a date and, unless `time_text` is empty, a time of day.
bool parse_date_time_ordered(std::string_view date, std::string_view time_text,
                             std::string_view order, char separator,
                             _windows_systemtime &result);

} // namespace hv

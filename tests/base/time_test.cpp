#include "base/hv_time.h"
#include "base/hv_time_text.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>

namespace hv {

using namespace std::string_literals;
constexpr u64 epoch = 116'444'736'000'000'000;
constexpr u64 year_1900 = 94'354'848'000'000'000;
constexpr u64 leap_day = 133'536'384'000'000'000; // 2024-02-29

using numbers = std::array<int, 8>;

static numbers fields_of(const _windows_systemtime &t)
{
    return {t.year,   t.month,  t.day,          t.hour,
            t.minute, t.second, t.milliseconds, t.day_of_week};
}

TEST(Time, IsReadFromEachType)
{
    using enum type_time;
    const std::pair<time, u64> cases[] = {
        {{-1'500'000UL, firefox3}, epoch - 15'000'000},
        {{0UL, vhd_time}, 125'912'196'000'000'000},
        {{1UL, unix_time}, epoch + 10'000'000},
        {{1'999L, unix_millisec}, epoch + 19'990'000},
        {{45351L, ole}, leap_day},
        {{638'447'616'000'000'000UL, csharp_time}, leap_day},
        {{3'792'009'600UL, hfs_plus_time}, leap_day},
        {{-1L, snowflake_time}, 130'645'439'999'990'000},
        // From 33 bits on in nanoseconds: whole seconds, and the raw rest as ticks.
        {{4'294'967'296L, safari_time}, 126'227'808'044'967'296}};
    for (const auto &[when, filetime] : cases) EXPECT_EQ(when.filetime, filetime);
    EXPECT_FALSE(time(-1L, unix_time).valid);
    EXPECT_FALSE(time(45351UL, ole).valid) << "only signed values have this type";
}

TEST(Time, IsValidFrom1900To3000)
{
    constexpr u64 last = 441'796'895'999'999'999; // of the year 3000
    for (const u64 value : {year_1900, epoch - 1, epoch + 10'000'000, last})
        EXPECT_TRUE(is_plausible_filetime(value)) << value;
    for (const u64 value : {u64{0}, u64{1} << 63, year_1900 - 1, epoch + 9'999'999,
                            last + 1, (u64{1} << 63) - 1})
        EXPECT_FALSE(is_plausible_filetime(value)) << value;
    _windows_systemtime utc;
    EXPECT_TRUE(filetime_to_systemtime((u64{1} << 63) - 1, utc));
    EXPECT_EQ(fields_of(utc), (numbers{30828, 9, 14, 2, 48, 5, 477, 4}));
    EXPECT_FALSE(filetime_to_systemtime(u64{1} << 63, utc));
    EXPECT_EQ(fields_of(utc), numbers{});
}

TEST(Time, HasAFormOfFat)
{
    u16 date = 0, clock = 0;
    // 2024-10-31 23:59:13, whose odd second rounds up to 14; then 1979 and 2038.
    EXPECT_TRUE(filetime_to_dos(133'748'927'530'000'000, date, clock));
    EXPECT_FALSE(filetime_to_dos(119'600'063'999'999'999, date, clock));
    EXPECT_FALSE(filetime_to_dos(137'903'904'000'000'000, date, clock));
    EXPECT_EQ(std::tuple(date, clock), std::tuple(22879, 48999));
}

// Every day from 1601 on, against a calendar that only counts.
TEST(Time, FollowsTheCalendar)
{
    constexpr u64 ticks_per_day = 864'000'000'000;
    constexpr int lengths[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int year = 1601, month = 1, day = 1, days = 0;
    for (u64 filetime = 0; year <= 3001; filetime += ticks_per_day) {
        _windows_systemtime utc;
        filetime_to_systemtime(filetime + ticks_per_day - 1, utc);
        const numbers today = {year, month, day, 23, 59, 59, 999, ++days % 7};
        ASSERT_EQ(fields_of(utc), today);
        const int carried = day % 3 - 1; // years that are given as months
        std::tm fields{};
        fields.tm_year = year - 1900 - carried;
        fields.tm_mon = month - 1 + 12 * carried;
        fields.tm_mday = day;
        ASSERT_EQ(tm_to_filetime(fields, 0), filetime) << testing::PrintToString(today);
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        if (++day > lengths[month] + (leap && month == 2)) day = 1, ++month;
        if (month > 12) month = 1, ++year;
    }
}

TEST(TimeText, IsPrintedByFormatAndByTemplate)
{
    // The templates, what a format built from them prints, and what they print
    // directly.
    const std::array<std::string, 4> cases[] = {
        {"dd-mmm-yyyy", "hh:mm:ss", "31-Jan-2024 09:08:07", "31-Jan-2024 09:08:07"},
        {"yy-mm-dd", "ss:xxxx", "2024-01-31 09:08:07.1234", "24-01-31 :07.1234"},
        {"mm/dd/yy", "hh:mm.xx", "01/31/2024 09:08:07", "01/31/24 09:08"},
        {"yyyymmdd", "hh:mm:ss.xxxxxxxxx",
         "2024\0"s + "01\0"s + "31 09:08:07.123456700",
         "2024/01/31 09:08:07.123456700"},
        {"mmm dd, yy", "hh:mm:ss.xxxxxxxxxx", "Jan 31 2024 09:08:07.123456700",
         "Jan 31, 24 09:08:07"},
        {"mmm, dd yy", "hh:mm:ss.xxx-x", "Jan 31 2024 09:08:07.12345",
         "Jan 31 24 09:08:07.12345"},
        {"yyyy-mmm-dd", "hh:mm:ss", " 09:08:07", "2024-Jan-31 09:08:07"},
        {"yyyy/mm-", "hh:mm:ss.xxx", " 09:08:07", "01/31/2024 09:08:07.123"},
        // Nothing usable leaves a format that was never built.
        {"abcdefgh", "hh:mm:ss", "2024-01-31 09:08:07.123", "01/31/2024 09:08:07"}};
    const time sample(u64{133'511'656'871'234'567}, type_time::filetime);
    std::string date, clock;
    for (const auto &[dates, times, built, direct] : cases) {
        date_time_format format;
        parse_date_time_format(format, dates, times, false);
        EXPECT_EQ(format_date_time(date, clock, sample, format), dates != "abcdefgh");
        EXPECT_EQ(date + " " + clock, built) << dates;
        EXPECT_TRUE(format_date_time(date, clock, sample, dates, times));
        EXPECT_EQ(date + " " + clock, direct) << dates;
    }
    EXPECT_FALSE(format_date_time(date, clock, time(), date_time_format()));
    EXPECT_EQ(date + clock, "") << "an invalid time";
    EXPECT_TRUE(is_date_template("yy-mm-dd"));
    EXPECT_TRUE(is_time_template("hh:mm:ss.xxx"));
    EXPECT_FALSE(is_time_template("hh:mm:ss.xx"));
    EXPECT_FALSE(is_time_template("hh-mm-ss.xxx"));
}

// Day, month and year as read, or "-".
static std::string read_date(const std::string &text, const std::string &order = {})
{
    int day = 0, month = 0, year = 0;
    if (order.empty() ? !parse_date(text, day, month, year)
                      : !parse_date_ordered(text, order, '-', day, month, year))
        return "-";
    return (std::ostringstream() << day << '.' << month << '.' << year).str();
}

TEST(TimeText, IsReadBack)
{
    EXPECT_EQ(read_date("1/2/30"), "2.1.2030");
    EXPECT_EQ(read_date("1/2/31"), "2.1.1931");
    EXPECT_EQ(read_date("31-jAN-86 x"), "31.1.1986");
    EXPECT_EQ(read_date("1-2/3-2024"), "2.1.2024");
    EXPECT_EQ(read_date("1/2/20245"), "2.1.2024");
    EXPECT_EQ(read_date("1/2/3"), "2.1.3");
    for (const char *text : {"13/1/2024", "1/32/2024", "001/1/2024", "1/0001/2024",
                             "1/2/", "1/2/x", "1/2-2024", ""})
        EXPECT_EQ(read_date(text), "-") << text;
    EXPECT_EQ(read_date("31-dec-30", "DMonY"), "31.12.2030");
    EXPECT_EQ(read_date("31--1--31", "DMY"), "31.1.1931");
    EXPECT_EQ(read_date("0x7e8-0-0", "YMD"), "0.0.2024");
    EXPECT_EQ(read_date("2024-13-1", "YMD"), "-");
    EXPECT_EQ(read_date("2024-1-32", "YMD"), "-");
    u32 milliseconds = 0;
    for (const auto &[text, minutes] : {std::pair{"12:30", 750.0},
                                        {" 12:30 PM\r\n", 1470},
                                        {"12:30am", 750},
                                        {"1:02:03.75 pm", 782.0625},
                                        {"1.5:00.25", 90.25}}) {
        EXPECT_TRUE(parse_time_ms(text, milliseconds)) << text;
        EXPECT_EQ(milliseconds, minutes * 60'000) << text;
    }
    for (const char *text : {"1230", "nan:00", "1e300:00"})
        EXPECT_FALSE(parse_time_ms(text, milliseconds)) << text;
    EXPECT_EQ(time("31-Dec-85 12:30:01.9 pm", true).filetime, 121'493'970'010'000'000u);
    EXPECT_FALSE(time("01/01/1986 noon", true).valid);
}

} // namespace hv

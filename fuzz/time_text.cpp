// Dates, times and numbers as a user may type them.

#include "base/hv_string.h"
#include "base/hv_time_text.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const std::string text(data, data + size);
    for (const bool own_calendar : {true, false}) {
        const hv::time when(text.c_str(), own_calendar);
        if (when.valid &&
            (when.system_time.year < 1900 || when.system_time.year > 3000))
            std::abort();
    }
    hv::_windows_systemtime fields;
    const std::size_t blank = std::min(text.find(' '), text.size());
    hv::parse_date_time_ordered(text.substr(0, blank), text.substr(blank), "YMD", '-',
                                fields);
    hv::date_time_format format;
    hv::parse_date_time_format(format, text, text, false);
    std::string date;
    std::string clock;
    hv::format_date_time(date, clock, hv::time::now(), format);
    hv::format_date_time(date, clock, hv::time::now(), text, text);
    hv::u32 narrow = 0;
    hv::u64 wide = 0;
    hv::parse_u32(text, narrow);
    hv::parse_u64(text, wide);
    return 0;
}

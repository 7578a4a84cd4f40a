#include "base/hv_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace hv {

void debug_log(log_handle log, const char *format, ...)
{
    if (log.stream() == nullptr) return;
    std::string text(std::strlen(format) + 255 + 1, '\0');
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    *log.stream() << "->" << text.c_str() << '\n' << std::flush;
}

} // namespace hv

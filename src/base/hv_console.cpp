#include "base/hv_console.h"

#include "base/hv_string.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace hv {

namespace {

constexpr unsigned status_width = 60;
constexpr unsigned widest_status = 70;
constexpr int longest_message = 4096;

// There is one progress line, drawn from one thread, so its state is process-wide.
u64 progress_step = 0;
u64 progress_next = 0;
bool line_control_allowed = false;

void write_error_stream(const std::string &text)
{
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

void draw_line(std::string text)
{
    remove_char(text, '\n');
    write_error_stream(line_clear_short + text + line_end_cr);
}

void draw_formatted(unsigned width, const char *format, std::va_list args)
{
    char text[widest_status + 1];
    std::vsnprintf(text, std::min(width, widest_status) + 1, format, args);
    draw_line(text);
}

} // namespace

void allow_line_control(bool allowed)
{
    line_control_allowed = allowed;
}

void status_line(const char *format, ...)
{
    std::va_list args;
    va_start(args, format);
    draw_formatted(status_width, format, args);
    va_end(args);
}

void status_line_width(unsigned width, const char *format, ...)
{
    std::va_list args;
    va_start(args, format);
    draw_formatted(width, format, args);
    va_end(args);
}

void progress_line(unsigned width, u64 position, u64 total, unsigned step_percent)
{
    const auto whole = static_cast<double>(total);
    if (progress_next == 0) {
        progress_step = static_cast<u64>(whole * (step_percent / 100.0));
        progress_next = progress_step;
    }
    if (progress_next > position) return;
    progress_next += progress_step;
    const double share = total == 0 ? 0 : static_cast<double>(position) / whole * 100;
    const std::string text = "percent done: " + std::to_string(static_cast<u64>(share));
    draw_line(text.substr(0, width));
}

void end_progress(bool show_progress)
{
    if (show_progress) write_error_stream(line_clear_long);
}

int print_error(const char *format, ...)
{
    std::va_list args;
    std::va_list again;
    va_start(args, format);
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (length >= 0 && length <= longest_message) {
        std::string text(static_cast<std::size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
        write_error_stream(line_control_allowed ? line_clear_long + text : text);
    }
    va_end(again);
    return length;
}

} // namespace hv

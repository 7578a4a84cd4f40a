#include "base/hv_console.h"

#include "base/hv_string.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace hv {

namespace {

constexpr unsigned status_width = 60;
constexpr unsigned widest_status = 70;
constexpr int max_message = 4096;

// There is one progress line and one thread, so the line's state belongs to the
// process.
u64 progress_step = 0;
u64 progress_next = 0;
bool line_control_allowed = false;

// A scan can draw its line thousands of times a second, and a write for each of them
// costs more than the work between them. So texts that come soon after a write are
// gathered.
class gathered_text {
public:
    ~gathered_text() { flush(); }

    void add(std::string_view text)
    {
        m_text += text;
        flush_if_due();
    }
    void flush_if_due()
    {
        if (m_text.empty()) return;
        if (m_text.size() >= max_bytes || clock::now() - m_written >= max_wait) flush();
    }
    void flush()
    {
        if (m_text.empty()) return;
        std::fputs(m_text.c_str(), stderr);
        std::fflush(stderr);
        m_text.clear();
        m_written = clock::now();
    }

private:
    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds max_wait{100};
    static constexpr std::size_t max_bytes = 32768;

    std::string m_text;
    clock::time_point m_written;
};

gathered_text pending;

void draw_line(std::string text)
{
    remove_char(text, '\n');
    pending.add(line_clear_short + text + line_end_cr);
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
    if (progress_next > position) {
        pending.flush_if_due();
        return;
    }
    progress_next += progress_step;
    const double share = total == 0 ? 0 : static_cast<double>(position) / whole * 100;
    const std::string text = "percent done: " + std::to_string(static_cast<u64>(share));
    draw_line(text.substr(0, width));
}

u64 next_progress_mark()
{
    return progress_next;
}

void end_progress(bool show_progress)
{
    if (show_progress) pending.add(line_clear_long);
    pending.flush();
}

void flush_console()
{
    pending.flush();
}

void flush_console_if_due()
{
    pending.flush_if_due();
}

int print_error(const char *format, ...)
{
    std::va_list args;
    std::va_list again;
    va_start(args, format);
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (length >= 0 && length <= max_message) {
        std::string text(static_cast<std::size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
        pending.add(line_control_allowed ? line_clear_long + text : text);
        pending.flush();
    }
    va_end(again);
    return length;
}

} // namespace hv

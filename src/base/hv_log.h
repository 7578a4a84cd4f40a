#pragma once

#include <ostream>

namespace hv {

/// Where diagnostic lines go: the open log of a run, or nowhere.
class log_handle {
public:
    log_handle() = default;
    explicit log_handle(std::ostream *stream) : m_stream(stream) {}
    std::ostream *stream() const { return m_stream; }

private:
    std::ostream *m_stream = nullptr;
};

/// Writes "->", the printf-style text and a line end, and flushes, so that the log is
/// complete after a crash. The text is cut at the length of the format plus 255
/// characters. Without a log it does nothing.
[[gnu::format(printf, 2, 3)]] void debug_log(log_handle log, const char *format, ...);

} // namespace hv

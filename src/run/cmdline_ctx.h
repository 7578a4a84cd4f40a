#pragma once

#include "options/cmd_params.h"

#include <chrono>
#include <string>

namespace hv {

/// Times a run and erases the progress line at its end.
class cmdline_ctx {
public:
    using signal_function = void (*)(const std::string &name);

    cmdline_ctx() = default;
    virtual ~cmdline_ctx();
    cmdline_ctx(const cmdline_ctx &) = delete;
    cmdline_ctx &operator=(const cmdline_ctx &) = delete;

    /// Takes over what the end of the run needs and starts its timing, if `-profile` or
    /// `-diags` asked for one.
    void attach(const cmd_params &params, signal_function handler);

private:
    using steady_time = std::chrono::steady_clock::time_point;

    void report_timing() const;

    bool m_show_progress = false;
    bool m_profile = false;
    std::string m_log_path;
    bool m_timing = false;
    steady_time m_start;
    std::string m_signal_name;
    signal_function m_signal_handler = nullptr;
};

} // namespace hv

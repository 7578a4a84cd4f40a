#include "run/cmdline_ctx.h"

#include "base/hv_console.h"

#include <cstdio>
#include <fstream>

namespace hv {

void cmdline_ctx::attach(const cmd_params &params, signal_function handler)
{
    m_show_progress = params.progress;
    allow_line_control(params.progress);
    if (params.log_stream && params.log_stream->good()) m_log_path = params.log_path;
    m_profile = params.profile;
    m_timing = m_profile || !m_log_path.empty();
    m_start = std::chrono::steady_clock::now();
    if (!params.signal_name.empty() && handler != nullptr) {
        m_signal_name = params.signal_name;
        m_signal_handler = handler;
    }
}

void cmdline_ctx::report_timing() const
{
    const std::chrono::duration<double> elapsed =
        std::chrono::steady_clock::now() - m_start;
    const std::string line = "->" + std::to_string(elapsed.count()) + " secs\n";
    if (m_profile) std::fputs(line.c_str(), stderr);
    if (!m_log_path.empty()) std::ofstream(m_log_path, std::ios::app) << line;
}

cmdline_ctx::~cmdline_ctx()
{
    end_progress(m_show_progress);
    if (m_timing) report_timing();
    if (m_signal_handler != nullptr) m_signal_handler(m_signal_name);
}

} // namespace hv

#include "recyclebin/progress.h"

#include <cstdio>
#include <unistd.h>

namespace hv {

namespace {

constexpr std::chrono::milliseconds drawing_pause{250};
constexpr const char *erase_line = "\r\x1b[2K";

} // namespace

progress_line_on_terminal::progress_line_on_terminal() : m_is_terminal(isatty(2) == 1)
{
}

progress_line_on_terminal::~progress_line_on_terminal()
{
    if (m_is_drawn) std::fputs(erase_line, stderr);
}

void progress_line_on_terminal::show(u64 done, u64 all)
{
    if (!m_is_terminal || all == 0 || done > all) return;
    const clock::time_point now = clock::now();
    if (now < m_next) return;
    m_next = now + drawing_pause;
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    const auto share = static_cast<double>(done) / static_cast<double>(all);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const u64 left =
        rate > 0 ? static_cast<u64>(static_cast<double>(all - done) / rate) : 0;
    std::fprintf(stderr, "%s%3.0f %%  %.0f MB/s  %llu:%02llu left", erase_line,
                 share * 100, rate / 1e6, static_cast<unsigned long long>(left / 60),
                 static_cast<unsigned long long>(left % 60));
    m_is_drawn = true;
}

} // namespace hv

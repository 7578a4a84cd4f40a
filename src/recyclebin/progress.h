#pragma once

#include "base/hv_types.h"

#include <chrono>

namespace hv {

/// A line on standard error that overwrites itself: share, rate and time left. Nothing
/// is drawn unless standard error is a terminal.
class progress_line_on_terminal {
public:
    progress_line_on_terminal();
    ~progress_line_on_terminal();
    progress_line_on_terminal(const progress_line_on_terminal &) = delete;
    progress_line_on_terminal &operator=(const progress_line_on_terminal &) = delete;

    /// How many of how many bytes are done.
    void show(u64 done, u64 all);

private:
    using clock = std::chrono::steady_clock;

    const bool m_is_terminal;
    bool m_is_drawn = false;
    const clock::time_point m_begin = clock::now();
    clock::time_point m_next = m_begin;
};

} // namespace hv

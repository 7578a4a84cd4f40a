#pragma once

#include "base/hv_types.h"

namespace hv {

/// Messages and progress go to standard error; standard output holds nothing but
/// results. The progress line is one line that overwrites itself. Texts that follow
/// each other quickly are gathered, for 100 ms at most while a pass runs.

/// Erases the progress line, with room for its longest text.
inline constexpr const char *line_clear_long = "\x1b[2K\r                           \r";
/// Erases the progress line before a new text.
inline constexpr const char *line_clear_short = "\x1b[2K\r    \r";
/// Puts the cursor back to the start of the line.
inline constexpr const char *line_end_cr = "\r";

/// Whether `print_error` may erase a progress line before its text. Off at first, and
/// for a run without progress: no terminal control then goes to its standard error.
void allow_line_control(bool allowed);

/// Draws a printf-style text of at most 60 characters as the progress line.
[[gnu::format(printf, 1, 2)]] void status_line(const char *format, ...);
/// The same with a limit of `width` characters, at most 70. Kept for callers of the
/// library.
[[gnu::format(printf, 2, 3)]] void status_line_width(unsigned width, const char *format,
                                                     ...);

/// Draws "percent done: " and how much of `total` `position` is, each time it has grown
/// by `step_percent`; cut to `width` characters. The marks last for the process: a
/// second pass draws nothing until it passes the last mark of the first.
void progress_line(unsigned width, u64 position, u64 total, unsigned step_percent);

/// The position at which `progress_line` draws next, for a pass that jumps.
u64 next_progress_mark();

/// Erases the progress line, if progress is shown, and writes what was gathered.
void end_progress(bool show_progress);

/// Writes what was gathered.
void flush_console();
/// Writes it if 100 ms have passed since the last write: for passes that draw rarely.
void flush_console_if_due();

/// Prints a printf-style message on standard error, after erasing the progress line if
/// that is allowed. A text of more than 4096 characters isn't printed. Returns the
/// text's length.
[[gnu::format(printf, 1, 2)]] int print_error(const char *format, ...);

} // namespace hv

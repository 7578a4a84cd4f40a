#pragma once

#include "options/option_readers.h"

#include <string>
#include <string_view>

namespace hv {

inline constexpr std::string_view version_literal = "ver: 0.37";

/// The program's name and version with a notice.
std::string banner();

/// Writes the usage text to standard error.
void usage();

/// The three lines at the head of a run's output: banner, date and host, and the
/// command line as it was typed.
std::string run_header(const arg_list &args);

} // namespace hv

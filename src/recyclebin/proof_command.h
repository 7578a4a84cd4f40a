#pragma once

#include "evidence/sighting.h"

#include <string>

/// Commands by which a user sees the evidence without this program.
namespace hv {

/// A text as one word for a shell, whatever it holds.
std::string shell_quoted(const std::string &text);
/// The command that shows these bytes of a file, in hexadecimal.
std::string check_command(const std::string &file,
                          const std::vector<byte_range> &ranges);

} // namespace hv

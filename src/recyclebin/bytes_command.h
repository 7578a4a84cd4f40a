#pragma once

#include "evidence/sighting.h"

#include <string>

namespace hv {

/// The command that shows the bytes of a sighting, in hexadecimal: `dd` where they are
/// in a plain file, else this program's own `bytes`, which opens the container.
std::string bytes_command(const sighting &seen, const std::string &medium,
                          bool is_plain_file);

} // namespace hv

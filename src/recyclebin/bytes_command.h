#pragma once

#include "evidence/sighting.h"

#include <string>
#include <string_view>

namespace hv {

/// How the bytes of a medium are reached.
enum class bytes_access {
    plain_file, ///< an offset in the medium is one in the named file
    container,  ///< this program opens it
    unlocked    ///< this program opens it with the user's key
};

/// What a command over this medium lacks, as a comment of the shell: the key, which
/// isn't repeated in results. Empty where it lacks nothing.
std::string_view key_comment(bytes_access access);

/// The command that shows the bytes of a sighting, in hexadecimal: `dd` where they are
/// in a plain file, else this program's own `bytes`, which opens the container.
std::string bytes_command(const sighting &seen, const std::string &medium,
                          bytes_access access);

} // namespace hv

#pragma once

namespace hv {

/// Why a file, a device or a chain of virtual disk files isn't open.
enum class open_failure {
    none,        ///< it is open
    missing,     ///< nothing has this name
    unreadable,  ///< it exists, but the system refuses to open or to read it
    unsupported, ///< a folder, a FIFO, a socket, or a form that isn't read
    damaged,     ///< of a form that is read, but its structures contradict each other
    incomplete,  ///< a chain without a base or a parent, or one that leads back to
                 ///< itself
    no_memory,
};

/// The failure in words, to follow a name and a colon: "no such file or device".
const char *open_failure_text(open_failure failure);

/// Why `open_source_file` has just failed for this path; asks the system about the path
/// again. Leaves `errno` as it was.
open_failure explain_failed_open(const char *path);

} // namespace hv

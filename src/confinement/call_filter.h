#pragma once

#include "base/hv_types.h"

#include <functional>
#include <memory>
#include <span>
#include <sys/types.h>

/// System calls that a process gives up, by seccomp.
namespace hv {

/// What a process needs besides memory, time, threads, copies of itself, and what it
/// has open.
struct call_needs {
    bool opens_files = false;   ///< opens files for reading, and lists folders
    bool publishes = false;     ///< gives files other names, and removes files
    bool fills_folders = false; ///< makes and writes files and folders
    bool uses_sockets = false;  ///< sends and receives on sockets that are connected
};

/// Whether the kernel filters system calls, and this build has the library for it.
bool has_call_filter();

/// Refuses all calls but those that a reader with these needs makes, in every thread:
/// they fail with EPERM; of a debug build, they show in the log of the kernel. Calls
/// that only an attacker makes, such as starting another program, end the process.
/// False if it can't be had; nothing is given up then.
bool allow_calls(const call_needs &needs);

/// Leaves the calling process memory, an end, and writing to one descriptor. False if
/// it can't be had.
bool allow_writing_only(int descriptor);

/// Which sockets a process may use that isn't confined further.
enum class socket_use {
    connected, ///< those that it has
    local      ///< those, and new ones to processes of this machine
};

/// Refuses what serves an attacker alone: other sockets, and the calls that end the
/// process above but for starting programs. False if it can't be had.
bool refuse_attacks(socket_use sockets);

} // namespace hv

#pragma once

#include "base/hv_types.h"

#include <string>

/// What the system lets a process give up: Landlock for files and the network, seccomp
/// for system calls. What is given up once can't be had back, and what the process
/// starts afterwards doesn't have it either.
namespace hv {

/// What a process may do with what it opens or names from now on.
enum class file_use {
    read,    ///< open a file, or a folder and everything beneath it, for reading
    execute, ///< the same, and start programs
    publish, ///< beneath a folder: give files new names, and remove them
    fill     ///< beneath a folder: make and write files and folders, and remove files
};

/// Which processes a process may still send signals to, where the kernel can limit it.
enum class signals_to {
    own,   ///< those that it starts from now on, and itself
    anyone ///< all of the same user
};

/// Rules for files by Landlock, which refuses what no rule allows. Files that are open
/// already stay as usable as they are.
class file_rules {
public:
    /// The version of Landlock that this kernel has; 0 without it.
    static int version();

    explicit file_rules(signals_to targets = signals_to::own);
    ~file_rules();
    file_rules(const file_rules &) = delete;
    file_rules &operator=(const file_rules &) = delete;

    /// Allows a use of a file, or of a folder and all beneath it. What doesn't exist
    /// or isn't in a file system, such as a pipe, needs no rule and gets none.
    void allow(file_use use, const std::string &path) const;
    /// Allows to read and start what systems install as software, wherever they do.
    void allow_software() const;
    /// Holds the calling thread, and what it starts from now on, to the rules. It also
    /// loses TCP and abstract sockets of others, where the kernel knows how. False if
    /// it can't be had; nothing is given up then.
    bool apply() const;

private:
    int m_rules; // a descriptor; -1 if there are no rules to be had
};

} // namespace hv

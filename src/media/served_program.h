#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace hv {

/// A program that serves bytes on a socket, which it finds like one that systemd
/// starts: as descriptor 3, listening. It reads hostile bytes, so it starts without the
/// right to write or to connect, and may read nothing but the files that it serves and
/// the folders that software is installed in. Where the kernel can't take these rights
/// away, it starts with them. It ends with this process.
class served_program {
public:
    served_program() = default;
    /// Waits a second for the program to end, as it does when its client is gone, and
    /// ends it then.
    ~served_program();
    served_program(const served_program &) = delete;
    served_program &operator=(const served_program &) = delete;

    /// Starts a program, once. `words` begins with its path; `files` are what it may
    /// read. Returns a socket that is connected to it, which belongs to the caller, or
    /// -1. A program that can't be started shows as one that closes the connection.
    int start(const std::vector<std::string> &words,
              const std::vector<std::string> &files);
    /// Waits until the program has ended; returns its status as of waitpid().
    int wait();

private:
    pid_t m_process = -1;
};

} // namespace hv

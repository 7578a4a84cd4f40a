#pragma once

#include "base/hv_types.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

/// How files and devices that hold evidence are opened and read: by descriptor, and
/// never for writing.
namespace hv {

/// Opens a path for reading, without changing its access time where the system allows
/// that and without waiting for the other end of a FIFO. Returns the descriptor, which
/// the caller closes, or -1.
inline int open_for_reading(const char *path)
{
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    const int descriptor = ::open(path, flags | O_NOATIME);
    // Only the owner of a file may use O_NOATIME.
    if (descriptor < 0 && errno == EPERM) return ::open(path, flags);
    return descriptor;
}

/// The same for a file or a device that holds evidence. -1 also for a folder, a FIFO or
/// a socket, which can't be read at positions.
inline int open_source_file(const char *path)
{
    const int descriptor = open_for_reading(path);
    if (descriptor < 0) return -1;
    struct stat status {};
    // A folder has a size as well, but nothing to read.
    if (fstat(descriptor, &status) != 0 || S_ISFIFO(status.st_mode) ||
        S_ISSOCK(status.st_mode) || S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        return -1;
    }
    // O_NONBLOCK was only for open().
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    return descriptor;
}

/// How many bytes an open target of `size` bytes takes up: fewer than `size` for a
/// sparse file. Only a file that has a hole is believed to take up less, since many
/// file systems, such as those that show the inside of an image, don't count blocks.
inline u64 stored_bytes(int descriptor, u64 size)
{
    constexpr u64 block_unit = 512;
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return size;
    const off_t hole = lseek(descriptor, 0, SEEK_HOLE);
    if (hole < 0 || static_cast<u64>(hole) >= size) return size;
    const u64 stored = static_cast<u64>(status.st_blocks) * block_unit;
    return stored == 0 ? size : std::min(size, stored);
}

/// Reads at byte `offset` until `length` bytes are read, the target ends, or a read
/// fails. Returns the bytes read; -1 only if the first read fails.
inline i64 read_fully(int descriptor, u8 *buffer, u64 length, u64 offset)
{
    constexpr u64 max_offset = std::numeric_limits<off_t>::max();
    if (offset > max_offset || length > max_offset - offset) return -1;
    u64 done = 0;
    while (done < length) {
        const ssize_t count = pread(descriptor, buffer + done, length - done,
                                    static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && done == 0) return -1;
        if (count <= 0) break;
        done += static_cast<u64>(count);
    }
    return static_cast<i64>(done);
}

} // namespace hv

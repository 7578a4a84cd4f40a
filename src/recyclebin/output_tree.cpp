#include "recyclebin/output_tree.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hv {

namespace {

constexpr int open_folder_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

timespec time_of(u64 filetime)
{
    constexpr u64 ticks = 10'000'000; // of a second
    constexpr i64 epoch = 11'644'473'600;
    if (filetime == 0) return {.tv_sec = 0, .tv_nsec = UTIME_OMIT};
    return {.tv_sec = static_cast<std::time_t>(filetime / ticks) - epoch,
            .tv_nsec = static_cast<long>(filetime % ticks * 100)};
}

// A moment that the file system can't keep is left out.
void set_file_times(int file, const record_times &times)
{
    const std::array<timespec, 2> moments = {time_of(times.accessed),
                                             time_of(times.modified)};
    if (futimens(file, moments.data()) == 0) return;
}

// The folder in a folder, made if it is missing; -1 with `errno` set.
int enter(int folder, const std::string &name)
{
    if (mkdirat(folder, name.c_str(), 0777) != 0 && errno != EEXIST) return -1;
    return openat(folder, name.c_str(), open_folder_flags | O_NOFOLLOW);
}

// Gives a file its final name, if nothing has it.
int rename_to_new(int folder, const std::string &from, const std::string &to)
{
    if (renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // Not every file system knows this; a link doesn't replace anything either.
    if (linkat(folder, from.c_str(), folder, to.c_str(), 0) != 0) return errno;
    return unlinkat(folder, from.c_str(), 0) == 0 ? 0 : errno;
}

} // namespace

output_tree::~output_tree()
{
    if (m_last >= 0) close(m_last);
    if (m_root >= 0) close(m_root);
}

bool output_tree::open(std::string &problem, const std::string &path)
{
    if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST)
        m_root = ::open(path.c_str(), open_folder_flags);
    if (m_root >= 0) return true;
    problem = path + ": " + std::strerror(errno);
    return false;
}

int output_tree::folder(const std::vector<std::string> &path)
{
    if (m_last >= 0 && path == m_last_path) return m_last;
    int at = fcntl(m_root, F_DUPFD_CLOEXEC, 3);
    for (const std::string &name : path) {
        if (at < 0) break;
        const int next = enter(at, name);
        const int error = errno;
        close(at);
        errno = error;
        at = next;
    }
    if (m_last >= 0) {
        const int error = errno;
        close(m_last);
        errno = error;
    }
    m_last = at;
    m_last_path = path;
    return at;
}

void output_tree::set_times(const std::vector<std::string> &path,
                            const record_times &times)
{
    const int at = folder(path);
    if (at >= 0) set_file_times(at, times);
}

new_file::~new_file()
{
    if (m_file >= 0) close(m_file);
    if (!m_name.empty()) unlinkat(m_folder, m_name.c_str(), 0);
}

int new_file::create(int folder)
{
    constexpr int max_tries = 100; // others may have been left by runs that were killed
    m_folder = folder;
    for (int i = 0; i < max_tries; ++i) {
        const std::string name =
            ".recyclebin-" + std::to_string(getpid()) + "-" + std::to_string(i);
        m_file = openat(folder, name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (m_file >= 0) {
            m_name = name;
            return 0;
        }
        if (errno != EEXIST) return errno;
    }
    return EEXIST;
}

int new_file::write(byte_view bytes)
{
    const std::span<const u8> all = bytes.bytes();
    // A hole of the file: it costs the disk nothing here either.
    const bool is_zero = std::ranges::all_of(all, [](u8 byte) { return byte == 0; });
    for (std::size_t done = 0; !is_zero && done < all.size();) {
        const ssize_t count = pwrite(m_file, all.data() + done, all.size() - done,
                                     static_cast<off_t>(m_size + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return ENOSPC;
        done += static_cast<std::size_t>(count);
    }
    m_size += all.size();
    return 0;
}

int new_file::finish(const std::string &name, const record_times &times)
{
    if (ftruncate(m_file, static_cast<off_t>(m_size)) != 0) return errno;
    set_file_times(m_file, times);
    const int closed = close(m_file) == 0 ? 0 : errno;
    m_file = -1;
    if (closed != 0) return closed;
    const int renamed = rename_to_new(m_folder, m_name, name);
    if (renamed == 0) m_name.clear();
    return renamed;
}

} // namespace hv

#include "recyclebin/export_target.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace hv {

namespace {

std::string path_of_manifest(const export_options &how)
{
    if (!how.manifest.empty()) return how.manifest;
    return how.only_hash ? std::string() : how.to + "/manifest.jsonl";
}

// A run that was killed before its first line leaves an empty manifest. -1 for any
// other.
int open_empty(const std::string &path)
{
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    struct stat status {};
    if (descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_size == 0)
        return descriptor;
    if (descriptor >= 0) close(descriptor);
    errno = EEXIST;
    return -1;
}

// A file of its own: none that has lines, nor one that another run has just made.
int open_new_manifest(const std::string &path)
{
    int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0 && errno == EEXIST) descriptor = open_empty(path);
    // Not every file system has locks.
    if (descriptor < 0 || flock(descriptor, LOCK_EX | LOCK_NB) == 0 ||
        errno != EWOULDBLOCK)
        return descriptor;
    close(descriptor);
    errno = EEXIST;
    return -1;
}

} // namespace

export_target::~export_target()
{
    if (m_manifest < 0) return;
    close(m_manifest);
    unlink(m_manifest_path.c_str());
}

bool export_target::open(std::string &problem, const export_options &how)
{
    m_has_tree = !how.only_hash;
    m_manifest_path = path_of_manifest(how);
    return (!m_has_tree || m_tree.open(problem, how.to)) && open_manifest(problem);
}

bool export_target::open_manifest(std::string &problem)
{
    if (m_manifest_path.empty()) return true;
    m_manifest = open_new_manifest(m_manifest_path);
    if (m_manifest >= 0) return true;
    problem = errno == EEXIST
                  ? m_manifest_path + " exists; --manifest names another file"
                  : m_manifest_path + ": " + std::strerror(errno);
    return false;
}

std::unique_ptr<manifest_file> export_target::take_manifest(std::ostream &out)
{
    if (m_manifest < 0) return std::make_unique<manifest_file>(out);
    return std::make_unique<manifest_file>(std::exchange(m_manifest, -1));
}

} // namespace hv

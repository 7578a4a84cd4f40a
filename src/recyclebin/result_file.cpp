#include "recyclebin/result_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hv {

namespace {

bool is_same_file(const std::string &path, const struct stat &other)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && status.st_dev == other.st_dev &&
           status.st_ino == other.st_ino;
}

// Why a file of this name may not be replaced; nothing if it may.
const char *refusal(const struct stat &status, bool replace,
                    const std::vector<std::string> &sources)
{
    if (std::any_of(sources.begin(), sources.end(), [&](const std::string &source) {
            return is_same_file(source, status);
        }))
        return "is what is to be read";
    if (!S_ISREG(status.st_mode)) return "isn't a regular file";
    return replace ? nullptr : "exists; --force replaces it";
}

} // namespace

result_file::~result_file()
{
    m_stream.reset();
    if (m_descriptor >= 0) close(m_descriptor);
    if (!m_written.empty()) unlink(m_written.c_str());
}

bool result_file::open(std::string &problem, const std::string &path, bool replace,
                       const std::vector<std::string> &sources)
{
    if (path.empty()) {
        m_stream = std::make_unique<uni::stdout_output>();
        return true;
    }
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (const char *why = exists ? refusal(status, replace, sources) : nullptr) {
        problem = path + " " + why;
        return false;
    }
    m_path = path;
    // Nobody takes half a result for a whole one, even if this run is killed.
    const std::string written = path + ".part";
    if (replace) unlink(written.c_str());
    m_descriptor =
        ::open(written.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (m_descriptor < 0) {
        problem = written + ": " + std::strerror(errno);
        if (errno == EEXIST)
            problem += ", from a run that was cut off; --force replaces it";
        return false;
    }
    m_replaces = replace;
    m_written = written;
    m_stream = std::make_unique<uni::stdout_output>(m_descriptor);
    return true;
}

// Gives the written file its name; a number of `errno` if that fails. What came there
// in the meantime is only replaced where the user asks for it.
int result_file::publish() const
{
    if (!m_replaces) {
        if (link(m_written.c_str(), m_path.c_str()) == 0) {
            unlink(m_written.c_str());
            return 0;
        }
        if (errno == EEXIST) return errno;
        // Not every file system has links.
    }
    return rename(m_written.c_str(), m_path.c_str()) == 0 ? 0 : errno;
}

bool result_file::finish(std::string &problem)
{
    int error = m_stream->finish();
    if (error == 0 && m_descriptor >= 0) {
        if (close(m_descriptor) != 0) error = errno;
        m_descriptor = -1;
        if (error == 0) error = publish();
    }
    if (error == 0) {
        m_written.clear();
        return true;
    }
    problem =
        (m_path.empty() ? "standard output" : m_path) + ": " + std::strerror(error);
    return false;
}

} // namespace hv

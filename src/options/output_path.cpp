#include "options/output_path.h"

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace hv {

namespace {

bool is_same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string resolved(const std::string &path)
{
    const std::unique_ptr<char, decltype(&std::free)> real(
        realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : std::string();
}

// The path with its folder resolved: a relative path inside a bin need not name the
// bin.
std::string with_resolved_folder(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder =
        slash == std::string::npos ? "." : path.substr(0, slash + 1);
    return resolved(folder) + "/" + path.substr(slash + 1);
}

bool is_link(const std::string &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool names_a_source(const arg_list &args, const struct stat &target)
{
    for (const char *option : {"-image", "-mftfile", "-file"}) {
        std::string value;
        struct stat source {};
        if (find_value(args, option, value, 0) && stat(value.c_str(), &source) == 0 &&
            is_same_file(source, target))
            return true;
    }
    return false;
}

// Opening decides whether the path will do. The file is created if it is missing, and
// what a file holds stays as it is.
bool can_be_written(const std::string &path, struct stat &status)
{
    constexpr mode_t created_mode = 0606;
    const int flags = O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    const int descriptor = ::open(path.c_str(), flags, created_mode);
    if (descriptor < 0) return false;
    const bool known = fstat(descriptor, &status) == 0;
    ::close(descriptor);
    return known;
}

} // namespace

bool is_evidence_path(const arg_list &args, const std::string &path,
                      evidence_test is_evidence)
{
    struct stat target {};
    if (stat(path.c_str(), &target) != 0) return false;
    return names_a_source(args, target) ||
           (S_ISREG(target.st_mode) && is_evidence(with_resolved_folder(path)));
}

bool appends_to_evidence(const arg_list &args, const std::string &path,
                         evidence_test is_evidence)
{
    return is_evidence_path(args, path, is_evidence) ||
           is_evidence_path(args, resolved(path), is_evidence);
}

bool prepare_output_path(const arg_list &args, const std::string &path,
                         evidence_test is_evidence)
{
    if (path.empty() || is_evidence_path(args, path, is_evidence)) return false;
    const bool leads_nowhere = is_link(path) && resolved(path).empty();
    struct stat status {};
    if (!can_be_written(path, status)) return false;
    // Opening a link that led nowhere has made a file at its far end.
    if (leads_nowhere && unlink(resolved(path).c_str()) != 0) return false;
    return !S_ISREG(status.st_mode) || unlink(path.c_str()) == 0;
}

} // namespace hv

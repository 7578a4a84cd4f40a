#include "options/output_path.h"

#include "base/hv_portable_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hv {

namespace {

bool is_same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool is_dangling_link(const std::string &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
           !hvportdir::path_exists(path);
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

bool names_a_source(const arg_list &args, std::string_view path)
{
    struct stat target {};
    if (stat(std::string(path).c_str(), &target) != 0) return false;
    for (const char *option : {"-image", "-mftfile", "-file"}) {
        std::string value;
        struct stat source {};
        if (find_value(args, option, value, 0) && stat(value.c_str(), &source) == 0 &&
            is_same_file(source, target))
            return true;
    }
    return false;
}

bool prepare_output_path(const arg_list &args, const std::string &path)
{
    if (path.empty() || names_a_source(args, path)) return false;
    // A link that leads nowhere goes first: opening it would make a file at its far
    // end.
    if (is_dangling_link(path) && unlink(path.c_str()) != 0) return false;
    struct stat status {};
    if (!can_be_written(path, status)) return false;
    return !S_ISREG(status.st_mode) || unlink(path.c_str()) == 0;
}

} // namespace hv

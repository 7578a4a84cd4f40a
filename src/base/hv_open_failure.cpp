#include "base/hv_open_failure.h"

#include <cerrno>
#include <sys/stat.h>

namespace hv {

const char *open_failure_text(open_failure failure)
{
    switch (failure) {
    case open_failure::none: return "open";
    case open_failure::missing: return "no such file or device";
    case open_failure::unreadable: return "can't be read";
    case open_failure::unsupported: return "not of a supported form";
    case open_failure::damaged: return "damaged";
    case open_failure::incomplete: return "not a complete chain";
    case open_failure::no_memory: return "not enough memory";
    }
    return "";
}

open_failure explain_failed_open(const char *path)
{
    const int error = errno;
    struct stat status {};
    open_failure failure = open_failure::unreadable;
    if (stat(path, &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) failure = open_failure::missing;
    } else if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) ||
               S_ISDIR(status.st_mode)) {
        failure = open_failure::unsupported;
    }
    errno = error;
    return failure;
}

} // namespace hv

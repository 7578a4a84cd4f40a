#include "media/shared_object.h"

#include <dlfcn.h>

namespace hv {

namespace {

// With RTLD_DEEPBIND a library prefers its own functions to those that the program is
// linked to. AddressSanitizer refuses that.
#ifdef __SANITIZE_ADDRESS__
constexpr int load_flags = RTLD_NOW | RTLD_LOCAL;
#else
constexpr int load_flags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif

} // namespace

shared_object::shared_object(const char *file)
    : m_library(dlopen(file, load_flags)),
      m_complete(m_library != nullptr)
{
}

void *shared_object::find(const char *name)
{
    void *found = m_library == nullptr ? nullptr : dlsym(m_library, name);
    m_complete = m_complete && found != nullptr;
    return found;
}

} // namespace hv

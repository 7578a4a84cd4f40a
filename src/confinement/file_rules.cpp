#include "confinement/file_rules.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace hv {

namespace {

// The interface of the kernel, as later versions have it: the headers of a system may
// be older than its kernel.
// clang-format off
namespace right {
constexpr u64 execute     = 1U << 0U;
constexpr u64 write_file  = 1U << 1U;
constexpr u64 read_file   = 1U << 2U;
constexpr u64 read_folder = 1U << 3U;
constexpr u64 remove_file = 1U << 5U;
constexpr u64 make_folder = 1U << 7U;
constexpr u64 make_file   = 1U << 8U;
constexpr u64 of_version_1 = (1U << 13U) - 1; // all up to making symbolic links
constexpr u64 move        = 1U << 13U; // between folders
constexpr u64 truncate    = 1U << 14U;
constexpr u64 control     = 1U << 15U; // of devices
constexpr u64 of_files    = execute | write_file | read_file | truncate | control;
} // namespace right
// clang-format on

constexpr u64 all_of_tcp = 3;   // to listen, and to connect
constexpr u64 socket_scope = 1; // no abstract sockets of others
constexpr u64 signal_scope = 2; // no signals to others

struct rules_attribute {
    u64 files;
    u64 network; // from version 4
    u64 scopes;  // from version 6
};

struct [[gnu::packed]] path_attribute {
    u64 allowed;
    i32 descriptor;
};

constexpr unsigned ask_version = 1;
constexpr int path_beneath = 1;

u64 known_rights(int version)
{
    u64 known = right::of_version_1;
    if (version >= 2) known |= right::move;
    if (version >= 3) known |= right::truncate;
    if (version >= 5) known |= right::control;
    return known;
}

std::size_t attribute_size(int version)
{
    if (version < 4) return sizeof(u64);
    return version < 6 ? 2 * sizeof(u64) : sizeof(rules_attribute);
}

u64 rights_of(file_use use)
{
    constexpr u64 reading = right::read_file | right::read_folder;
    constexpr u64 publishing = right::make_file | right::remove_file;
    switch (use) {
    case file_use::read: return reading;
    case file_use::execute: return reading | right::execute;
    case file_use::publish: return publishing;
    case file_use::fill:
        return reading | publishing | right::make_folder | right::write_file |
               right::truncate;
    }
    return 0;
}

} // namespace

int file_rules::version()
{
    static const long found =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, ask_version);
    return found < 0 ? 0 : static_cast<int>(found);
}

file_rules::file_rules(signals_to targets) : m_rules(-1)
{
    if (version() == 0) return;
    const u64 scopes =
        targets == signals_to::own ? socket_scope | signal_scope : socket_scope;
    const rules_attribute all = {known_rights(version()), all_of_tcp, scopes};
    m_rules = static_cast<int>(
        syscall(SYS_landlock_create_ruleset, &all, attribute_size(version()), 0));
}

file_rules::~file_rules()
{
    if (m_rules >= 0) close(m_rules);
}

void file_rules::allow(file_use use, const std::string &path) const
{
    if (m_rules < 0) return;
    const int target = open(path.c_str(), O_PATH | O_CLOEXEC);
    if (target < 0) return;
    struct stat status {};
    path_attribute rule = {rights_of(use) & known_rights(version()), target};
    const bool is_known = fstat(target, &status) == 0;
    if (!S_ISDIR(status.st_mode)) rule.allowed &= right::of_files;
    if (is_known && rule.allowed != 0)
        syscall(SYS_landlock_add_rule, m_rules, path_beneath, &rule, 0);
    close(target);
}

void file_rules::allow_software() const
{
    for (const char *path : {"/usr", "/bin", "/lib", "/lib64", "/opt", "/gnu/store",
                             "/nix/store", "/snap", "/etc/ld.so.cache"})
        allow(file_use::execute, path);
}

bool file_rules::apply() const
{
    return m_rules >= 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           syscall(SYS_landlock_restrict_self, m_rules, 0) == 0;
}

} // namespace hv

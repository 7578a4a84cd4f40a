#include "hives/hive_names.h"

#include "base/hv_byte_view.h"
#include "confinement/call_filter.h"
#include "confinement/file_rules.h"
#ifdef VESKIT_WITH_REGF
#include "hives/regf_reader.h"
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace hv {

namespace {

// The header of a hive. All parts of a hive are multiples of its size.
namespace hive_header {
constexpr u32 signature = 0x66676572; // "regf"
constexpr std::size_t written = 12;   // u64
constexpr std::size_t size = 4096;
} // namespace hive_header

} // namespace

u64 hive_written(std::span<const u8> hive)
{
    const byte_view bytes{hive.data(), hive.size()};
    u32 signature = 0;
    if (bytes.size() <= hive_header::size || !bytes.read(0, signature) ||
        signature != hive_header::signature)
        return 0;
    return bytes.read_padded<u64>(hive_header::written);
}

#ifdef VESKIT_WITH_REGF

namespace {

constexpr u64 max_seconds = 20; // of the processor
constexpr u64 min_memory = u64{64} << 20;
#ifdef __SANITIZE_ADDRESS__
constexpr bool limits_memory = false; // the sanitizer takes terabytes of addresses
#else
constexpr bool limits_memory = true;
#endif
constexpr std::size_t max_text = std::size_t{64} << 20;

template <class Text> void append_text(std::vector<u8> &bytes, const Text &text)
{
    const auto append_unit = [&](std::size_t unit) {
        bytes.push_back(static_cast<u8>(unit & 0xFFU));
        bytes.push_back(static_cast<u8>(unit >> 8U & 0xFFU));
    };
    const std::size_t count = std::min<std::size_t>(text.size(), 0xFFFF);
    append_unit(count);
    for (std::size_t i = 0; i < count; ++i) append_unit(static_cast<char16_t>(text[i]));
}

template <class Text> bool take_text(Text &out, byte_view &bytes)
{
    u16 count = 0;
    byte_view units;
    if (!bytes.read(0, count) || !bytes.sub(2, u64{2} * count, units)) return false;
    for (u64 at = 0; at < units.size(); at += 2)
        out += static_cast<typename Text::value_type>(units.read_padded<u16>(at));
    bytes = bytes.from(2 + units.size());
    return true;
}

// What the system says about the memory of this process. It stays open: later, the
// process may have given up opening files.
int memory_counts()
{
    static const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    return file;
}

// The memory that this process may write to, in bytes; 0 if the system doesn't say.
u64 memory_in_use()
{
    std::array<char, 256> text{};
    if (pread(memory_counts(), text.data(), text.size() - 1, 0) <= 0) return 0;
    std::istringstream counts(text.data());
    u64 pages = 0;
    for (int field = 0; field < 6; ++field) counts >> pages;
    return counts ? pages * static_cast<u64>(sysconf(_SC_PAGESIZE)) : 0;
}

void limit(__rlimit_resource what, u64 most)
{
    const rlimit limits = {most, most};
    setrlimit(what, &limits);
}

// A few bytes of a damaged hive can keep the library busy for long, and have it ask for
// all memory that it gets.
void limit_costs(u64 hive_size, u64 before)
{
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_CPU, max_seconds);
    if (limits_memory && before != 0)
        limit(RLIMIT_DATA, before + min_memory + 2 * hive_size);
}

// What the process that reads does: it writes each SID and name, and ends.
[[noreturn]] void write_names(int to, hive_kind kind, std::span<const u8> hive,
                              u64 memory_before) noexcept
try {
    file_rules().apply();
    limit_costs(hive.size(), memory_before);
    for (const int number : {SIGXCPU, SIGSEGV, SIGBUS, SIGABRT})
        std::signal(number, SIG_DFL);
    allow_writing_only(to);
    names_by_sid names;
    std::vector<u8> bytes;
    bool is_good = read_regf_names(names, kind, hive);
    for (const auto &[sid, name] : names) {
        append_text(bytes, sid);
        append_text(bytes, name);
    }
    for (std::size_t done = 0; is_good && done < bytes.size();) {
        const ssize_t count = write(to, bytes.data() + done, bytes.size() - done);
        if (count > 0) done += static_cast<std::size_t>(count);
        if (count < 0 && errno != EINTR) is_good = false;
    }
    _exit(is_good ? 0 : 1);
} catch (const std::bad_alloc &) {
    _exit(1);
}

std::vector<u8> read_to_end(int from)
{
    std::vector<u8> bytes;
    u8 part[4096];
    while (bytes.size() < max_text) {
        const ssize_t count = read(from, part, sizeof part);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        bytes.insert(bytes.end(), part, part + count);
    }
    return bytes;
}

bool ended_well(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

bool can_read_hives()
{
    memory_counts();
    return has_regf_library();
}

bool read_names(names_by_sid &out, hive_kind kind, std::span<const u8> hive)
{
    int ends[2] = {};
    if (hive_written(hive) == 0 || pipe(ends) != 0) return false;
    const u64 memory_before = memory_in_use();
    const pid_t reader = fork();
    if (reader == 0) write_names(ends[1], kind, hive, memory_before);
    close(ends[1]);
    const std::vector<u8> bytes = reader < 0 ? std::vector<u8>() : read_to_end(ends[0]);
    close(ends[0]);
    if (reader < 0 || !ended_well(reader)) return false;
    names_by_sid names;
    for (byte_view rest{bytes}; rest.size() > 0;) {
        std::string sid;
        std::u16string name;
        if (!take_text(sid, rest) || !take_text(name, rest)) return false;
        names.try_emplace(sid, name);
    }
    out.merge(names);
    return true;
}

#else

bool can_read_hives()
{
    return false;
}

bool read_names(names_by_sid & /*out*/, hive_kind /*kind*/,
                std::span<const u8> /*hive*/)
{
    return false;
}

#endif

} // namespace hv

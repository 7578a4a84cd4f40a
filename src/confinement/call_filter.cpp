#include "confinement/call_filter.h"

#ifdef VESKIT_WITH_SECCOMP
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace hv {

#ifdef VESKIT_WITH_SECCOMP

namespace {

using call_list = std::span<const int>;

// The lists are in the order of what the calls are about. A call that a processor
// doesn't have costs nothing.

constexpr int memory_calls[] = {SCMP_SYS(brk),        SCMP_SYS(madvise),
                                SCMP_SYS(membarrier), SCMP_SYS(mincore),
                                SCMP_SYS(mremap),     SCMP_SYS(munmap)};

constexpr int process_calls[] = {SCMP_SYS(exit),
                                 SCMP_SYS(exit_group),
                                 SCMP_SYS(futex),
                                 SCMP_SYS(getcpu),
                                 SCMP_SYS(getegid),
                                 SCMP_SYS(geteuid),
                                 SCMP_SYS(getgid),
                                 SCMP_SYS(getpid),
                                 SCMP_SYS(getppid),
                                 SCMP_SYS(getrandom),
                                 SCMP_SYS(getrlimit),
                                 SCMP_SYS(getrusage),
                                 SCMP_SYS(gettid),
                                 SCMP_SYS(getuid),
                                 SCMP_SYS(restart_syscall),
                                 SCMP_SYS(rseq),
                                 SCMP_SYS(rt_sigaction),
                                 SCMP_SYS(rt_sigprocmask),
                                 SCMP_SYS(rt_sigreturn),
                                 SCMP_SYS(sched_getaffinity),
                                 SCMP_SYS(sched_yield),
                                 SCMP_SYS(set_robust_list),
                                 SCMP_SYS(set_tid_address),
                                 SCMP_SYS(setrlimit),
                                 SCMP_SYS(sigaltstack),
                                 SCMP_SYS(sysinfo),
                                 SCMP_SYS(uname)};

constexpr int time_calls[] = {
    SCMP_SYS(clock_getres), SCMP_SYS(clock_gettime), SCMP_SYS(clock_nanosleep),
    SCMP_SYS(gettimeofday), SCMP_SYS(nanosleep),     SCMP_SYS(time),
    SCMP_SYS(times)};

// What is done with a file that is open.
constexpr int open_file_calls[] = {
    SCMP_SYS(close),    SCMP_SYS(dup),       SCMP_SYS(fadvise64), SCMP_SYS(fallocate),
    SCMP_SYS(fcntl),    SCMP_SYS(fdatasync), SCMP_SYS(fstat),     SCMP_SYS(fstatfs),
    SCMP_SYS(fsync),    SCMP_SYS(ftruncate), SCMP_SYS(lseek),     SCMP_SYS(poll),
    SCMP_SYS(ppoll),    SCMP_SYS(pread64),   SCMP_SYS(preadv),    SCMP_SYS(preadv2),
    SCMP_SYS(pselect6), SCMP_SYS(pwrite64),  SCMP_SYS(read),      SCMP_SYS(readahead),
    SCMP_SYS(readv),    SCMP_SYS(select),    SCMP_SYS(write),     SCMP_SYS(writev)};

// What only looks at names. Nothing is learnt by it but which files there are.
constexpr int status_calls[] = {
    SCMP_SYS(access), SCMP_SYS(faccessat),  SCMP_SYS(faccessat2), SCMP_SYS(getcwd),
    SCMP_SYS(lstat),  SCMP_SYS(newfstatat), SCMP_SYS(readlink),   SCMP_SYS(readlinkat),
    SCMP_SYS(stat),   SCMP_SYS(statfs),     SCMP_SYS(statx)};

constexpr int folder_calls[] = {SCMP_SYS(getdents64)};

constexpr int publishing_calls[] = {
    SCMP_SYS(link),      SCMP_SYS(linkat), SCMP_SYS(rename),  SCMP_SYS(renameat),
    SCMP_SYS(renameat2), SCMP_SYS(unlink), SCMP_SYS(unlinkat)};

constexpr int filling_calls[] = {SCMP_SYS(mkdir), SCMP_SYS(mkdirat), SCMP_SYS(openat)};

constexpr int socket_calls[] = {SCMP_SYS(getsockopt), SCMP_SYS(recvfrom),
                                SCMP_SYS(recvmsg),    SCMP_SYS(sendmsg),
                                SCMP_SYS(sendto),     SCMP_SYS(shutdown)};

// For processes that read on its behalf, as those of hives do.
constexpr int reader_calls[] = {SCMP_SYS(pipe), SCMP_SYS(pipe2), SCMP_SYS(wait4),
                                SCMP_SYS(waitid)};

// By these a process gives up more.
constexpr int confining_calls[] = {
    SCMP_SYS(landlock_add_rule), SCMP_SYS(landlock_create_ruleset),
    SCMP_SYS(landlock_restrict_self), SCMP_SYS(prctl), SCMP_SYS(seccomp)};

// No reader makes these by mistake. A process that does is in the hands of another,
// whose results must not be taken for those of the program.
constexpr int attacking_calls[] = {SCMP_SYS(execve),
                                   SCMP_SYS(execveat),
                                   SCMP_SYS(process_vm_readv),
                                   SCMP_SYS(process_vm_writev),
                                   SCMP_SYS(process_madvise),
                                   SCMP_SYS(pidfd_getfd),
                                   SCMP_SYS(bpf),
                                   SCMP_SYS(perf_event_open),
                                   SCMP_SYS(userfaultfd),
                                   SCMP_SYS(io_uring_setup),
                                   SCMP_SYS(io_uring_enter),
                                   SCMP_SYS(io_uring_register),
                                   SCMP_SYS(mount),
                                   SCMP_SYS(umount2),
                                   SCMP_SYS(move_mount),
                                   SCMP_SYS(open_tree),
                                   SCMP_SYS(fsopen),
                                   SCMP_SYS(fsmount),
                                   SCMP_SYS(pivot_root),
                                   SCMP_SYS(chroot),
                                   SCMP_SYS(setns),
                                   SCMP_SYS(unshare),
                                   SCMP_SYS(open_by_handle_at),
                                   SCMP_SYS(add_key),
                                   SCMP_SYS(request_key),
                                   SCMP_SYS(keyctl),
                                   SCMP_SYS(kexec_load),
                                   SCMP_SYS(kexec_file_load),
                                   SCMP_SYS(init_module),
                                   SCMP_SYS(finit_module),
                                   SCMP_SYS(delete_module),
                                   SCMP_SYS(swapon),
                                   SCMP_SYS(swapoff),
                                   SCMP_SYS(reboot)};

// The sanitizers start a thread that stops the others, to search them for leaks.
#ifdef __SANITIZE_ADDRESS__
constexpr bool is_sanitized = true;
constexpr int sanitizer_calls[] = {
    SCMP_SYS(open),       SCMP_SYS(getdents), SCMP_SYS(ptrace),    SCMP_SYS(openat),
    SCMP_SYS(getdents64), SCMP_SYS(wait4),    SCMP_SYS(prlimit64), SCMP_SYS(tgkill)};
// Whether an object is where a call expects it, they try by writing it to a pipe.
constexpr int sanitizer_probes[] = {SCMP_SYS(pipe), SCMP_SYS(pipe2), SCMP_SYS(write),
                                    SCMP_SYS(close)};
#else
constexpr bool is_sanitized = false;
constexpr call_list sanitizer_calls;
constexpr call_list sanitizer_probes;
#endif

// Those who work on the program see in the log of the kernel what a filter refused.
#ifdef NDEBUG
constexpr u32 logs_refusals = 0;
#else
constexpr u32 logs_refusals = 1;
#endif

// Rules that are put together, and then hold for the process.
class call_rules {
public:
    explicit call_rules(u32 for_others) : m_rules(seccomp_init(for_others)) {}
    ~call_rules() { seccomp_release(m_rules); }
    call_rules(const call_rules &) = delete;
    call_rules &operator=(const call_rules &) = delete;

    void add(u32 action, call_list calls)
    {
        for (const int call : calls) add(action, call, {});
    }
    // `conditions` hold together.
    void add(u32 action, int call, std::initializer_list<scmp_arg_cmp> conditions)
    {
        m_is_good = m_is_good && m_rules != nullptr &&
                    seccomp_rule_add_array(m_rules, action, call,
                                           static_cast<unsigned>(conditions.size()),
                                           conditions.begin()) == 0;
    }
    bool apply()
    {
        return m_is_good &&
               seccomp_attr_set(m_rules, SCMP_FLTATR_ACT_BADARCH,
                                SCMP_ACT_KILL_PROCESS) == 0 &&
               seccomp_attr_set(m_rules, SCMP_FLTATR_CTL_TSYNC, 1) == 0 &&
               seccomp_attr_set(m_rules, SCMP_FLTATR_CTL_LOG, logs_refusals) == 0 &&
               seccomp_attr_set(m_rules, SCMP_FLTATR_CTL_OPTIMIZE, 2) == 0 &&
               seccomp_load(m_rules) == 0;
    }

private:
    scmp_filter_ctx m_rules;
    bool m_is_good = true;
};

constexpr scmp_arg_cmp equals(unsigned argument, u64 value)
{
    return {argument, SCMP_CMP_EQ, value, 0};
}

constexpr scmp_arg_cmp has_none_of(unsigned argument, u64 bits)
{
    return {argument, SCMP_CMP_MASKED_EQ, bits, 0};
}

// Memory is never made executable: the libraries are loaded by now.
void allow_memory(call_rules &rules)
{
    rules.add(SCMP_ACT_ALLOW, memory_calls);
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(mmap), {has_none_of(2, PROT_EXEC)});
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(mprotect), {has_none_of(2, PROT_EXEC)});
}

// Threads and, as copies of this one, processes; none of other name spaces. The flags
// of clone3 are in memory, where no filter sees them: without it, the library uses
// clone.
void allow_threads(call_rules &rules)
{
    constexpr u64 new_spaces = CLONE_NEWCGROUP | CLONE_NEWIPC | CLONE_NEWNET |
                               CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUSER |
                               CLONE_NEWUTS;
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(clone), {has_none_of(0, new_spaces)});
    rules.add(SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), {});
}

// For a process about itself.
void allow_process(call_rules &rules)
{
    rules.add(SCMP_ACT_ALLOW, process_calls);
    rules.add(SCMP_ACT_ALLOW, time_calls);
    if (is_sanitized) return rules.add(SCMP_ACT_ALLOW, sanitizer_calls);
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(prlimit64), {equals(0, 0)});
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(tgkill),
              {equals(0, static_cast<u64>(getpid()))});
}

// Questions about terminals and block devices; no keys typed into a terminal.
void allow_questions(call_rules &rules)
{
    for (const u64 request : {u64{TCGETS}, u64{TIOCGWINSZ}, u64{FIONREAD},
                              u64{BLKGETSIZE64}, u64{BLKSSZGET}, u64{BLKPBSZGET}})
        rules.add(SCMP_ACT_ALLOW, SCMP_SYS(ioctl), {equals(1, request)});
}

void allow_files(call_rules &rules, const call_needs &needs)
{
    rules.add(SCMP_ACT_ALLOW, open_file_calls);
    rules.add(SCMP_ACT_ALLOW, status_calls);
    if (needs.opens_files || needs.fills_folders)
        rules.add(SCMP_ACT_ALLOW, folder_calls);
    if (needs.opens_files && !needs.fills_folders && !is_sanitized)
        rules.add(SCMP_ACT_ALLOW, SCMP_SYS(openat),
                  {has_none_of(2, O_ACCMODE | O_CREAT | O_TRUNC)});
    if (needs.publishes || needs.fills_folders)
        rules.add(SCMP_ACT_ALLOW, publishing_calls);
    if (!needs.fills_folders) return;
    rules.add(SCMP_ACT_ALLOW, filling_calls);
    // The times of a file that is open, never those of a name.
    rules.add(SCMP_ACT_ALLOW, SCMP_SYS(utimensat), {equals(1, 0)});
}

void end_attacks(call_rules &rules)
{
    rules.add(SCMP_ACT_KILL_PROCESS, attacking_calls);
    if (!is_sanitized) rules.add(SCMP_ACT_KILL_PROCESS, SCMP_SYS(ptrace), {});
}

} // namespace

bool has_call_filter()
{
    u32 action = SECCOMP_RET_KILL_PROCESS;
    return syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
}

bool allow_calls(const call_needs &needs)
{
    call_rules rules(SCMP_ACT_ERRNO(EPERM));
    allow_memory(rules);
    allow_process(rules);
    allow_threads(rules);
    allow_questions(rules);
    allow_files(rules, needs);
    rules.add(SCMP_ACT_ALLOW, confining_calls);
    if (needs.uses_sockets) rules.add(SCMP_ACT_ALLOW, socket_calls);
    rules.add(SCMP_ACT_ALLOW, reader_calls);
    end_attacks(rules);
    return rules.apply();
}

bool allow_writing_only(int descriptor)
{
    call_rules rules(SCMP_ACT_ERRNO(EPERM));
    allow_memory(rules);
    allow_process(rules);
    if (is_sanitized)
        rules.add(SCMP_ACT_ALLOW, sanitizer_probes);
    else
        rules.add(SCMP_ACT_ALLOW, SCMP_SYS(write),
                  {equals(0, static_cast<u64>(descriptor))});
    end_attacks(rules);
    return rules.apply();
}

bool refuse_attacks(socket_use sockets)
{
    constexpr u32 refused = SCMP_ACT_ERRNO(EPERM);
    call_rules rules(SCMP_ACT_ALLOW);
    for (const int call : attacking_calls)
        if (call != SCMP_SYS(execve)) rules.add(refused, call, {});
    if (!is_sanitized) rules.add(refused, SCMP_SYS(ptrace), {});
    if (sockets == socket_use::local) {
        rules.add(refused, SCMP_SYS(socket), {{0, SCMP_CMP_NE, AF_UNIX, 0}});
    } else {
        rules.add(refused, SCMP_SYS(socket), {});
        rules.add(refused, SCMP_SYS(connect), {});
    }
    return rules.apply();
}

#else

bool has_call_filter()
{
    return false;
}

bool allow_calls(const call_needs & /*needs*/)
{
    return false;
}

bool allow_writing_only(int /*descriptor*/)
{
    return false;
}

bool refuse_attacks(socket_use /*sockets*/)
{
    return false;
}

#endif

} // namespace hv

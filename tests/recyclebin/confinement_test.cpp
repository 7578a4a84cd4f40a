#include "confinement/call_filter.h"
#include "confinement/file_rules.h"
#include "recyclebin/confinement.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace hv;

// What an attempt comes to: 0, a number of `errno`, or `ended` with the process.
constexpr int ended = 1000;

int error_of(long result)
{
    return result < 0 ? errno : 0;
}

int status_of(pid_t process)
{
    int status = 0;
    if (process < 0 || waitpid(process, &status, 0) < 0) return -1;
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGSYS ? ended : -1;
    return WEXITSTATUS(status);
}

int in_child(const std::function<int()> &attempt)
{
    const pid_t child = fork();
    if (child == 0) _exit(attempt());
    return status_of(child);
}

int open_for(int flags, const std::string &path)
{
    return error_of(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

enum class needed { landlock, reading_rules, seccomp };

// Sanitizers may read everything.
#ifdef __SANITIZE_ADDRESS__
constexpr bool has_reading_rules = false;
#else
constexpr bool has_reading_rules = true;
#endif

struct attempt_row {
    const char *name;
    std::function<int()> attempt;
    int expected;
    needed by = needed::seccomp; // what refuses it
};

// Each attempt is made in a process of its own, which is confined first.
void expect_attempts(const run_needs &needs, const std::vector<attempt_row> &rows)
{
    for (const attempt_row &row : rows) {
        const bool has_rules = file_rules::version() > 0;
        const bool has_means = row.by == needed::landlock ? has_rules
                               : row.by == needed::reading_rules
                                   ? has_rules && has_reading_rules
                                   : has_call_filter();
        if (row.expected != 0 && !has_means) continue;
        const auto confined = [&] {
            confine(needs);
            return row.attempt();
        };
        EXPECT_EQ(in_child(confined), row.expected) << row.name;
    }
}

class Confinement : public testing::Test {
protected:
    ~Confinement() override { close(file); }

    test_support::temp_dir dir;
    std::string image = dir.write_file("evidence/disk.E01", "bytes");
    std::string part = dir.write_file("out/rows.csv.part", "rows");
    std::string rows = dir / "out/rows.csv";
    int file = open(part.c_str(), O_RDWR | O_CLOEXEC);
};

TEST_F(Confinement, LeavesAListItsImageAndItsOutput)
{
    char *const arguments[] = {const_cast<char *>("true"), nullptr};
    const run_needs needs = {.read_paths = {image}, .publish_folders = {dir / "out"}};
    expect_attempts(
        needs,
        {{"Read", [&] { return open_for(O_RDONLY, image); }, 0},
         {"Write", [&] { return error_of(write(file, "x", 1)); }, 0},
         {"Publish",
          [&] {
              unlink(rows.c_str());
              return error_of(link(part.c_str(), rows.c_str()));
          },
          0},
         {"Replace", [&] { return error_of(rename(rows.c_str(), part.c_str())); }, 0},
         {"Thread", [] { return std::thread([] {}).join(), 0; }, 0},
         {"Process", [] { return in_child([] { return 0; }); }, 0},
         {"ReadElsewhere", [] { return open_for(O_RDONLY, "/etc/passwd"); }, EACCES,
          needed::reading_rules},
         {"ReadElsewhereInAProcess",
          [] { return in_child([] { return open_for(O_RDONLY, "/etc/passwd"); }); },
          EACCES, needed::reading_rules},
         {"RemoveEvidence", [&] { return error_of(unlink(image.c_str())); }, EACCES,
          needed::landlock},
         {"MoveEvidence", [&] { return error_of(rename(image.c_str(), rows.c_str())); },
          EACCES, needed::landlock},
         {"SignalOthers", [] { return error_of(kill(getppid(), 0)); }, EPERM,
          needed::seccomp},
         {"ChangeMode", [&] { return error_of(chmod(image.c_str(), 0)); }, EPERM},
         {"ChangeTimes",
          [&] { return error_of(utimensat(AT_FDCWD, image.c_str(), nullptr, 0)); },
          EPERM},
         {"MakeFolder", [&] { return error_of(mkdir((dir / "out/x").c_str(), 0700)); },
          EPERM},
         {"Socket", [] { return error_of(socket(AF_INET, SOCK_STREAM, 0)); }, EPERM},
         {"ExecutableMemory",
          [] {
              const void *memory = mmap(nullptr, 4096, PROT_READ | PROT_EXEC,
                                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              return memory == MAP_FAILED ? errno : 0;
          },
          EPERM},
         {"Execute", [&] { return error_of(execv("/bin/true", arguments)); }, ended},
         {"NewSpaces", [] { return error_of(unshare(CLONE_NEWUSER)); }, ended}});
    EXPECT_EQ(test_support::file_bytes(image), "bytes");
}

#ifndef __SANITIZE_ADDRESS__ // whose search for leaks needs these calls
TEST_F(Confinement, LeavesAPlainImageNothingToOpen)
{
    expect_attempts(
        {},
        {{"OpenForWriting", [&] { return open_for(O_WRONLY, image); }, EPERM},
         {"Read", [&] { return open_for(O_RDONLY, image); }, EPERM},
         {"Remove", [&] { return error_of(unlink(image.c_str())); }, EPERM},
         {"Trace", [] { return error_of(ptrace(PTRACE_TRACEME, 0, 0, 0)); }, ended}});
}
#endif

TEST_F(Confinement, LeavesAnExportItsFolder)
{
    constexpr int make = O_WRONLY | O_CREAT | O_EXCL;
    const std::string made = dir / "out/made";
    expect_attempts(
        {.export_folder = dir / "out"},
        {{"MakeFolder", [&] { return error_of(mkdir(made.c_str(), 0700)); }, 0},
         {"MakeFile", [&] { return open_for(make, made + "/x"); }, 0},
         {"GiveAName",
          [&] {
              return error_of(rename((made + "/x").c_str(), (made + "/y").c_str()));
          },
          0},
         {"SetTimes", [&] { return error_of(futimens(file, nullptr)); }, 0},
         {"SetSize", [&] { return error_of(ftruncate(file, 9)); }, 0},
         {"WriteElsewhere", [&] { return open_for(O_WRONLY, image); }, EACCES,
          needed::landlock},
         {"MakeElsewhere", [&] { return open_for(make, dir / "evidence/x"); }, EACCES,
          needed::landlock}});
}

// A run whose output nobody reads waits, and what the system says of it can be read.
TEST_F(Confinement, HoldsForARun)
{
    if (confinement_text() == "none") GTEST_SKIP() << "nothing to confine by";
    const std::string size = "1000000"; // more than a pipe takes
    const std::string medium = dir.write_file("disk.raw", std::string(1000000, 'x'));
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    const pid_t run = fork();
    if (run == 0) {
        dup2(ends[1], 1);
        close(2); // it says that its output broke
        close(ends[0]);
        close(ends[1]);
        execl(RECYCLEBIN_BINARY, "recyclebin", "bytes", medium.c_str(), "0",
              size.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    char first = 0;
    EXPECT_EQ(read(ends[0], &first, 1), 1);
    const std::string status =
        test_support::file_bytes("/proc/" + std::to_string(run) + "/status");
    close(ends[0]);
    waitpid(run, nullptr, 0);
    EXPECT_NE(status.find("NoNewPrivs:\t1\n"), std::string::npos) << status;
    const std::string filtered = has_call_filter() ? "Seccomp_filters:\t2\n" : "";
    EXPECT_NE(status.find(filtered), std::string::npos) << status;
}

TEST_F(Confinement, LeavesAReaderOneDescriptorToWriteTo)
{
    if (!has_call_filter()) GTEST_SKIP() << "no seccomp";
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    const auto reader = [&](int to) {
        return in_child([&] {
            allow_writing_only(ends[1]);
            return error_of(write(to, "x", 1));
        });
    };
    EXPECT_EQ(reader(ends[1]), 0);
#ifndef __SANITIZE_ADDRESS__ // who write objects to pipes of their own
    EXPECT_EQ(reader(file), EPERM);
#endif
    close(ends[0]);
    close(ends[1]);
}

} // namespace

#pragma once

#include "support/temp_dir.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace test_support {

/// The pieces of a line between `delimiter`s, empty ones included.
inline std::vector<std::string> split_at(const std::string &line, char delimiter)
{
    std::vector<std::string> pieces(1);
    for (const char c : line)
        if (c == delimiter)
            pieces.emplace_back();
        else
            pieces.back() += c;
    return pieces;
}

struct run_result {
    int status = -1; ///< exit status, or 1000 and the signal that ended it
    std::string out;
    std::string err;

    /// The lines of the output, without the first `skipped` ones.
    std::vector<std::string> lines(std::ptrdiff_t skipped = 0) const
    {
        std::vector<std::string> all = split_at(out, '\n');
        if (all.back().empty()) all.pop_back();
        all.erase(all.begin(), all.begin() + std::min(skipped, std::ssize(all)));
        return all;
    }

    /// The output after the three header lines.
    std::vector<std::string> body() const { return lines(3); }

    /// The table rows: the output after the header and the column line.
    std::vector<std::string> rows() const { return lines(4); }
};

/// The streams of a run, where they aren't files of the test, and what the system lets
/// it have.
struct run_streams {
    std::string in = {};       ///< bytes on standard input
    const char *out = nullptr; ///< a path to open for standard output
    bool out_closed = false;   ///< start with standard output closed
    std::vector<std::pair<int, rlim_t>> limits = {}; ///< by RLIMIT_ numbers
};

/// A program that runs with `args`. A run of more than a minute is killed by an alarm
/// and shows as such.
class started_program {
public:
    started_program(const char *binary, const std::vector<std::string> &args,
                    const run_streams &streams = {})
    {
        const std::string in = m_dir.write_file("in", streams.in);
        const std::string out = streams.out != nullptr ? streams.out : m_dir / "out";
        std::fflush(stdout); // else the child would write it as well
        m_child = fork();
        if (m_child != 0) return;
        std::vector<char *> argv = {const_cast<char *>(binary)};
        for (const std::string &arg : args)
            argv.push_back(const_cast<char *>(arg.c_str()));
        argv.push_back(nullptr);
        if (!std::freopen(in.c_str(), "r", stdin) ||
            !std::freopen(out.c_str(), "w", stdout) ||
            !std::freopen((m_dir / "err").c_str(), "w", stderr))
            _exit(126);
        if (streams.out_closed) close(1);
        alarm(60);
        for (const auto &[what, most] : streams.limits) {
            const rlimit limit = {most, most};
            setrlimit(static_cast<__rlimit_resource>(what), &limit);
        }
        execv(binary, argv.data());
        _exit(127);
    }
    ~started_program()
    {
        if (m_child <= 0) return;
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
    started_program(const started_program &) = delete;
    started_program &operator=(const started_program &) = delete;

    /// Who takes a signal: a handler of the program, or the system, which ends it.
    enum class taker { program, system };
    /// Sends a signal, as soon as it is this one's to take.
    void send(int signal, taker by) const
    {
        constexpr int max_tries = 2000;
        for (int i = 0; i < max_tries && taker_of(signal) != by; ++i) usleep(5000);
        kill(m_child, signal);
    }

    /// Waits for its end; called once.
    run_result wait()
    {
        int status = 0;
        waitpid(m_child, &status, 0);
        m_child = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
                file_bytes(m_dir / "out"), file_bytes(m_dir / "err")};
    }

private:
    taker taker_of(int signal) const
    {
        std::ifstream status("/proc/" + std::to_string(m_child) + "/status");
        std::string name;
        unsigned long long caught = 0;
        while (status >> name)
            if (name == "SigCgt:") status >> std::hex >> caught;
        return (caught >> (signal - 1) & 1U) != 0 ? taker::program : taker::system;
    }

    temp_dir m_dir;
    pid_t m_child = -1;
};

/// Runs a program with `args` and waits for it.
inline run_result run_program(const char *binary, const std::vector<std::string> &args,
                              const run_streams &streams = {})
{
    return started_program(binary, args, streams).wait();
}

} // namespace test_support

#pragma once

#include "support/temp_dir.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
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

    std::vector<std::string> lines() const
    {
        std::vector<std::string> result;
        for (std::size_t at = 0; at < out.size();) {
            const std::size_t end = std::min(out.find('\n', at), out.size());
            result.push_back(out.substr(at, end - at));
            at = end + 1;
        }
        return result;
    }

    /// The output after the three header lines.
    std::vector<std::string> body() const
    {
        std::vector<std::string> all = lines();
        all.erase(all.begin(),
                  all.begin() + std::min<std::ptrdiff_t>(3, std::ssize(all)));
        return all;
    }

    /// The table rows: the output after the header and the column line.
    std::vector<std::string> rows() const
    {
        std::vector<std::string> all = body();
        if (!all.empty()) all.erase(all.begin());
        return all;
    }
};

/// The streams of a run, where they aren't files of the test.
struct run_streams {
    std::string in = {};       ///< bytes on standard input
    const char *out = nullptr; ///< a path to open for standard output
    bool out_closed = false;   ///< start with standard output closed
};

/// Runs the program with `args` and waits for it. A run of more than a minute is killed
/// by an alarm and shows as such.
inline run_result run_veskit(const std::vector<std::string> &args,
                             const run_streams &streams = {})
{
    const temp_dir dir;
    const std::string in = dir.write_file("in", streams.in);
    const std::string out = streams.out != nullptr ? streams.out : dir / "out";
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char *> argv = {const_cast<char *>(VESKIT_BINARY)};
        for (const std::string &arg : args)
            argv.push_back(const_cast<char *>(arg.c_str()));
        argv.push_back(nullptr);
        const auto redirect = [](const std::string &path, int flags, int descriptor) {
            const int opened = open(path.c_str(), flags, 0600);
            if (opened < 0 || dup2(opened, descriptor) < 0) _exit(126);
            close(opened);
        };
        redirect(in, O_RDONLY, 0);
        redirect(out, O_WRONLY | O_CREAT, 1);
        redirect(dir / "err", O_WRONLY | O_CREAT, 2);
        if (streams.out_closed) close(1);
        alarm(60);
        execv(VESKIT_BINARY, argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    run_result result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    if (streams.out == nullptr) result.out = file_bytes(out);
    result.err = file_bytes(dir / "err");
    return result;
}

/// The rows of a run that has nothing to report but rows, with "|" between cells and
/// decimal numbers.
inline std::vector<std::string> quiet_rows(std::vector<std::string> args,
                                           const run_streams &streams = {})
{
    args.insert(args.end(), {"-quiet", "-no_whitespace", "-base10"});
    const run_result run = run_veskit(args, streams);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    return run.rows();
}

/// "deleted path|size|entry" of a row from a volume: the entry of the data file or,
/// where it is gone, of the metadata.
inline std::string short_row(const std::string &row)
{
    const std::vector<std::string> cells = split_at(row, '|');
    const std::size_t at = cells.at(9).find("\"inode\":\"");
    const std::string entry =
        at == std::string::npos ? "?" : split_at(cells[9].substr(at + 9), '"')[0];
    return cells.at(7) + "|" + cells.at(5) + "|" + entry;
}

} // namespace test_support

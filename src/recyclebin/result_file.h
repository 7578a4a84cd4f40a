#pragma once

#include "base/hv_fileio.h"

#include <memory>
#include <string>

namespace hv {

/// Where results go: standard output, or a new file, which has its name from `finish`
/// on; until then it is called ".part" after that. A file that isn't finished is
/// removed.
class result_file {
public:
    result_file() = default;
    ~result_file();
    result_file(const result_file &) = delete;
    result_file &operator=(const result_file &) = delete;

    /// Opens a path, or standard output if that is empty. Never one of the files that
    /// are read. False, with `problem` in words, if it can't be.
    bool open(std::string &problem, const std::string &path, bool replace,
              const std::vector<std::string> &sources);
    std::ostream &stream() { return *m_stream; }
    /// Writes what is left. False, with `problem` in words, if a byte was refused.
    bool finish(std::string &problem);

private:
    int publish() const;

    std::string m_path;    // empty for standard output
    std::string m_written; // the file that is written, and becomes `m_path`
    bool m_replaces = false;
    int m_descriptor = -1;
    std::unique_ptr<uni::stdout_output> m_stream;
};

} // namespace hv

#pragma once

#include "support/run_program.h"

namespace test_support {

inline run_result run_veskit(const std::vector<std::string> &args,
                             const run_streams &streams = {})
{
    return run_program(VESKIT_BINARY, args, streams);
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

#pragma once

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

/// Real data from public sets, which doesn't come along: VESKIT_FIXTURES names the
/// folder that holds it.
namespace test_support {

/// Ends the running test as skipped, however deep it is in calls.
[[noreturn]] inline void skip_test(const std::string &reason)
{
    [&] { GTEST_SKIP() << reason; }();
    // Of this exception, the test framework knows that its reason was reported already.
    throw testing::AssertionException(
        {testing::TestPartResult::kSkip, __FILE__, __LINE__, reason.c_str()});
}

/// The shell command that unpacks a file as a sparse one, or "" if the file isn't
/// packed. A file whose name starts with "$" was found like that in a bin:
/// "$II3DF3L.zip" is no archive.
inline std::string unpack_command(const std::filesystem::path &packed,
                                  const std::string &raw)
{
    const std::string file = "'" + packed.string() + "'";
    if (packed.filename().string().starts_with('$')) return "";
    if (packed.extension() == ".tgz")
        return "tar -xzPf " + file + " --transform 's,.*," + raw + ",'";
    for (const auto &[suffix, tool] : {std::pair{".gz", "gzip -dc "},
                                       {".bz2", "bzip2 -dc "},
                                       {".xz", "xz -dc "},
                                       {".zip", "unzip -p "}})
        if (packed.extension() == suffix)
            return tool + file + " | cp --sparse=always /dev/stdin '" + raw + "'";
    return "";
}

/// The path of a fixture, by its name below the folder. A packed one (.gz, .bz2, .xz,
/// and .tgz or .zip of one file) is unpacked once for the whole program, unless it lies
/// unpacked beside the packed file: tests must not change it. Skips the test where
/// there are no fixtures, or where the tool that unpacks them is missing.
inline std::string fixture_or_skip(const std::string &name)
{
    const char *folder = std::getenv("VESKIT_FIXTURES");
    if (folder == nullptr) skip_test("VESKIT_FIXTURES names no folder");
    const std::filesystem::path file = std::filesystem::path(folder) / name;
    static const temp_dir unpacked;
    std::string raw = unpacked / file.stem();
    const std::string command = unpack_command(file, raw);
    if (command.empty()) return file;
    const std::filesystem::path beside = file.parent_path() / file.stem();
    if (std::filesystem::is_regular_file(beside)) return beside;

    if (!std::filesystem::exists(raw) &&
        std::system((command + " && test -s '" + raw + "'").c_str()) != 0) {
        std::filesystem::remove(raw);
        skip_test("can't be unpacked: " + command);
    }
    return raw;
}

} // namespace test_support

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test_support {

/// All bytes of a file.
inline std::string file_bytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A directory of the test's own, removed with all it holds.
struct temp_dir {
    temp_dir() { EXPECT_NE(mkdtemp(path.data()), nullptr) << path; }
    ~temp_dir() { std::filesystem::remove_all(path); }
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;

    std::string operator/(const std::string &name) const { return path + "/" + name; }

    /// Writes a file, with the directories it needs, and returns its path.
    std::string write_file(const std::string &name, std::string_view bytes) const
    {
        const std::filesystem::path file = *this / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        return file;
    }

    std::string path = testing::TempDir() + "veskit_XXXXXX";
};

} // namespace test_support

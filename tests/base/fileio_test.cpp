#include "base/hv_fileio.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace uni;

static constexpr hv::u64 most = ~hv::u64{0};

static std::string read_text(const fileio &file, hv::u64 length, hv::u64 offset)
{
    std::vector<hv::u8> bytes;
    const bool good = file.read_vector(bytes, length, offset);
    return good ? std::string(bytes.begin(), bytes.end()) : "false";
}

TEST(File, IsReadWithinItsEndAndIsNoPipe)
{
    const test_support::temp_dir dir;
    fileio file;
    ASSERT_TRUE(
        file.open(dir.write_file("ten", "0123456789") + "/\\/", open_mode::read));
    EXPECT_EQ(read_text(file, 10, 9), "9");
    EXPECT_EQ(read_text(file, most, 8), "89");
    EXPECT_EQ(read_text(file, 0, 0), "");
    EXPECT_EQ(read_text(file, 0, 10), "false");
    EXPECT_EQ(read_text(file, most, most), "false");
    // What can't be measured is taken as 256 KiB, except for a path below /proc.
    ASSERT_EQ(symlink("/proc/self/status", (dir / "status").c_str()), 0);
    ASSERT_TRUE(file.open("/proc/self/status", open_mode::read));
    EXPECT_EQ(file.get_size(), 0u);
    ASSERT_TRUE(file.open(dir / "status", open_mode::read));
    EXPECT_EQ(file.get_size(), 262'144u);
    EXPECT_EQ(read_text(file, most, 0).substr(0, 5), "Name:");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const char *name : {"pipe", "missing"})
        for (const open_mode mode : {open_mode::read, open_mode::write})
            EXPECT_FALSE(file.open(dir / name, mode)) << name;
    std::vector<hv::u8> bytes;
    EXPECT_FALSE(fileio::read_head(bytes, dir.path, 100)) << "a directory";
}

TEST(ResultStream, KeepsEveryByteOrTellsOfAFullDisk)
{
    const test_support::temp_dir dir;
    std::string text;
    while (text.size() < 600'000) text += std::to_string(text.size());
    fileio file;
    ASSERT_TRUE(file.open(dir.write_file("out", "old"), open_mode::write_truncate));
    for (std::size_t i = 0; i < 300'000; ++i) file.get_stream().put(text[i]);
    EXPECT_EQ(file.get_size(), 262'144u) << "one whole put area";
    file.get_stream() << text.substr(300'000);
    EXPECT_EQ(file.close(), 0);
    ASSERT_TRUE(file.open(dir / "out", open_mode::write)) << "which doesn't truncate";
    EXPECT_EQ(file.append("+", 1), 1);
    EXPECT_TRUE(read_text(file, most, 0) == text + "+") << "all of 600 KB";
    ASSERT_TRUE(file.open("/dev/full", open_mode::write_truncate));
    file.get_stream() << text;
    EXPECT_EQ(file.get_stream().finish(), ENOSPC);
    EXPECT_EQ(file.close(), ENOSPC);
}

TEST(LineReader, CutsLongLinesAndLineEnds)
{
    const test_support::temp_dir dir;
    const std::string full(4095, 'a');
    const std::string list = " \r\n\n" + full + "\n" + full + "bc\r\r\n";
    std::FILE *input = std::fopen(dir.write_file("list", list).c_str(), "r");
    stdin_stream stream(input);
    std::string line;
    // A line of 4095 bytes fills the buffer, so its end comes as a line of its own.
    for (const char *wanted : {" ", "", full.c_str(), "", full.c_str(), "bc"}) {
        EXPECT_TRUE(stream.read_line(line, true));
        EXPECT_EQ(line, wanted);
    }
    EXPECT_FALSE(stream.read_line(line, true));
    std::fclose(input);
}

#include "disk/hv_medium_reader.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

using namespace hv;

namespace {

std::string bytes_of(byte_view view)
{
    return {view.bytes().begin(), view.bytes().end()};
}

std::string sample(std::size_t count)
{
    std::string text(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        text[i] = static_cast<char>(i * 7 + i / 251);
    return text;
}

TEST(MediumReader, ProvidesTheBytesOfTheMedium)
{
    const test_support::temp_dir dir;
    const std::string medium = sample(5'000'003);
    const RAW_DISK_IO disk(dir.write_file("medium", medium));
    medium_reader reader(disk);
    const u64 size = medium.size();
    // Pieces across windows of either kind, back and forth.
    const std::array<u64, 3> views[] = {{0, 512, 512},       {512, 512, 512},
                                        {4097, 70000, size}, {2'097'000, 4096, size},
                                        {100, 3'000'000, 1}, {size - 5, 5, size},
                                        {0, size, 0}};
    for (const auto &[offset, length, in_all] : views)
        EXPECT_EQ(bytes_of(reader.view(offset, static_cast<u32>(length), in_all)),
                  medium.substr(offset, length))
            << offset;
    for (const auto &[offset, length] : std::vector<std::pair<u64, u32>>{
             {size, 1}, {size - 5, 6}, {~u64{0}, 2}, {7, 0}})
        EXPECT_TRUE(reader.view(offset, length, size).empty()) << offset;
}

// A medium that fails under a mapping must not end the process: the scan learns of it
// and goes on with plain reads.
TEST(MediumReader, SurvivesAMediumThatShrinks)
{
    const test_support::temp_dir dir;
    const std::string path = dir.write_file("medium", sample(1 << 20));
    const RAW_DISK_IO disk(path);
    medium_reader reader(disk);
    EXPECT_EQ(reader.view(0, 4096, 1 << 20).size(), 4096u);
    std::filesystem::resize_file(path, 20000);
    const std::string left = sample(20000);
    EXPECT_EQ(bytes_of(reader.view(4096, 12000, 1 << 20)), left.substr(4096, 12000));
    EXPECT_TRUE(reader.view(16384, 16384, 1 << 20).empty());
    EXPECT_EQ(bytes_of(reader.view(8192, 4096, 4096)), left.substr(8192, 4096));
}

TEST(MediumReader, KnowsTheHolesOfASparseFile)
{
    const test_support::temp_dir dir;
    const std::string path = dir / "sparse";
    constexpr u64 size = u64{3} << 30;
    const int descriptor = open(path.c_str(), O_CREAT | O_RDWR, 0600);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(ftruncate(descriptor, size), 0);
    ASSERT_EQ(pwrite(descriptor, "x", 1, 1 << 20), 1);
    const bool has_holes = lseek(descriptor, 0, SEEK_DATA) > 0;
    close(descriptor);
    if (!has_holes) GTEST_SKIP() << "no holes on this file system";
    const RAW_DISK_IO disk(path);
    medium_reader reader(disk);
    EXPECT_LE(disk.get_stored_size(), u64{1} << 20) << "of three GiB, one page";
    EXPECT_EQ(reader.next_data(0), 1u << 20);
    EXPECT_EQ(reader.next_data((1 << 20) + 1), (1u << 20) + 1);
    EXPECT_EQ(reader.next_data(2 << 20), size);
    EXPECT_EQ(reader.next_data(3 << 20), size); // asked again, it is still no data
}

} // namespace

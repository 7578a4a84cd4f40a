#include "disk/hv_file_source.h"
#include "disk/hv_patched_source.h"
#include "disk/hv_raw_disk_io.h"
#include "disk/hv_watched_source.h"

#include "samples/bytes.h"
#include "support/memory_source.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <tuple>

namespace hv {
namespace {

using namespace test_support;

std::string read_text(const byte_source &source, u64 offset, std::size_t length)
{
    std::vector<u8> bytes(length, '#');
    bytes.resize(source.read(offset, bytes));
    return {bytes.begin(), bytes.end()};
}

TEST(FileSource, ReadsWhatTheFileHas)
{
    const temp_dir dir;
    const std::string path = dir.write_file("image", "0123456789");
    const file_source source(path);
    EXPECT_EQ(source.failure(), open_failure::none);
    EXPECT_EQ(source.size(), 10u);
    EXPECT_EQ(read_text(source, 7, 5), "789");
    EXPECT_EQ(read_text(source, 10, 1), "");
    EXPECT_EQ(read_text(source, ~u64{0}, 1), "");
    EXPECT_EQ(source.unreadable(), 0u);
    std::filesystem::resize_file(path, 4);
    for (int again = 0; again < 2; ++again)
        EXPECT_EQ(read_text(source, 2, 4), std::string("23\0\0", 4));
    EXPECT_EQ(source.unreadable(), 2u) << "each byte counts once";
}

// A file that shrinks under a window must not end the process: what is lost is zeros,
// and counts once, whether that shows in the window or only while its bytes are in use.
TEST(FileSource, ShowsAFileThatShrinks)
{
    const temp_dir dir;
    const std::string path = dir.write_file("image", std::string(100'000, 'x'));
    const file_source source(path);
    source_window window(source);
    EXPECT_EQ(source.view(90'000, 10'001).size(), 0u);
    EXPECT_EQ(window.at(100'000, 1).size(), 0u);
    const std::span<const u8> in_use = window.at(5000, ~u64{0});
    ASSERT_EQ(in_use.size(), 95'000u);
    std::filesystem::resize_file(path, 20'480);
    EXPECT_EQ(in_use[20'479 - 5000], 'x');
    EXPECT_EQ(in_use[20'480 - 5000], 0);
    EXPECT_EQ(source.unreadable(), 79'520u);
    EXPECT_TRUE(source.view(5000, 95'000).empty());
    EXPECT_EQ(std::ranges::count(window.at(5000, 95'000), 'x'), 15'480);
    EXPECT_EQ(source.unreadable(), 79'520u);
}

TEST(FileSource, PassesOverHoles)
{
    const temp_dir dir;
    const std::string path = dir.write_file("image", "");
    std::filesystem::resize_file(path, 1 << 20);
    const file_source hole(path);
    EXPECT_EQ(hole.next_data(0), hole.size());
    EXPECT_EQ(hole.next_data(~u64{0}), hole.size());

    patched_source patched(std::make_shared<file_source>(path));
    ASSERT_TRUE(patched.replace(5000, {1, 2, 3}));
    for (const auto &[offset, next] :
         {std::pair{0u, 5000u}, {5002u, 5002u}, {5003u, 1u << 20}})
        EXPECT_EQ(patched.next_data(offset), next) << offset;
    EXPECT_EQ(patched.next_hole(5001), 5003u);
    EXPECT_EQ(patched.next_hole(1 << 20), 1u << 20);

    const std::string sparse = dir.write_file("sparse", std::string(8192, 'x'));
    std::filesystem::resize_file(sparse, 1 << 20);
    const file_source source(sparse);
    EXPECT_EQ(source.next_hole(100), 8192u);
}

TEST(FileSource, SaysWhyItCannotBeOpened)
{
    const temp_dir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const auto &[path, failure] : {std::pair{dir / "none", open_failure::missing},
                                        {dir / "fifo", open_failure::unsupported},
                                        {dir.path, open_failure::unsupported}}) {
        const file_source source(path);
        EXPECT_EQ(source.failure(), failure) << path;
        EXPECT_EQ(source.size(), 0u) << path;
        EXPECT_EQ(read_text(source, 0, 4), "") << path;
    }
}

// A medium of 4096 bytes 'x' whose reads stop at a bad sector, and fail in it.
i64 read_up_to_bad_sectors(u64 offset, std::span<u8> out)
{
    const auto is_bad = [](u64 at) { return at / 512 == 1 || at / 512 == 2; };
    std::size_t count = 0;
    while (count < out.size() && !is_bad(offset + count)) out[count++] = 'x';
    return count == 0 ? -1 : static_cast<i64>(count);
}

// The same of a system that refuses a request whole.
i64 refuse_bad_sectors(u64 offset, std::span<u8> out)
{
    const i64 count = read_up_to_bad_sectors(offset, out);
    return count == std::ssize(out) ? count : -1;
}

TEST(BadSectors, CostOnlyThemselves)
{
    // Offset, length, the bytes at the ends that are read, and the bad ones so far.
    const std::tuple<u64, u64, u64, u64, u64> reads[] = {
        {1530, 20, 0, 14, 6},         // the end of the second one
        {500, 24, 12, 0, 18},         // the begin of the first one
        {100, 412, 412, 0, 18},       // none
        {0, 100000, 512, 98464, 1024} // both
    };
    for (const auto reader : {read_up_to_bad_sectors, refuse_bad_sectors}) {
        bad_sectors bad;
        for (const auto &[offset, length, before, after, count] : reads) {
            std::vector<u8> bytes(length, '#');
            bad.read(offset, bytes, reader);
            std::vector<u8> expected(length, 0);
            std::fill_n(expected.begin(), before, 'x');
            std::fill_n(expected.rbegin(), after, 'x');
            EXPECT_EQ(bytes, expected) << offset;
            EXPECT_EQ(bad.bytes(), count) << offset;
        }
    }
}

TEST(WatchedSource, EndsBetweenTwoPieces)
{
    u64 done = 0;
    const watched_source source(
        std::make_shared<memory_source>(std::vector<u8>(1 << 20, 'x')),
        [&](u64 read) { return (done += read) < 300'000; });
    std::vector<u8> bytes(1 << 20, '#');
    EXPECT_EQ(source.read(0, bytes), u64{512} << 10);
    EXPECT_EQ(bytes.at((512 << 10) - 1), 'x');
    EXPECT_EQ(bytes.at(512 << 10), 0) << "and nothing that was in the buffer before";
    EXPECT_EQ(source.read(0, bytes), 0u);
    EXPECT_TRUE(source.is_ended());
    EXPECT_EQ(source.unreadable_in(10, 20).size(), 1u);
}

TEST(PatchedSource, NamesWhatItsBaseCantRead)
{
    const temp_dir dir;
    const auto file =
        std::make_shared<file_source>(dir.write_file("file", std::string(4096, 'x')));
    std::filesystem::resize_file(dir / "file", 1024);
    patched_source source(file);
    EXPECT_TRUE(source.replace(1024, 1024, 0));
    EXPECT_TRUE(source.replace(3000, std::vector<u8>(96)));
    EXPECT_TRUE(source.replace(0, 512, 2560));
    read_all(source);
    std::vector<std::pair<u64, u64>> unread;
    for (const auto &bad : source.unreadable_in(0, 9999))
        unread.emplace_back(bad.offset, bad.length);
    EXPECT_EQ(unread,
              (std::vector<std::pair<u64, u64>>{{0, 512}, {2048, 952}, {3096, 1000}}));
}

TEST(PatchedSource, ShowsTheCopiesAndTheirPlaces)
{
    patched_source source(
        std::make_shared<memory_source>(bytes_of("aaaabbbbccccdddd")));
    EXPECT_TRUE(source.replace(0, 4, 12));
    EXPECT_TRUE(source.replace(6, std::vector<u8>{'1', '2', '3', '4'}));
    EXPECT_TRUE(source.replace(8, 1, 0)); // of the base, not of what replaces it
    EXPECT_FALSE(source.replace(13, 4, 0));
    EXPECT_FALSE(source.replace(0, 4, 13));
    EXPECT_FALSE(source.replace(16, std::vector<u8>{'1'}));
    EXPECT_FALSE(source.replace(1, ~u64{0}, 1));
    for (const std::size_t piece : {1u, 3u, 16u}) {
        const std::vector<u8> bytes = read_all(source, piece);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "ddddbb12a4ccdddd") << piece;
    }
    EXPECT_EQ(read_text(source, 15, 9), "d");
    EXPECT_EQ(read_text(source, 16, 1), "");
    // Only bytes of one piece of the base can be shown as they are.
    const temp_dir dir;
    patched_source shown(
        std::make_shared<file_source>(dir.write_file("image", "aaaabbbbcccc")));
    ASSERT_TRUE(shown.replace(4, 4, 0));
    for (const auto &[offset, length, size] : {std::tuple{0u, 4u, 4u},
                                               {3u, 2u, 0u},
                                               {5u, 1u, 0u},
                                               {8u, 4u, 4u},
                                               {8u, 5u, 0u}})
        EXPECT_EQ(shown.view(offset, length).size(), size) << offset;
    // Offset, place and length, and whether it is on the medium.
    const std::tuple<u64, u64, u64, bool> places[] = {
        {1, 13, 3, true}, {4, 4, 2, true},  {6, 0, 2, false},
        {8, 0, 1, true},  {9, 0, 1, false}, {11, 11, 5, true}};
    for (const auto &[offset, position, length, is_stored] : places) {
        const byte_source::place found = source.locate(offset);
        EXPECT_EQ(std::tuple(found.position, found.length, found.is_stored),
                  std::tuple(position, length, is_stored))
            << offset;
    }
}

TEST(RawDiskIo, ReadsAnySource)
{
    const auto source = std::make_shared<patched_source>(
        std::make_shared<memory_source>(bytes_of("_AAAABBBBCC")));
    source->replace(9, 1, 0);
    RAW_DISK_IO disk(source);
    EXPECT_TRUE(disk.is_open());
    EXPECT_EQ(disk.failure(), open_failure::none);
    EXPECT_EQ(disk.get_size(), 11u);
    EXPECT_EQ(disk.mappable_descriptor(), -1);
    EXPECT_EQ(disk.locate(9).position, 0u);
    disk.attach_runs(4, {{2, 0, false, 1}, {0, 1, false, 1}}, 8, 1);
    u8 buffer[8] = {};
    u32 length = 8;
    EXPECT_TRUE(disk.read(buffer, length, 0, true));
    EXPECT_EQ(std::string(buffer, buffer + length), std::string("_C\0\0AAAA", 8));
    EXPECT_TRUE(disk.read_exact(buffer, 2, 9));
    EXPECT_FALSE(disk.read_exact(buffer, 3, 9));
    EXPECT_FALSE(disk.read(buffer, length, 11));
    EXPECT_FALSE(RAW_DISK_IO(byte_source_ptr()).is_open());
}

} // namespace
} // namespace hv

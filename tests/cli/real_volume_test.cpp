// Volumes that other software made and wrote.

#include "samples/record_builders.h"
#include "support/mkntfs_volume.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <set>

namespace {

using namespace test_support;
namespace fs = std::filesystem;

using row_set = std::multiset<std::string>;

// Puts a bin on a mounted volume and returns the rows that it leads to: the path that
// was deleted, then the time, size, version and user.
row_set fill(const mkntfs_volume &volume)
{
    row_set rows;
    for (unsigned i = 0; i < 150; ++i) {
        const std::string user = i % 2 == 0 ? "S-1-5-21-1-2-1001" : "S-1-12-1-9-9-9-9";
        // A long path that isn't Latin, so that metadata is of many sizes.
        std::u16string path = u"C:\\";
        std::string path_utf8 = "C:\\";
        for (unsigned k = 0; k <= i; ++k) path += u'\u6587', path_utf8 += "\u6587";
        const bool is_old = i % 3 == 0;
        dollar_i_builder metadata;
        metadata.version(is_old ? 1 : 2).size(i).path(path);
        const std::string bin = "$Recycle.Bin/" + user + "/";
        const std::string name = "AB" + std::to_string(1000 + i) + ".txt";
        volume.write_file(bin + "$I" + name, text(metadata.bytes()));
        const bool has_data = i % 5 != 0;
        const unsigned size = has_data ? i * 97 : i;
        if (has_data) volume.write_file(bin + "$R" + name, std::string(size, 'x'));
        rows.insert(path_utf8 + "|2015-04-04 17:24:09.614|" + std::to_string(size) +
                    (is_old ? "|Win7 or 8|" : "|Win10|") + user);
    }
    return rows;
}

row_set rows_of(const std::string &image)
{
    row_set rows;
    for (const std::string &row : quiet_rows({"-image", image})) {
        const auto cells = split_at(row, '|');
        rows.insert(cells.at(7) + "|" + cells[0] + "|" + cells[5] + "|" + cells[6] +
                    "|" + cells.at(8));
    }
    return rows;
}

class RealVolume : public testing::Test {
protected:
    void SetUp() override
    {
        if (!mkntfs_volume::available())
            GTEST_SKIP() << "mkntfs or the ntfs-3g driver can't be used here";
    }
};

TEST_F(RealVolume, HasEveryRowAtEveryClusterSize)
{
    for (const std::uint32_t cluster : {512u, 4096u, 65536u}) {
        SCOPED_TRACE(cluster);
        mkntfs_volume volume(cluster);
        const auto expected = fill(volume);
        ASSERT_TRUE(volume.unmount());
        EXPECT_EQ(rows_of(volume.image()), expected);
    }
}

TEST_F(RealVolume, HasFoldersStreamsAndTimes)
{
    mkntfs_volume volume;
    const std::string bin = "$RECYCLE.BIN/S-1-5-21-7/";
    const std::string deep = bin + "$RDIR123/sub/\u043F\u0440\u0438.txt";
    volume.write_file(bin + "desktop.ini", "x");
    volume.write_file(bin + "$IDIR123", text(metadata(u"D:\\old")));
    volume.write_file(deep, "12345");
    volume.write_file(deep + ":Zone.Identifier", "ZoneId=4\r\n");
    fs::remove(volume.write_file(bin + "$IGONE12", text(metadata(u"D:\\gone"))));
    const timespec times[2] = {{1577934245, 0}, {1577934245, 0}}; // 2020-01-02 03:04:05
    ASSERT_EQ(utimensat(AT_FDCWD, (volume / deep).c_str(), times, 0), 0);
    ASSERT_TRUE(volume.unmount());
    const auto rows = quiet_rows({"-image", volume.image()});
    ASSERT_EQ(rows.size(), 4u);
    // The record of a file that was deleted from the bin still holds its metadata.
    const char *parts[] = {"|D:\\old\\|S-1-5-21-7|", "|D:\\old\\sub\\|S-1-5-21-7|",
                           "|5|Win10|D:\\old\\sub\\\u043F\u0440\u0438.txt|",
                           "|D:\\gone|S-1-5-21-7|"};
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_NE(rows[i].find(parts[i]), std::string::npos) << rows[i];
    EXPECT_TRUE(rows[2].starts_with("2015-04-04 17:24:09.614|2020-01-02 03:04:05.000|"
                                    "2020-01-02 03:04:05.000|"))
        << rows[2];
    EXPECT_TRUE(rows[2].ends_with("|{zone_info={\"ZoneId\":\"4 [untrusted]\"};}"))
        << rows[2];
}

TEST_F(RealVolume, FollowsAScatteredMft)
{
    // All space is taken in single clusters and every second one freed again, so that
    // the $MFT has to grow in them.
    mkntfs_volume volume(4096, std::uint64_t{12} << 20);
    const auto path = [&](int i) { return volume / ("fill/" + std::to_string(i)); };
    fs::create_directories(volume / "fill");
    int taken = 0;
    for (;; ++taken) {
        std::ofstream file(path(taken), std::ios::binary);
        file << std::string(4000, 'f') << std::flush;
        if (!file.good()) break;
    }
    for (int i = 0; i < taken; i += 2) fs::remove(path(i));
    for (int i = 0; i < taken / 2 + 300; ++i)
        volume.write_file("small/" + std::to_string(i), "s");
    for (int i = 1; i < taken; i += 2) fs::remove(path(i));
    const auto expected = fill(volume);
    ASSERT_TRUE(volume.unmount());
    EXPECT_EQ(rows_of(volume.image()), expected);
}

} // namespace

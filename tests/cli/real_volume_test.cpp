// Volumes that other software made and wrote.

#include "samples/record_builders.h"
#include "support/mkntfs_volume.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace test_support;
namespace fs = std::filesystem;

void write(const std::string &path, const std::string &bytes)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    EXPECT_TRUE(file.good()) << path;
}

// Puts a bin on a mounted volume and returns the rows that it leads to, by the path
// that was deleted: the cells before the source, without the times of the data files.
std::map<std::string, std::string> fill(const mkntfs_volume &volume)
{
    std::map<std::string, std::string> rows;
    const std::string users[] = {"S-1-5-21-1-2-3-1001", "S-1-12-1-9-9-9-9"};
    for (int i = 0; i < 150; ++i) {
        const std::string user = users[i % 2], number = std::to_string(i);
        // A long path that isn't Latin, so that metadata is of many sizes.
        const std::u16string folder(static_cast<std::size_t>(1 + i), u'\u6587');
        std::string folder_utf8;
        for (int k = 0; k <= i; ++k) folder_utf8 += "\u6587";
        const std::u16string path =
            u"C:\\" + folder + u"\\" + std::u16string(number.begin(), number.end());
        const byte_vector metadata = dollar_i_builder()
                                         .version(i % 3 == 0 ? 1 : 2)
                                         .size(static_cast<std::uint64_t>(i))
                                         .path(path)
                                         .bytes();
        const std::string bin = volume / ("$Recycle.Bin/" + user + "/");
        const std::string name = "AB" + std::to_string(1000 + i) + ".txt";
        write(bin + "$I" + name, text(metadata));
        const bool has_data = i % 5 != 0;
        const int size = has_data ? i * 97 : i;
        if (has_data)
            write(bin + "$R" + name, std::string(static_cast<std::size_t>(size), 'x'));
        rows["C:\\" + folder_utf8 + "\\" + number] =
            "2015-04-04 17:24:09.614|" + std::to_string(size) + "|" +
            (i % 3 == 0 ? "Win7 or 8|" : "Win10|") + user;
    }
    return rows;
}

std::map<std::string, std::string> rows_of(const std::string &image)
{
    std::map<std::string, std::string> rows;
    for (const std::string &row : quiet_rows({"-image", image})) {
        const auto cells = split_at(row, '|');
        EXPECT_FALSE(rows.contains(cells.at(7))) << row;
        rows[cells.at(7)] =
            cells[0] + "|" + cells.at(5) + "|" + cells.at(6) + "|" + cells.at(8);
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
    const std::string bin = volume / "$RECYCLE.BIN/S-1-5-21-7/";
    const std::string deep = bin + "$RDIR123/sub/\u043F\u0440\u0438.txt";
    write(bin + "desktop.ini", "x");
    write(bin + "$IDIR123", text(metadata(u"D:\\old")));
    write(deep, "12345");
    write(deep + ":Zone.Identifier", "ZoneId=4\r\n");
    write(bin + "$IGONE12", text(metadata(u"D:\\gone")));
    fs::remove(bin + "$IGONE12");
    const timespec times[2] = {{1577934245, 0}, {1577934245, 0}}; // 2020-01-02 03:04:05
    ASSERT_EQ(utimensat(AT_FDCWD, deep.c_str(), times, 0), 0);
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
        write(volume / ("small/" + std::to_string(i)), "s");
    for (int i = 1; i < taken; i += 2) fs::remove(path(i));
    const auto expected = fill(volume);
    ASSERT_TRUE(volume.unmount());
    EXPECT_EQ(rows_of(volume.image()), expected);
}

} // namespace

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

void write(const std::string &path, const byte_vector &bytes)
{
    write(path, text(bytes));
}

// Puts a bin on a mounted volume and returns the rows that it has to give: what stands
// before the source cell, times of the data files left out, by the path that was
// deleted.
std::map<std::string, std::string> fill(const mkntfs_volume &volume)
{
    std::map<std::string, std::string> rows;
    const std::string users[] = {"S-1-5-21-1-2-3-1001", "S-1-12-1-9-9-9-9"};
    for (int i = 0; i < 150; ++i) {
        const std::string user = users[i % 2];
        const std::string name = "AB" + std::to_string(1000 + i) + ".txt";
        // A long path that isn't Latin, so that metadata is of many sizes.
        const std::u16string folder(static_cast<std::size_t>(1 + i), u'\u6587');
        std::string folder_utf8;
        for (int k = 0; k <= i; ++k) folder_utf8 += "\xE6\x96\x87";
        const std::string number = std::to_string(i);
        const byte_vector metadata =
            dollar_i_builder()
                .version(i % 3 == 0 ? 1 : 2)
                .size(static_cast<std::uint64_t>(i))
                .path(u"C:\\" + folder + u"\\" +
                      std::u16string(number.begin(), number.end()))
                .bytes();
        const std::string bin = volume / ("$Recycle.Bin/" + user + "/");
        write(bin + "$I" + name, metadata);
        const bool has_data = i % 5 != 0;
        if (has_data)
            write(bin + "$R" + name,
                  std::string(static_cast<std::size_t>(i) * 97, 'x'));
        rows["C:\\" + folder_utf8 + "\\" + number] =
            "2015-04-04 17:24:09.614|" + std::to_string(has_data ? i * 97 : i) + "|" +
            (i % 3 == 0 ? "Win7 or 8|" : "Win10|") + user;
    }
    return rows;
}

std::map<std::string, std::string> rows_of(const std::string &image)
{
    std::map<std::string, std::string> rows;
    const run_result run =
        run_veskit({"-quiet", "-no_whitespace", "-base10", "-image", image});
    EXPECT_EQ(run.err, "");
    for (const std::string &row : run.rows()) {
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

TEST_F(RealVolume, GivesEveryRowAtEveryClusterSize)
{
    for (const std::uint32_t cluster : {512u, 4096u, 65536u}) {
        SCOPED_TRACE(cluster);
        mkntfs_volume volume(cluster);
        const auto expected = fill(volume);
        ASSERT_TRUE(volume.unmount());
        EXPECT_EQ(rows_of(volume.image()), expected);
    }
}

TEST_F(RealVolume, GivesFoldersStreamsAndTimes)
{
    mkntfs_volume volume;
    const std::string bin = volume / "$RECYCLE.BIN/S-1-5-21-7/";
    write(bin + "desktop.ini", "x");
    write(bin + "$IDIR123", metadata(u"D:\\old"));
    write(bin + "$RDIR123/sub/\xD0\xBF\xD1\x80\xD0\xB8.txt", "12345");
    write(bin + "$RDIR123/sub/\xD0\xBF\xD1\x80\xD0\xB8.txt:Zone.Identifier",
          "ZoneId=4\r\n");
    write(bin + "$IGONE12", metadata(u"D:\\gone"));
    fs::remove(bin + "$IGONE12");
    const timespec times[2] = {{1577934245, 0}, {1577934245, 0}}; // 2020-01-02 03:04:05
    ASSERT_EQ(utimensat(AT_FDCWD,
                        (bin + "$RDIR123/sub/\xD0\xBF\xD1\x80\xD0\xB8.txt").c_str(),
                        times, 0),
              0);
    ASSERT_TRUE(volume.unmount());
    const auto rows =
        run_veskit({"-quiet", "-no_whitespace", "-image", volume.image()}).rows();
    ASSERT_EQ(rows.size(), 4u);
    // The record of a file that was deleted from the bin still holds its metadata.
    EXPECT_NE(rows[3].find("|D:\\gone|S-1-5-21-7|"), std::string::npos) << rows[3];
    EXPECT_NE(rows[0].find("|D:\\old\\|S-1-5-21-7|"), std::string::npos) << rows[0];
    EXPECT_NE(rows[1].find("|D:\\old\\sub\\|S-1-5-21-7|"), std::string::npos)
        << rows[1];
    EXPECT_TRUE(rows[2].starts_with("2015-04-04 17:24:09.614|2020-01-02 03:04:05.000|"
                                    "2020-01-02 03:04:05.000|"))
        << rows[2];
    EXPECT_NE(rows[2].find("|0x05|Win10|D:\\old\\sub\\\xD0\xBF\xD1\x80\xD0\xB8.txt|"),
              std::string::npos)
        << rows[2];
    EXPECT_TRUE(rows[2].ends_with("|{zone_info={\"ZoneId\":\"4 [untrusted]\"};}"))
        << rows[2];
}

TEST_F(RealVolume, FollowsAScatteredMft)
{
    // All space is taken in single clusters and every second one given back, so that
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

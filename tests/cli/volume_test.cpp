// Whole volumes, through `-image` and `-mftfile`.

#include "samples/bins.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

// "deleted path | size | entry of the data file or, unpaired, of the metadata", the
// rows that every volume of `recent_bin` gives.
const string_list recent_rows = {"C:\\a.txt|10000|68",
                                 "C:\\dir\\|0|70",
                                 "C:\\dir\\s\u00fcb\\|0|71",
                                 "C:\\dir\\s\u00fcb\\deep.txt|5|72",
                                 "C:\\gone|14|75",
                                 "C:\\lost|14|73",
                                 "<unk path - $RORPHAN.pdf>|1|74"};

// Where no index told what belongs to a bin, metadata is taken wherever it stands.
string_list rows_without_index()
{
    string_list rows = recent_rows;
    rows.emplace_back("C:\\else|14|77");
    return rows;
}

class Volume : public testing::Test {
protected:
    std::string write(const byte_vector &image)
    {
        return dir.write_file("image", text(image));
    }

    // The `$MFT` of a volume, cut out of its image.
    std::string write_mft(const ntfs_volume &volume, std::uint32_t cluster_size)
    {
        std::string mft;
        for (const extent &run : volume.stream_runs(0))
            mft += text(volume.image)
                       .substr(volume.boot_position + run.lcn * cluster_size,
                               run.clusters * cluster_size);
        return dir.write_file("mft", mft);
    }

    static string_list rows(string_list args)
    {
        args.insert(args.end(), {"-quiet", "-no_whitespace", "-base10"});
        const run_result run = run_veskit(args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        return run.rows();
    }

    // Rows cut down to path, size and entry.
    static string_list short_rows(const string_list &args)
    {
        string_list result;
        for (const std::string &row : rows(args)) {
            const string_list cells = split_at(row, '|');
            const std::size_t at = cells.at(9).find("\"inode\":\"");
            const std::string entry =
                at == std::string::npos ? "?" : cells[9].substr(at + 9, 2);
            result.push_back(cells.at(7) + "|" + cells.at(5) + "|" + entry);
        }
        return result;
    }

    const temp_dir dir;
};

TEST_F(Volume, ShowsEverythingThatIsKnownOfAFile)
{
    const string_list found = rows({"-image", write(recent_bin().build())});
    ASSERT_EQ(found.size(), recent_rows.size());
    const std::string time = "2015-04-04 17:24:09.614|";
    EXPECT_EQ(found[0],
              time + time + time + time + time +
                  "10000|Win10|C:\\a.txt|S-1-5-21-7|{[root]\\$Recycle.Bin\\S-1-5-21-7\\"
                  "$RAB12CD.txt=[\"inode\":\"68\";\"parent_inode\":\"65\"];\"src\":"
                  "\"$IAB12CD.txt\";\"offset\":\"69632\"}|"
                  "{zone_info={\"ZoneId\":\"3 [internet]\"};}");
    EXPECT_EQ(found[6],
              time + time + time + time + time +
                  "1|Win10|<unk path - $RORPHAN.pdf>|S-1-5-21-7|{[root]\\$Recycle.Bin\\"
                  "S-1-5-21-7\\$RORPHAN.pdf=[\"inode\":\"74\";\"parent_inode\":\"65\"];"
                  "\"offset\":\"75776\"}|");
}

TEST_F(Volume, ReadsEveryGeometry)
{
    struct geometry {
        std::uint32_t cluster;
        std::uint32_t record;
        std::uint32_t sector;
        std::uint64_t offset;
        std::uint64_t fragments;
    };
    const std::vector<geometry> cases = {
        {512, 1024, 512, 0, 1},        {4096, 1024, 512, 0, 1},
        {4096, 1024, 512, 1048576, 9}, {4096, 4096, 4096, 0, 1},
        {65536, 1024, 512, 512, 2},    {1024, 4096, 512, 0, 20},
        {512, 1024, 512, 0, 60},
    };
    for (const geometry &one : cases) {
        SCOPED_TRACE(std::to_string(one.cluster) + " " + std::to_string(one.record) +
                     " " + std::to_string(one.fragments));
        const ntfs_volume volume = recent_bin()
                                       .cluster_size(one.cluster)
                                       .record_size(one.record)
                                       .sector_size(one.sector)
                                       .offset(one.offset)
                                       .mft({.fragments = one.fragments})
                                       .build_volume();
        EXPECT_EQ(short_rows({"-image", write(volume.image), "-offset",
                              std::to_string(one.offset)}),
                  recent_rows);
        EXPECT_EQ(short_rows({"-mftfile", write_mft(volume, one.cluster)}),
                  rows_without_index());
    }
}

TEST_F(Volume, FindsWhatTheIndexKnowsOrForgot)
{
    EXPECT_EQ(short_rows({"-image", write(recent_bin().build()), "-no_mirel"}),
              rows_without_index());
    // A user's folder that only stale bytes of the index still name.
    ntfs_item user = bin_item(user_entry, "S-1-5-21-7", "", bin_entry);
    user.in_index = false;
    const byte_vector stale = empty_bin()
                                  .directory(user)
                                  .stale_entry({.directory = bin_entry,
                                                .entry = user_entry,
                                                .name = user.name,
                                                .attributes = 0x10000000})
                                  .file(bin_metadata(66, "$IAB12CD.txt", u"C:\\a.txt"))
                                  .build();
    EXPECT_EQ(short_rows({"-image", write(stale)}), string_list{"C:\\a.txt|14|66"});
}

TEST_F(Volume, ReadsTheBinOfAnOldWindows)
{
    std::vector<info2_item> items(30);
    for (std::uint32_t i = 0; i < items.size(); ++i) items[i].number = i + 1;
    items[6].path = u"C:\\seven.txt";
    ntfs_item list = bin_item(66, "INFO2", text(info2_file(items)));
    list.stored = {.non_resident = true, .fragments = 3};
    const byte_vector image =
        empty_bin("RECYCLER").file(list).file(bin_item(67, "Dc7.txt", "seven")).build();
    const string_list found = short_rows({"-image", write(image)});
    ASSERT_EQ(found.size(), 30u);
    EXPECT_EQ(found[5], "C:\\a.txt|4096|66");
    EXPECT_EQ(found[6], "C:\\seven.txt|5|67");
}

TEST_F(Volume, FollowsAttributeLists)
{
    auto builder = recent_bin();
    builder.move({.entry = 67, .record = 90, .type = ntfs_type::data})
        .move({.entry = 69, .record = 91, .type = ntfs_type::file_name})
        .list_in_clusters(69)
        .mft({.fragments = 12})
        .move({.entry = 0, .record = 40, .type = ntfs_type::data, .first_run = 8});
    EXPECT_EQ(short_rows({"-image", write(builder.build())}), recent_rows);
}

TEST_F(Volume, ReadsBehindTwoTebibytes)
{
    const std::uint64_t offset = std::uint64_t{3} << 40;
    const std::string path = dir.write_file("large", "");
    std::error_code error;
    std::filesystem::resize_file(path, offset, error);
    if (error) GTEST_SKIP() << "the file system has no files of this size";
    std::ofstream(path, std::ios::binary | std::ios::app) << text(recent_bin().build());
    EXPECT_EQ(short_rows({"-image", path, "-offset", "0x30000000000"}), recent_rows);
}

TEST_F(Volume, SaysWhyItHasNoRows)
{
    const byte_vector no_bin =
        ntfs_volume_builder().directory({.entry = 64, .name = "Users"}).build();
    const run_result without = run_veskit({"-quiet", "-image", write(no_bin)});
    EXPECT_EQ(without.err, "prob calling pull_mft_data from \n");
    EXPECT_TRUE(without.body().empty());
    const std::string noise = dir.write_file("noise", std::string(100000, 'n'));
    EXPECT_EQ(run_veskit({"-quiet", "-mftfile", noise}).err,
              "prob calling pull_mft_data from " + noise + "\n");
    const run_result foreign = run_veskit({"-quiet", "-image", noise});
    EXPECT_EQ(foreign.err, "");
    EXPECT_TRUE(foreign.body().empty());
}

TEST_F(Volume, StaysAsItWas)
{
    const ntfs_volume volume = recent_bin().build_volume();
    const std::string image = write(volume.image);
    const std::string mft = write_mft(volume, 4096);
    struct stat before[2];
    struct stat after[2];
    ASSERT_TRUE(stat(image.c_str(), &before[0]) == 0 &&
                stat(mft.c_str(), &before[1]) == 0);
    for (const string_list &args : {string_list{"-image", image},
                                    {"-image", image, "-no_mirel"},
                                    {"-mftfile", mft},
                                    {"-image", image, "-rawscan"},
                                    {"-file", image},
                                    {"-image", image, "-out", image}})
        run_veskit(args);
    ASSERT_TRUE(stat(image.c_str(), &after[0]) == 0 &&
                stat(mft.c_str(), &after[1]) == 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(before[i].st_mtim.tv_nsec, after[i].st_mtim.tv_nsec);
        EXPECT_EQ(before[i].st_ctim.tv_nsec, after[i].st_ctim.tv_nsec);
        EXPECT_EQ(before[i].st_atim.tv_nsec, after[i].st_atim.tv_nsec);
    }
    EXPECT_EQ(file_bytes(image), text(volume.image));
}

// Without a boot sector, without the head of the $MFT, without the $Bitmap, or with the
// front of the volume cut off: the raw scan comes to the records all the same.
TEST_F(Volume, RawScanTrustsNoStructure)
{
    const ntfs_volume volume = recent_bin().build_volume();
    const auto zeroed = [&](std::uint64_t at, std::size_t count) {
        byte_vector image = volume.image;
        std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(at), count, 0);
        return image;
    };
    byte_vector cut(volume.image.begin() + 3072, volume.image.end());
    for (const byte_vector &image :
         {volume.image, zeroed(0, 512), zeroed(volume.record_position(0), 4096),
          zeroed(volume.record_position(6), 1024), cut})
        EXPECT_EQ(short_rows({"-image", write(image), "-rawscan"}),
                  rows_without_index());
}

} // namespace

// Whole volumes, through `-image` and `-mftfile`.

#include "samples/bins.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>
#include <tuple>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

// The rows of `recent_bin`.
const string_list recent_rows = {"C:\\a.txt|10000|68",
                                 "C:\\dir\\|0|70",
                                 "C:\\dir\\s\u00fcb\\|0|71",
                                 "C:\\dir\\s\u00fcb\\deep.txt|5|72",
                                 "C:\\gone|14|75",
                                 "C:\\lost|14|73",
                                 "<unk path - $RORPHAN.pdf>|1|74"};

// Where no index says what belongs to a bin, metadata is taken wherever it is.
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
    std::string write_mft(const ntfs_volume &volume, u32 cluster_size)
    {
        std::string mft;
        for (const extent &run : volume.stream_runs(0))
            mft += text(volume.image)
                       .substr(volume.boot_position + run.lcn * cluster_size,
                               run.clusters * cluster_size);
        return dir.write_file("mft", mft);
    }

    static string_list short_rows(const string_list &args)
    {
        string_list result;
        for (const std::string &row : quiet_rows(args))
            result.push_back(short_row(row));
        return result;
    }

    const temp_dir dir;
};

TEST_F(Volume, ShowsEverythingThatIsKnownOfAFile)
{
    const string_list found = quiet_rows({"-image", write(recent_bin().build())});
    ASSERT_EQ(found.size(), recent_rows.size());
    std::string times;
    for (int i = 0; i < 5; ++i) times += "2015-04-04 17:24:09.614|";
    EXPECT_EQ(found[0],
              times +
                  "10000|Win10|C:\\a.txt|S-1-5-21-7|{[root]\\$Recycle.Bin\\S-1-5-21-7\\"
                  "$RAB12CD.txt=[\"inode\":\"68\";\"parent_inode\":\"65\"];\"src\":"
                  "\"$IAB12CD.txt\";\"offset\":\"69632\"}|"
                  "{zone_info={\"ZoneId\":\"3 [internet]\"};}");
    EXPECT_EQ(found[6],
              times +
                  "1|Win10|<unk path - $RORPHAN.pdf>|S-1-5-21-7|{[root]\\$Recycle.Bin\\"
                  "S-1-5-21-7\\$RORPHAN.pdf=[\"inode\":\"74\";\"parent_inode\":\"65\"];"
                  "\"offset\":\"75776\"}|");
}

TEST_F(Volume, ReadsEveryGeometry)
{
    struct geometry {
        u32 cluster, record, sector;
        u64 offset, fragments;
    };
    const std::vector<geometry> cases = {
        {512, 1024, 512, 0, 1},        {4096, 1024, 512, 0, 1},
        {4096, 1024, 512, 1048576, 9}, {4096, 4096, 4096, 0, 1},
        {65536, 1024, 512, 512, 2},    {1024, 4096, 512, 0, 20},
        {512, 1024, 512, 0, 60},
    };
    for (const auto &[cluster, record, sector, offset, fragments] : cases) {
        SCOPED_TRACE(testing::Message()
                     << cluster << " " << record << " " << fragments);
        const ntfs_volume volume = recent_bin()
                                       .cluster_size(cluster)
                                       .record_size(record)
                                       .sector_size(sector)
                                       .offset(offset)
                                       .mft({.fragments = fragments})
                                       .build_volume();
        EXPECT_EQ(short_rows({"-image", write(volume.image), "-offset",
                              std::to_string(offset)}),
                  recent_rows);
        EXPECT_EQ(short_rows({"-mftfile", write_mft(volume, cluster)}),
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
    for (u32 i = 0; i < items.size(); ++i) items[i].number = i + 1;
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

TEST_F(Volume, ReadsBeyondTwoTebibytes)
{
    const u64 offset = u64{3} << 40;
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

// In every mode, and where results or the log are to go to the source itself.
TEST_F(Volume, IsNeverWrittenTo)
{
    const ntfs_volume volume = recent_bin().build_volume();
    const std::string image = write(volume.image), mft = write_mft(volume, 4096),
                      file = dir.write_file("bin/S-1-5-21-7/$IAB12CD.txt",
                                            text(metadata(u"C:\\a.txt"))),
                      other_name = dir / "hard link";
    ASSERT_EQ(link(file.c_str(), other_name.c_str()), 0);
    const std::string sources[] = {image, mft, file};
    const auto states = [&] {
        std::vector<std::tuple<long, long, long, nlink_t>> list;
        for (const std::string &path : sources) {
            struct stat file_status = {};
            stat(path.c_str(), &file_status);
            list.emplace_back(file_status.st_mtim.tv_nsec, file_status.st_ctim.tv_nsec,
                              file_status.st_atim.tv_nsec, file_status.st_nlink);
        }
        return list;
    };
    const auto before = states();
    for (const string_list &args : {string_list{"-image", image},
                                    {"-image", image, "-no_mirel"},
                                    {"-image", image, "-include_vss_clusters"},
                                    {"-image", image, "-include_unalloc_clusters"},
                                    {"-image", image, "-rawscan"},
                                    {"-mftfile", mft},
                                    {"-file", image},
                                    {"-file", file},
                                    {"-enumdir", dir / "bin", "-num_subdirs", "9"},
                                    {"-file", file, "-diags", other_name},
                                    {"-image", image, "-diags", image},
                                    {"-mftfile", mft, "-diags", mft}})
        run_veskit(args);
    for (const string_list &args : {string_list{"-file", file, "-out", other_name},
                                    {"-image", file, "-out", other_name},
                                    {"-mftfile", file, "-out", other_name},
                                    {"-image", image, "-out", image}})
        EXPECT_NE(run_veskit(args).err.find("prob opening file"), std::string::npos)
            << args[0];
    EXPECT_EQ(states(), before);
    EXPECT_TRUE(file_bytes(image) == text(volume.image));
    EXPECT_EQ(file_bytes(file), text(metadata(u"C:\\a.txt")));
}

// Without a boot sector, without the head of the $MFT, without the $Bitmap, or with the
// front of the volume cut off: the raw scan still finds the records.
TEST_F(Volume, RawScanTrustsNoStructure)
{
    const ntfs_volume volume = recent_bin().build_volume();
    const auto zeroed = [&](u64 at, std::size_t count) {
        byte_vector image = volume.image;
        put_bytes(image, at, byte_vector(count));
        return image;
    };
    const byte_vector cut(volume.image.begin() + 3072, volume.image.end());
    for (const byte_vector &image :
         {volume.image, zeroed(0, 512), zeroed(volume.record_position(0), 4096),
          zeroed(volume.record_position(6), 1024), cut})
        EXPECT_EQ(short_rows({"-image", write(image), "-rawscan"}),
                  rows_without_index());
}

} // namespace

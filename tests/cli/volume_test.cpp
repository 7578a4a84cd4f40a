// Whole volumes, through `-image` and `-mftfile`.

#include "samples/bins.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <tuple>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

// The rows of `recent_bin` where no index says what belongs to a bin: metadata is taken
// wherever it is. The last row is of a file outside the bin.
const string_list rows_without_index = {"C:\\a.txt|10000|68",
                                        "C:\\dir\\|0|70",
                                        "C:\\dir\\s\u00fcb\\|0|71",
                                        "C:\\dir\\s\u00fcb\\deep.txt|5|72",
                                        "C:\\gone|14|75",
                                        "C:\\lost|14|73",
                                        "<unk path - $RORPHAN.pdf>|1|74",
                                        "C:\\else|14|77"};
const string_list recent_rows(rows_without_index.begin(), rows_without_index.end() - 1);

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
    const std::string time = "2015-04-04 17:24:09.614|",
                      times = time + time + time + time + time;
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
    // The sizes of a cluster, a record and a sector; the offset; the runs of the $MFT.
    const std::vector<std::tuple<u32, u32, u32, u64, u64>> cases = {
        {512, 1024, 512, 0, 1},   {4096, 1024, 512, 1048576, 9},
        {4096, 4096, 4096, 0, 1}, {65536, 1024, 512, 512, 2},
        {1024, 4096, 512, 0, 20}, {512, 1024, 512, 0, 60}};
    for (const auto &[cluster, record, sector, offset, fragments] : cases) {
        SCOPED_TRACE(testing::Message() << cluster << " " << record << " " << offset);
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
                  rows_without_index);
    }
}

TEST_F(Volume, FindsWhatTheIndexKnowsOrForgot)
{
    EXPECT_EQ(short_rows({"-image", write(recent_bin().build()), "-no_mirel"}),
              rows_without_index);
    // A folder outside the bin, which stale bytes of the bin's index still name.
    auto moved = recent_bin();
    moved.directory(bin_item(80, "moved", "", 76))
        .stale_entry({bin_entry, 80, "moved", 1, 1, 0x10000000})
        .file(bin_metadata(81, "$IMOVED1", u"C:\\moved", 80));
    string_list rows = recent_rows;
    rows.emplace_back("C:\\moved|14|81");
    EXPECT_EQ(short_rows({"-image", write(moved.build())}), rows);
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
    const std::string noise = dir.write_file("noise", std::string(100000, 'n'));
    const std::string no_bin =
        write(ntfs_volume_builder().directory({.entry = 64, .name = "Users"}).build());
    const auto message = [](const std::string &option, const std::string &path) {
        const run_result run = run_veskit({"-quiet", option, path});
        EXPECT_EQ(run.body(), string_list{}) << option;
        return run.err;
    };
    const std::string problem = "prob calling pull_mft_data from ";
    EXPECT_EQ(message("-image", no_bin), problem + "\n");
    EXPECT_EQ(message("-mftfile", noise), problem + noise + "\n");
    EXPECT_EQ(message("-image", noise), "");
    run_veskit({"-diags", dir / "log", "-image", noise});
    run_veskit({"-diags", dir / "log", "-mftfile", dir / "none"});
    const std::string log = file_bytes(dir / "log");
    for (const char *why : {"noise, offset 0x0: there is no NTFS boot sector\n",
                            "none: no such file or device\n"})
        EXPECT_NE(log.find(why), std::string::npos) << log;
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
    const auto states = [&] {
        std::vector<std::pair<long, long>> list;
        for (const std::string &path : {image, mft, file}) {
            struct stat now = {};
            stat(path.c_str(), &now);
            list.emplace_back(now.st_ctim.tv_nsec, now.st_atim.tv_nsec);
        }
        return list;
    };
    const auto before = states();
    for (const string_list &args :
         {string_list{"-image", image, "-diags", image, "-include_vss_clusters",
                      "-include_unalloc_clusters"},
          {"-image", image, "-rawscan"},
          {"-mftfile", mft, "-diags", mft},
          {"-file", file, "-diags", other_name},
          {"-enumdir", dir / "bin", "-num_subdirs", "9"}})
        run_veskit(args);
    for (const string_list &args : {string_list{"-file", file, "-out", other_name},
                                    {"-mftfile", file, "-out", other_name},
                                    {"-image", image, "-out", image}})
        EXPECT_NE(run_veskit(args).err.find("prob opening file"), std::string::npos)
            << args[0];
    EXPECT_EQ(states(), before);
    EXPECT_TRUE(file_bytes(image) == text(volume.image));
    EXPECT_EQ(file_bytes(file), text(metadata(u"C:\\a.txt")));
}

// Without the head of the $MFT, the $Bitmap, or the front of the volume.
TEST_F(Volume, RawScanTrustsNoStructure)
{
    const ntfs_volume volume = recent_bin().build_volume();
    std::vector<byte_vector> images(3, volume.image);
    put_bytes(images[0], volume.record_position(0), byte_vector(4096));
    put_bytes(images[1], volume.record_position(6), byte_vector(1024));
    images[2].erase(images[2].begin(), images[2].begin() + 3072);
    for (const byte_vector &image : images)
        EXPECT_EQ(short_rows({"-image", write(image), "-rawscan"}), rows_without_index);
}

} // namespace

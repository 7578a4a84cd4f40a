// Media that fail while they are read: bad sectors, and disks that shrink, change,
// vanish or are slow.

#include "samples/bins.h"
#include "support/failing_disk.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;
using row_set = std::set<std::string>;

constexpr u64 cluster = 4096;
constexpr u64 free_record = 1800; // first cluster of what follows
constexpr u64 data_of_a = 1500;
constexpr u64 long_metadata = 1600;
constexpr u64 list = 1610;
constexpr u64 freed_data = 1700;

// A bin whose evidence is in many places.
ntfs_volume scattered_bin()
{
    const auto at = [](ntfs_item item, u64 begin, u64 count) {
        item.stored.runs = {{begin, count}};
        return item;
    };
    const std::u16string long_path = u"C:\\" + std::u16string(400, u'p');
    const byte_vector info2 = info2_file({{.path = u"C:\\first", .number = 1},
                                          {.path = u"C:\\second", .number = 2},
                                          {.path = u"C:\\third", .number = 3}});
    ntfs_item freed = at(bin_item(78, "$RFREED1.txt", "free"), freed_data, 1);
    freed.in_use = false;
    ntfs_volume volume =
        empty_bin()
            .clusters(2000)
            .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
            .file(
                at(bin_item(68, "$RAB12CD.txt", std::string(10000, 'a')), data_of_a, 3))
            .file(bin_metadata(72, "$IOTHER1.txt", u"C:\\other.txt"))
            .file(at(bin_metadata(76, "$ILONG12.txt", long_path), long_metadata, 1))
            .file(at(bin_item(77, "INFO2", text(info2)), list, 1))
            .file(freed)
            .file(bin_metadata(79, "$IFREED1.txt", u"C:\\freed.txt"))
            .file(bin_metadata(80, "$ILATE12.txt", u"C:\\late.txt"))
            .build_volume();
    const ntfs_volume gone =
        empty_bin().file(bin_metadata(90, "$IGONE12", u"C:\\gone")).build_volume();
    put_bytes(volume.image, free_record * cluster, gone.record(90));
    return volume;
}

class FailingMedium : public testing::Test {
protected:
    void SetUp() override
    {
        if (!failing_disk::available()) GTEST_SKIP() << "needs FUSE";
    }

    static run_result run(const string_list &args)
    {
        return run_program(RECYCLEBIN_BINARY, args);
    }
    // "whole|C:\a.txt" of each row; a path keeps its first characters and its end.
    static row_set rows(const std::string &table)
    {
        row_set found;
        string_list lines = split_at(table, '\n');
        for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
            std::istringstream data_cell(lines[i].substr(lines[0].find("DATA")));
            std::string data;
            data_cell >> data;
            const std::string path = lines[i].substr(lines[0].find("PATH"));
            found.insert(data + "|" + path.substr(0, 12) +
                         (path.ends_with("...") ? "..." : ""));
        }
        return found;
    }
    static std::string fail(u64 begin, u64 length = 1)
    {
        return "fail=" + std::to_string(begin) + "-" + std::to_string(begin + length);
    }

    const ntfs_volume volume = scattered_bin();
    const temp_dir dir;
    const std::string image = dir.write_file("image", text(volume.image));
};

TEST_F(FailingMedium, CostsTheRowsThatNeedItsBadSectors)
{
    const row_set all = rows(run({"list", image, "--carve"}).out);
    EXPECT_EQ(all, (row_set{"whole|C:\\a.txt", "-|C:\\other.txt", "-|C:\\ppppppppp",
                            "-|C:\\first", "-|C:\\second", "-|C:\\third",
                            "whole|C:\\freed.txt", "-|C:\\late.txt", "-|C:\\gone"}));
    struct fault {
        const char *name;
        u64 at, length; // of what of a sector is needed
        row_set lost, instead;
    };
    const fault faults[] = {
        {"metadata",
         volume.record_position(67),
         512,
         {"whole|C:\\a.txt"},
         {"whole|<$RAB12CD.tx"}},
        {"the end of a path",
         long_metadata * cluster + 512,
         28 + 2 * 404 - 512,
         {"-|C:\\ppppppppp"},
         {"-|C:\\ppppppppp..."}},
        {"a record of a list", list * cluster + 1024, 512, {"-|C:\\second"}, {}},
        {"$Bitmap",
         volume.stream_runs(6)[0].lcn * cluster,
         256,
         {"whole|C:\\freed.txt"},
         {"unknown|C:\\freed.txt"}},
        {"a free cluster", free_record * cluster, 512, {"-|C:\\gone"}, {}},
    };
    for (const fault &each : faults) {
        const failing_disk disk(image, {fail(each.at)});
        const run_result result = run({"list", disk.path(), "--carve"});
        row_set expected = all;
        for (const std::string &row : each.lost) expected.erase(row);
        expected.insert(each.instead.begin(), each.instead.end());
        EXPECT_EQ(rows(result.out), expected) << each.name;
        EXPECT_EQ(result.status, 4) << each.name;
        std::ostringstream named;
        named << std::hex << "bytes 0x" << each.at << " to 0x"
              << each.at + each.length - 1 << ": can't be read\n";
        EXPECT_NE(result.err.find(named.str()), std::string::npos) << result.err;
        const std::string count = std::to_string(each.length) + " bytes unreadable";
        EXPECT_NE(result.err.find(count), std::string::npos) << result.err;
    }
}

TEST_F(FailingMedium, IsNamedByEveryCommand)
{
    const std::string bad_data = fail(data_of_a * cluster + cluster, 512);
    const failing_disk disk(image, {bad_data, fail(volume.record_position(67))});
    const std::string rows_file =
        dir.write_file("rows", run({"list", image, "--format", "jsonl"}).out);
    struct command {
        string_list args;
        int status;
        const char *out; // a part of it
    };
    for (const auto &[args, status, out] : std::vector<command>{
             {{"check", disk.path()}, 4, "bin of S-1-5-21-7: "},
             {{"explain", disk.path(), "$IOTHER1.txt"}, 4, "C:\\other.txt"},
             {{"bytes", disk.path(), "0", "4096000"}, 4, "C\0:\0"},
             {{"recheck", rows_file, disk.path()}, 1, "C:\\other.txt"},
             {{"export", disk.path(), "--only-hash"}, 4, "\"state\":\"partly\""}}) {
        const run_result result = run(args);
        EXPECT_EQ(result.status, status) << args[0] << result.err;
        EXPECT_NE(result.out.find(out), std::string::npos) << args[0] << result.out;
    }
    const failing_disk no_map(image, {fail(volume.stream_runs(6)[0].lcn * cluster)});
    EXPECT_NE(run({"export", no_map.path(), "--only-hash", "--path", "*freed.txt"})
                  .out.find("\"state\":\"unproven\""),
              std::string::npos);
    const run_result exported = run({"export", disk.path(), "--to", dir / "out"});
    EXPECT_EQ(exported.status, 4);
    EXPECT_NE(exported.err.find("can't be read"), exported.err.rfind("can't be read"))
        << "the record's sector, and then that of the data: " << exported.err;
    const std::string manifest = file_bytes(dir / "out/manifest.jsonl");
    EXPECT_NE(manifest.find(R"([{"offset":4096,"length":512,"why":)"),
              std::string::npos)
        << manifest;
}

// The other program gives up the cluster or the block that a bad sector is in and,
// where it reads in one go, what comes after that.
TEST_F(FailingMedium, LeavesVeskitWhatComesBefore)
{
    const u64 mft_begin = volume.record_position(0);
    const std::string mft = dir.write_file(
        "mft", text(volume.image)
                   .substr(mft_begin, volume.stream_runs(0)[0].clusters * cluster));
    struct mode {
        string_list args;
        u64 bad; // a record
        const char *lost;
    };
    for (const auto &[args, bad, lost] : std::vector<mode>{
             {{"-image"}, 72, "C:\\other.txt"},
             {{"-rawscan", "-image"}, 72, "C:\\other.txt"},
             {{"-include_vss_clusters", "-include_unalloc_clusters", "-image"},
              72,
              "C:\\other.txt"},
             {{"-mftfile"}, 80, "C:\\late.txt"}}) {
        const bool is_mft = args[0] == "-mftfile";
        const failing_disk disk(
            is_mft ? mft : image,
            {fail(volume.record_position(bad) - (is_mft ? mft_begin : 0))});
        string_list all = {"-quiet"};
        all.insert(all.end(), args.begin(), args.end());
        all.push_back(disk.path());
        const run_result result = run_program(VESKIT_BINARY, all);
        EXPECT_EQ(result.status, 0) << args[0];
        EXPECT_NE(result.out.find("C:\\a.txt"), std::string::npos)
            << args[0] << result.out << result.err;
        EXPECT_EQ(result.out.find(lost), std::string::npos) << args[0];
    }
}

// Whatever becomes of a disk, a run ends, and says whether it read all.
TEST_F(FailingMedium, MayShrinkChangeOrVanish)
{
    for (const std::string kind : {"vanish=", "die=", "shrink=", "change=", "cached"})
        for (const u64 read : {1, 4, 9, 16}) {
            string_list faults = {kind + std::to_string(read)};
            if (kind == "shrink=") faults = {faults[0] + ":100000"};
            if (kind == "change=")
                faults = {faults[0] + ":" +
                          std::to_string(volume.record_position(67) + 20) + ":255"};
            if (kind == "cached") faults = {kind, "shrink=2:50000"};
            const failing_disk disk(image, faults);
            if (read % 2 == 1) {
                EXPECT_LT(run_program(VESKIT_BINARY, {"-image", disk.path()}).status,
                          256);
                continue;
            }
            const run_result result = run({"list", disk.path(), "--carve"});
            EXPECT_GE(result.status, kind == "change=" ? 0 : 3) << faults[0];
            EXPECT_LE(result.status, 4) << faults[0] << result.err;
        }
}

// A plain file is mapped: it loses its end while that is looked at.
TEST(TruncatedFile, EndsNoRun)
{
    const temp_dir dir;
    const std::string image = dir / "image";
    const std::string noise(std::size_t{8} << 20, 'n');
    const std::string bytes = text(scattered_bin().image) + noise;
    for (int i = 0; i < 8; ++i) {
        dir.write_file("image", bytes);
        started_program carving(RECYCLEBIN_BINARY, {"list", image, "--carve"});
        started_program scan(VESKIT_BINARY, {"-rawscan", "-image", image});
        usleep(static_cast<useconds_t>(1000 * i));
        std::filesystem::resize_file(image, 3 << 20);
        EXPECT_LE(carving.wait().status, 5);
        EXPECT_EQ(scan.wait().status, 0);
    }
}

TEST_F(FailingMedium, AnswersSignalsWhileItIsSlow)
{
    const std::string rows_file =
        dir.write_file("rows", run({"list", image, "--format", "jsonl"}).out);
    const failing_disk disk(image, {"slow=10"});
    const std::string medium = disk.path();
    const string_list commands[] = {{"list", medium, "--carve"},
                                    {"list", medium, "--format", "jsonl"},
                                    {"check", medium},
                                    {"snapshots", medium},
                                    {"diff", medium, "1", "now"},
                                    {"explain", medium, "$IOTHER1.txt"},
                                    {"bytes", medium, "0", "8000000"},
                                    {"recheck", rows_file, medium},
                                    {"export", medium, "--only-hash", "--carve"}};
    std::vector<std::unique_ptr<started_program>> started;
    for (const string_list &args : commands)
        started.push_back(std::make_unique<started_program>(RECYCLEBIN_BINARY, args));
    constexpr int signals[] = {SIGINT, SIGTERM, SIGXCPU};
    for (std::size_t i = 0; i < started.size(); ++i)
        started[i]->send(signals[i % std::size(signals)],
                         started_program::taker::program);
    for (std::size_t i = 0; i < started.size(); ++i) {
        const run_result result = started[i]->wait();
        EXPECT_EQ(result.status, 4) << commands[i][0] << result.err;
        EXPECT_NE(result.err.find("interrupted"), std::string::npos)
            << commands[i][0] << result.err;
        EXPECT_TRUE(result.out.empty() || result.out.ends_with('\n') ||
                    commands[i][0] == "bytes")
            << result.out;
    }
}

TEST_F(FailingMedium, EndsAtOnceAtTheSecondSignal)
{
    const failing_disk disk(image, {"slow=500"});
    started_program started(RECYCLEBIN_BINARY, {"list", disk.path()});
    started.send(SIGINT, started_program::taker::program);
    started.send(SIGINT, started_program::taker::system);
    EXPECT_EQ(started.wait().status, 1000 + SIGINT);
}

} // namespace

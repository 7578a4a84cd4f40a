#include "trash/resolve.h"

#include "samples/record_builders.h"
#include "support/temp_dir.h"
#include "trash/classify.h"
#include "trash/deleted_records.h"
#include "trash/register_file.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace hv {
namespace {

using namespace test_support;

// A collection as a scan of a volume leaves it.
class VolumeRows : public testing::Test {
protected:
    u64 add(u64 entry, u64 parent, std::string_view name, std::string_view path = {})
    {
        const u64 index = collection.records.add();
        collection.records[index].entry = entry;
        collection.records[index].first_parent = parent;
        collection.records.set_name(index, name);
        collection.records.set_path(index, path);
        return index;
    }

    u64 add_directory(u64 entry, u64 parent, std::string_view name,
                      std::string_view path)
    {
        const u64 index = add(entry, parent, name, path);
        collection.records[index].is_directory = true;
        collection.directories[entry] = index;
        return index;
    }

    void add_metadata(u64 entry, u64 parent, std::string_view name, byte_vector data)
    {
        collection.records.extras(add(entry, parent, name)).data = std::move(data);
    }

    void add_bin(std::string_view name, const std::string &path)
    {
        collection.bin_root_index = add_directory(40, 5, name, path);
        collection.bin_directories[40] = collection.bin_root_index;
        add_directory(41, 40, "S-1-5-21-7", path + "S-1-5-21-7\\");
    }

    // Runs the end of a run and gives each row as "shown path | user | paired entry".
    std::vector<std::string> rows()
    {
        mark_bin_dirs(collection);
        classify_records(collection);
        resolve_records(collection, request);
        std::vector<std::string> texts;
        for (const trash_entry *entry : collection.results.in_order()) {
            const u64 paired =
                entry->has_data_file ? collection.records[entry->data_record].entry : 0;
            texts.push_back(
                (entry->has_data_file ? entry->restored_path : entry->deleted_path) +
                " | " + entry->user_sid + " | " + std::to_string(paired));
        }
        return texts;
    }

    _trash_inodes collection;
    resolve_request request;
};

using row_list = std::vector<std::string>;

TEST_F(VolumeRows, LeavesOutWhatIsInNoBin)
{
    add_bin("$RECYCLE.BIN", "[root]\\$RECYCLE.BIN\\");
    add(56, 99, "$RLOST12"); // its folder isn't known
    add(57, 41, "$RORPHAN");
    add_metadata(59, 41, "$I.txt", metadata(u"C:\\short.txt"));
    EXPECT_EQ(rows(), row_list{"<unk path - $RORPHAN> | S-1-5-21-7 | 57"});
}

TEST_F(VolumeRows, PairsTheOldLayoutByDriveAndNumber)
{
    add_bin("RECYCLER", "[root]\\RECYCLER\\");
    add_metadata(50, 41, "INFO2",
                 info2_file({{.path = u"C:\\Big.TXT", .number = 7},
                             {.path = u"D:\\dir.d\\none", .number = 8, .drive = 3},
                             {.path = u"C:\\gone.doc", .number = 9}}));
    // The key keeps the case of the path, "dc7.TXT": the name without extension saves
    // it.
    add_directory(51, 41, "Dc7", "[root]\\RECYCLER\\S-1-5-21-7\\Dc7\\");
    add(52, 41, "Dd8");
    EXPECT_EQ(rows(), (row_list{"C:\\Big.TXT\\ | S-1-5-21-7 | 51",
                                "D:\\dir.d\\none | S-1-5-21-7 | 52",
                                "C:\\gone.doc | S-1-5-21-7 | 0"}));
}

TEST_F(VolumeRows, TheFirstMetadataTakesTheData)
{
    add_bin("$Recycle.Bin", "[root]\\$Recycle.Bin\\");
    add_directory(42, 40, "S-1-5-21-8", "[root]\\$Recycle.Bin\\S-1-5-21-8\\");
    add_metadata(60, 42, "$IAB12CD.txt", metadata(u"C:\\second.txt"));
    add_metadata(50, 41, "$IAB12CD.txt", metadata(u"C:\\first.txt"));
    add(61, 42, "$RAB12CD.txt");
    EXPECT_EQ(rows(), (row_list{"C:\\first.txt | S-1-5-21-7 | 61",
                                "C:\\second.txt | S-1-5-21-8 | 0"}));
}

TEST_F(VolumeRows, KeepsARowWhoseItemsCannotBePlaced)
{
    // Known by a path of its own, while no directory is known for the data item.
    const u64 record =
        add(50, no_index, "$IAB12CD.txt", "\\b\\S-1-5-21-7\\$IAB12CD.txt");
    collection.records.extras(record).data = metadata(u"C:\\a.txt");
    collection.metadata_index.emplace(50, record);
    collection.index_data_file("$RAB12CD.txt", add(51, 41, "$RAB12CD.txt"));
    EXPECT_EQ(rows(), (row_list{"C:\\a.txt | S-1-5-21-7 | 0"}));
}

TEST_F(VolumeRows, WithoutABinOnlyNamesCount)
{
    add_directory(41, 5, "any", "[root]\\any\\");
    add_metadata(50, 41, "$IAB12CD.txt", metadata(u"C:\\a.txt"));
    add_metadata(51, 77, "$ILOST12.txt", metadata(u"C:\\lost.txt"));
    add_metadata(52, 41, "info2", info2_file({{}}));
    add(53, 41, "$RAB12CD.txt");
    // The parent's text is kept, as it ends in a separator; a path without any is too
    // shallow to name a user.
    EXPECT_EQ(rows(), (row_list{"C:\\a.txt | any | 0"}));
}

TEST_F(VolumeRows, CarvedRecordsPairOrStandAlone)
{
    add_bin("RECYCLER", "[root]\\RECYCLER\\");
    add(51, 41, "Dc7.txt");
    collection.carved_entries.resize(2);
    collection.carved_entries[1].raw_data =
        info2_file({{.path = u"C:\\big.txt", .number = 7}, {.number = 8}});
    EXPECT_EQ(rows(), (row_list{"C:\\big.txt |  | 51", "C:\\a.txt |  | 0"}));
}

TEST_F(VolumeRows, CarvedDataGoesBackToTheRecordThatOwnsItsClusters)
{
    add_bin("RECYCLER", "[root]\\RECYCLER\\");
    request.cluster_size = 4096;
    request.volume_offset = 0x8000;
    // Carving may have counted from the start of the medium or of the volume.
    row_list expected;
    for (const u64 offset : {0x9000, 0x9000 + 0x8000}) {
        const u64 index = add(50 + offset, 41, "INFO2");
        collection.records.extras(index).data_runs = {
            {.lcn = 3, .delta = 3, .clusters = 1},
            {.lcn = 9, .delta = 6, .clusters = 1}};
        collection.carved_entries.resize(1);
        collection.carved_entries[0].source_offset = offset;
        collection.carved_entries[0].raw_data =
            info2_file({{.path = u"C:\\big.txt", .number = 7}});
        expected.emplace_back("C:\\big.txt | S-1-5-21-7 | 0");
        EXPECT_EQ(rows(), expected) << offset;
        EXPECT_TRUE(collection.carved_entries.empty());
        collection.metadata_index.clear();
        collection.results = {};
    }
}

TEST_F(VolumeRows, OrphansGetTheVersionOfTheFirstRow)
{
    add_bin("$Recycle.Bin", "[root]\\$Recycle.Bin\\");
    add_metadata(50, 41, "$IBBBBBB", dollar_i_builder().version(2).bytes());
    add_metadata(51, 41, "$IAAAAAA", dollar_i_builder().version(1).bytes());
    add(52, 41, "$RORPHAN");
    EXPECT_EQ(rows().size(), 3u);
    EXPECT_EQ(collection.results.in_order().back()->deleted_path,
              "[root]\\$Recycle.Bin\\S-1-5-21-7\\$RORPHAN");
    EXPECT_EQ(collection.results.in_order().back()->version, 1u);
}

TEST(DataFileKey, FollowsTheNamesThatWindowsGives)
{
    const auto key = [](const char *path, u32 drive, u32 number, const char *metadata) {
        trash_entry entry;
        entry.deleted_path = path;
        entry.drive_number = drive;
        entry.record_number = number;
        const data_file_keys keys = data_file_key(entry, metadata);
        return keys.key + "," + keys.second_key;
    };
    EXPECT_EQ(key("C:\\a.txt", 0, 0, "$IAB12CD.TXT"), "$rab12cd.txt,");
    EXPECT_EQ(key("C:\\a.b.Txt", 2, 7, "INFO2"), "dc7.Txt,dc7");
    EXPECT_EQ(key("C:\\dir.d\\file", 2, 7, "INFO2"), "dc7,dc7");
    EXPECT_EQ(key("c/dir.d/file", 25, 4294967295, "INFO2"),
              "dz4294967295,dz4294967295");
    EXPECT_EQ(key("a.txt", 0, 7, "INFO2"), "d7.txt,d7");
    EXPECT_EQ(key("a.txt", 0, 7, "$"), "$,");
}

// What one path becomes, and under which name its data is filed.
struct path_case {
    const char *path;
    bool taken;
    const char *data_name;
};

TEST(RegisterFile, KnowsMetadataAndDataByTheirPaths)
{
    const std::vector<path_case> cases = {
        {"", false, ""},
        {"C:\\$Recycle.Bin\\S-1-5-21-1\\$IAB12CD.txt", true, ""},
        {"/x/$Recycle.Bin/S-1-5-21-1/$RAB12CD.TXT", true, "$rab12cd.txt"},
        {"/x/$Recycle.Bin/S-1-5-21-1/$RAB12CD/sub/a.txt", true, "$rab12cd"},
        {"/x/S-1-12-1-9/$RAB12CD.txt", true, "$rab12cd.txt"}, // a cloud account
        {"/x/$Recycle.Bin/$RAB12CD.txt", true, ""},           // no user above it
        {"/x/$Recycle.Bin/S-1-5-21-1/desktop.ini", true, ""},
        {"/x/MYINFO2.BAK", true, ""},
        {"/x/S-1-5-21-1/$iab12cd.txt", false, ""},
        {"/x/RECYCLER/S-1-5-21-1/Dc1.txt", false, ""},
    };
    for (const path_case &one : cases) {
        _trash_inodes collection;
        EXPECT_EQ(register_file(collection, one.path, false) != no_index, one.taken)
            << one.path;
        const auto &names = collection.m_r_indexes;
        EXPECT_EQ(names.empty() ? "" : names.begin()->first, one.data_name) << one.path;
    }
}

TEST(RegisterFile, TakesTheTimesOfADataFile)
{
    const temp_dir dir;
    const std::string path = dir.write_file("S-1-5-21-1/$RAB12CD", "12345");
    const timespec times[] = {{.tv_sec = 1000, .tv_nsec = 0},
                              {.tv_sec = 2000, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    _trash_inodes collection;
    const inode_record &record =
        collection.records[register_file(collection, path, false)];
    constexpr u64 second = 10000000, unix_start = 116444736000000000;
    EXPECT_EQ(record.si_accessed, unix_start + 1000 * second);
    EXPECT_EQ(record.si_modified, unix_start + 2000 * second);
    // The status changed just now; other systems' creation times aren't asked for.
    EXPECT_GT(record.si_created, unix_start + 1700000000 * second);
    EXPECT_EQ(record.real_size, 5u);
}

TEST(RegisterFile, TakesTheFirstDirectoryInsideABinAsItsRoot)
{
    _trash_inodes collection;
    EXPECT_EQ(register_file(collection, "/x/other", true), no_index);
    const u64 root = register_file(collection, "/x/$RECYCLE.BIN/S-1-5-21-1", true);
    EXPECT_EQ(collection.bin_root_index, root);
    EXPECT_EQ(collection.records.name(root), ".");
    EXPECT_EQ(register_file(collection, "/x/$RECYCLE.BIN/S-1-5-21-2", true), no_index);
    EXPECT_NE(register_file(collection, "/x/$RECYCLE.BIN/S-1-5-21-2/$RAB", true),
              no_index);
    // The "$R" of the bin's own name counts no more.
    EXPECT_EQ(register_file(collection, "/x/$RECYCLE.BIN/S-1-5-21-1/a.txt", false),
              no_index);
}

TEST(RegisterFile, ReadsNoMoreOfAFileThanItCanUse)
{
    const temp_dir dir;
    const std::string large =
        dir.write_file("$ILARGE1", text(dollar_i_builder().bytes(200000)));
    EXPECT_EQ(read_metadata_file(large).size(), 28u + 2 * 2048);
    const byte_vector bin = info2_file(std::vector<info2_item>(100));
    EXPECT_EQ(read_metadata_file(dir.write_file("INFO2", text(bin))), bin);
    // A huge file without content on disk, and what isn't a file at all.
    const std::string sparse = dir.write_file("$ISPARSE", "");
    std::filesystem::resize_file(sparse, std::uintmax_t{1} << 40);
    EXPECT_EQ(read_metadata_file(sparse).size(), 28u + 2 * 2048);
    EXPECT_TRUE(read_metadata_file(dir.path).empty());
    EXPECT_TRUE(read_metadata_file(dir / "missing").empty());
}

} // namespace
} // namespace hv

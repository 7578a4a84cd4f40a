#include "trash/resolve.h"

#include "samples/record_builders.h"
#include "support/temp_dir.h"
#include "trash/classify.h"
#include "trash/deleted_records.h"
#include "trash/register_file.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>

namespace hv {
namespace {

using namespace test_support;

// A collection as a scan of a volume leaves it.
class VolumeRows : public testing::Test {
protected:
    u64 add(u64 entry, u64 parent, std::string_view name, std::string_view path = {})
    {
        const u64 index = collection.records.add();
        collection.records.edit(index).entry = entry;
        collection.records.edit(index).first_parent = parent;
        collection.records.set_name(index, name);
        collection.records.set_path(index, path);
        return index;
    }

    u64 add_directory(u64 entry, u64 parent, std::string_view name,
                      std::string_view path)
    {
        const u64 index = add(entry, parent, name, path);
        collection.records.edit(index).is_directory = true;
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

    // Runs the end of a run and returns each row as "shown path | user | paired entry".
    std::vector<std::string> rows()
    {
        mark_bin_dirs(collection);
        classify_records(collection);
        resolve_records(collection, request);
        std::vector<std::string> texts;
        for (const trash_entry *entry : collection.results.in_order()) {
            const bool paired = entry->has_data_file;
            texts.push_back(
                (paired ? entry->restored_path : entry->deleted_path) + " | " +
                entry->user_sid + " | " +
                std::to_string(paired ? collection.records[entry->data_record].entry
                                      : 0));
        }
        return texts;
    }

    _trash_inodes collection;
    resolve_request request;
};

using row_list = std::vector<std::string>;

TEST_F(VolumeRows, PairsTheOldLayoutByDriveAndNumber)
{
    add_bin("RECYCLER", "[root]\\RECYCLER\\");
    add_metadata(50, 41, "INFO2",
                 info2_file({{.path = u"C:\\Big.TXT", .number = 7},
                             {.path = u"D:\\dir.d\\none", .number = 8, .drive = 3}}));
    // The key "dc7.TXT" keeps the case of the path; the one without extension fits.
    add_directory(51, 41, "Dc7", "[root]\\RECYCLER\\S-1-5-21-7\\Dc7\\");
    add(52, 41, "Dd8");
    EXPECT_EQ(rows(), (row_list{"C:\\Big.TXT\\ | S-1-5-21-7 | 51",
                                "D:\\dir.d\\none | S-1-5-21-7 | 52"}));
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

TEST_F(VolumeRows, CarvedRecordsFindTheirOwnerOrPairOrHaveARowAlone)
{
    add_bin("RECYCLER", "[root]\\RECYCLER\\");
    request.cluster_size = 4096;
    request.volume_offset = 0x8000;
    collection.carved_entries.resize(4);
    for (u64 i = 0; i < 2; ++i) {
        collection.records.extras(add(50 + i, 41, "INFO2")).data_runs = {
            {.lcn = 3, .clusters = 1}, {.lcn = 9 + i, .clusters = 1}};
        collection.carved_entries[i].raw_data = info2_file({{}});
    }
    // Carving may have counted from the start of the volume or of the medium.
    collection.carved_entries[0].source_offset = 0x9000;
    collection.carved_entries[1].source_offset = 0xA000 + 0x8000;
    collection.carved_entries[3].raw_data =
        info2_file({{.path = u"C:\\big.txt", .number = 7}, {.number = 8}});
    add(52, 41, "Dc7.txt");
    EXPECT_EQ(rows(),
              (row_list{"C:\\a.txt | S-1-5-21-7 | 0", "C:\\a.txt | S-1-5-21-7 | 0",
                        "C:\\big.txt |  | 52", "C:\\a.txt |  | 0"}));
    EXPECT_EQ(collection.carved_entries.size(), 2u);
}

TEST_F(VolumeRows, OrphansGetTheVersionOfTheFirstRow)
{
    add_bin("$RECYCLE.BIN", "[root]\\$RECYCLE.BIN\\");
    add_metadata(50, 41, "$IBBBBBB", dollar_i_builder().version(2).bytes());
    add_metadata(51, 41, "$IAAAAAA", dollar_i_builder().version(1).bytes());
    add_metadata(53, 41, "$I.txt", metadata(u"C:\\short.txt"));
    add(52, 41, "$RORPHAN");
    add(54, 99, "$RLOST12"); // its folder isn't known
    const row_list found = rows();
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[2], "<unk path - $RORPHAN> | S-1-5-21-7 | 52");
    const trash_entry &orphan = *collection.results.in_order().back();
    EXPECT_EQ(orphan.deleted_path, "[root]\\$RECYCLE.BIN\\S-1-5-21-7\\$RORPHAN");
    EXPECT_EQ(orphan.version, 1u);
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
    EXPECT_EQ(key("c/dir.d/file", 25, 4294967295, "INFO2"),
              "dz4294967295,dz4294967295");
    EXPECT_EQ(key("a.txt", 0, 7, "INFO2"), "d7.txt,d7");
    EXPECT_EQ(key("a.txt", 0, 7, "$"), "$,");
}

TEST(RegisterFile, KnowsMetadataAndDataByTheirPaths)
{
    // A path, whether it is taken, and under which name its data is filed.
    const std::tuple<const char *, bool, const char *> cases[] = {
        {"", false, ""},
        {"C:\\$Recycle.Bin\\S-1-5-21-1\\$IAB12CD.txt", true, ""},
        {"/x/$Recycle.Bin/S-1-5-21-1/$RAB12CD.TXT", true, "$rab12cd.txt"},
        {"/x/$Recycle.Bin/S-1-5-21-1/$RAB12CD/sub/a.txt", true, "$rab12cd"},
        {"/x/S-1-12-1-9/$RAB12CD.txt", true, "$rab12cd.txt"}, // a cloud account
        {"/x/$Recycle.Bin/$RAB12CD.txt", true, ""},           // no user above it
        {"/x/MYINFO2.BAK", true, ""},
        {"/x/S-1-5-21-1/$iab12cd.txt", false, ""},
        {"/x/RECYCLER/S-1-5-21-1/Dc1.txt", false, ""},
    };
    for (const auto &[path, is_taken, data_name] : cases) {
        _trash_inodes collection;
        EXPECT_EQ(register_file(collection, path, false) != no_index, is_taken) << path;
        const auto &names = collection.m_r_indexes;
        EXPECT_EQ(names.empty() ? "" : names.begin()->first, data_name) << path;
    }
}

TEST(RegisterFile, TakesTheTimesOfADataFile)
{
    const temp_dir dir;
    const std::string path = dir.write_file("S-1-5-21-1/$RAB12CD", "12345");
    const timespec times[] = {{1000, 0}, {2000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    _trash_inodes collection;
    const inode_record record =
        collection.records[register_file(collection, path, false)];
    EXPECT_EQ(record.si_accessed, filetime(1000, 0));
    EXPECT_EQ(record.si_modified, filetime(2000, 0));
    // The status changed just now; other systems' creation times aren't asked for.
    EXPECT_GT(record.si_created, filetime(1700000000, 0));
    EXPECT_EQ(record.real_size, 5u);
}

TEST(RegisterFile, TakesTheFirstDirectoryInsideABinAsItsRoot)
{
    _trash_inodes collection;
    const std::string bin = "/x/$RECYCLE.BIN/S-1-5-21-";
    EXPECT_EQ(register_file(collection, "/x/other", true), no_index);
    const u64 root = register_file(collection, bin + "1", true);
    EXPECT_EQ(collection.bin_root_index, root);
    EXPECT_EQ(collection.records.name(root), ".");
    EXPECT_EQ(register_file(collection, bin + "2", true), no_index);
    EXPECT_NE(register_file(collection, bin + "2/$RAB", true), no_index);
    // The "$R" of the bin's own name counts no more.
    EXPECT_EQ(register_file(collection, bin + "1/a.txt", false), no_index);
}

TEST(RegisterFile, ReadsNoMoreOfAFileThanItCanUse)
{
    const temp_dir dir;
    const byte_vector bin = info2_file(std::vector<info2_item>(100));
    EXPECT_EQ(read_metadata_file(dir.write_file("INFO2", text(bin))), bin);
    // A huge file without content on disk.
    const std::string sparse = dir.write_file("$ISPARSE", "");
    std::filesystem::resize_file(sparse, std::uintmax_t{1} << 40);
    EXPECT_EQ(read_metadata_file(sparse).size(), 28u + 2 * 2048);
}

} // namespace
} // namespace hv

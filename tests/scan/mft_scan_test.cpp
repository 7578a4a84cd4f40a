#include "scan/mft_scan.h"

#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"
#include "options/run_options.h"
#include "samples/bins.h"
#include "scan/bin_filter.h"
#include "scan/directory_paths.h"
#include "scan/find_bins.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <optional>

namespace hv {
namespace {

using namespace test_support;

// Entry 65 is a folder of the bin.
TEST(FilterRecord, DecidesWhatOfAVolumeIsKept)
{
    constexpr auto keep = filter_answer::keep;
    constexpr auto refuse = filter_answer::refuse;
    // A name, its parent, whether it is a folder, and the answers with the bin known
    // before the pass and without.
    const std::tuple<const char *, u64, bool, filter_answer, filter_answer> cases[] = {
        {"$IAB12CD.txt", 65, false, keep, keep}, {"a.txt", 66, false, refuse, keep},
        {"x", 65, false, refuse, refuse},        {"info2", 66, false, keep, keep},
        {"Users", 5, true, refuse, keep},        {"$RECYCLE.bin", 5, true, keep, keep},
        {"Recycler", 5, true, keep, keep},       {"$Recycle.Bin", 66, true, keep, keep},
        {"sub", 65, true, keep, keep},
    };
    for (const bool known : {true, false}) {
        for (const auto &[name, parent, is_directory, if_known, if_not] : cases) {
            // Of the root, only the bin is kept.
            const bool is_bin = parent == 5 && if_known == keep;
            _trash_inodes collection;
            collection.bins_known = known;
            if (known) collection.known_bin_directories = {65};
            parsed_record record;
            record.entry = 70;
            record.name = name;
            record.first_parent = parent;
            record.flags = is_directory ? file_record::flag_directory : u16{0};
            u64 budget = 0;
            filter_decision decided = filter_record(collection, record);
            load_info2(decided, record, {}, budget);
            EXPECT_EQ(decided.answer, known ? if_known : if_not)
                << name << (known ? ", bin known" : "");
            EXPECT_EQ(decided.is_bin_root, is_bin) << name;
            const bool below_bin = known && is_directory && parent == 65;
            EXPECT_EQ(decided.in_bin, is_bin || below_bin) << name;
        }
    }
}

class VolumeScan : public testing::Test {
protected:
    void open(const byte_vector &image)
    {
        volume = open_volume(dir.write_file("image", text(image)), 0);
    }

    // Scans the $MFT as if it were this many bytes longer than its runs. Returns the
    // name under which an entry is kept.
    std::string_view scan(u64 entry, u64 surplus = 0)
    {
        RAW_DISK_IO &disk = *volume->get_disk();
        const u32 record = volume->get_mft_record_size(),
                  cluster = volume->get_cluster_size();
        const u64 size = volume->get_mft_entry_count() * record;
        disk.attach_runs(cluster, volume->get_mft_runs(), size, 0);
        run_options options;
        options.progress = false;
        const inode_store &records = collection.emplace().records;
        scan_mft_store(*collection, {disk, size + surplus, record, cluster}, options);
        for (index = 0; index < records.size(); ++index)
            if (records[index].entry == entry) return records.name(index);
        return "";
    }

    const temp_dir dir;
    std::unique_ptr<CNtfs> volume;
    std::optional<_trash_inodes> collection;
    u64 index = 0; ///< of the record of that entry
};

// A file with two names, in the second of the blocks that are read one by one.
TEST_F(VolumeScan, KeepsTheFactsOfARecord)
{
    const u64 t = sample_filetime;
    ntfs_item file = bin_item(90, "file.txt", "12345");
    file.times = {t + 1, t + 2, t + 3, t + 4};
    open(empty_bin()
             .directory(bin_item(60, "other", "", 5))
             .file(file)
             .link({.entry = 90, .parent = 60, .name = "linked"})
             .link({.entry = 90, .parent = 62, .name = "last"})
             .build());
    EXPECT_EQ(scan(90, 20000), "last");
    const inode_record record = collection->records[index];
    EXPECT_EQ(std::tuple(record.entry, record.first_parent, record.real_size,
                         record.si_created, record.si_modified, record.si_mft_changed,
                         record.si_accessed),
              std::tuple(90, 60, 5, t + 1, t + 2, t + 3, t + 4));
}

// The first record of the $MFT gets damaged after the volume was opened.
TEST_F(VolumeScan, TakesTheRecordSizeOfTheVolumeForADamagedFirstRecord)
{
    const std::string content(2000, 'x'); // goes past the first 1024 bytes
    ntfs_volume built = empty_bin()
                            .record_size(4096)
                            .file(bin_item(66, "$ILONG12", content))
                            .build_volume();
    open(built.image);
    put_number(built.image, built.record_position(0) + 6, 2, 2);
    dir.write_file("image", text(built.image));
    EXPECT_EQ(scan(66), "$ILONG12");
    EXPECT_EQ(text(collection->records.extras(index).data), content);
}

// The list takes three clusters, and the last of what it names is the zone of a file.
TEST_F(VolumeScan, ReadsAListOfSeveralClusters)
{
    ntfs_volume_builder builder =
        empty_bin().cluster_size(512).file(bin_item(66, "$IAB12CD.txt"));
    for (u64 i = 0; i <= 20; ++i) {
        std::string name = "A stream with a long name " + std::to_string(i);
        if (i == 20) name = "Zone.Identifier";
        builder.stream({.entry = 66, .name = name, .data = bytes_of("ZoneId=3")})
            .move({.entry = 66, .record = 90 + i / 4, .name = name});
    }
    open(builder.list_in_clusters(66).build());
    EXPECT_EQ(scan(66), "$IAB12CD.txt");
    EXPECT_EQ(collection->records.extras_or_blank(index).zone_data.size(), 8u);
}

TEST(KeepRecord, ADeletedFolderTakesNoPlaceOfALiveOne)
{
    _trash_inodes collection;
    parsed_record record;
    record.entry = 70;
    std::vector<u64> places;
    for (const u16 use :
         {u16{0}, file_record::flag_in_use, u16{0}, file_record::flag_in_use}) {
        record.flags = file_record::flag_directory | use;
        keep_record(collection, record, 0, {}, directory_claim::of_first_pass);
        places.push_back(collection.directories.at(70));
    }
    EXPECT_EQ(places, (std::vector<u64>{0, 1, 1, 3}));
}

// An attribute list counts only for records that belong to its own, and only if its
// first entry has sense.
TEST_F(VolumeScan, ExtensionRecordsBelongToWhomTheyName)
{
    ntfs_volume built =
        empty_bin()
            .file(bin_item(66, "listed.txt", std::string(30000, 'x')))
            .move({.entry = 66, .record = 90, .type = ntfs_type::file_name})
            .move({.entry = 66, .record = 90, .type = ntfs_type::data})
            .build_volume();
    const u64 list = built.attribute_position(66, ntfs_type::attribute_list);
    constexpr u64 sequence = u64{1} << 48;
    // The base that the extension record names, its own sequence number, and the first
    // type of the list; the name in a scan, and streams and name in the engine.
    const char *const file = "listed.txt";
    const std::tuple<u64, u64, u64, const char *, int, bool> cases[] = {
        {67 | sequence, 1, 16, "", 0, false},
        {66 | 2 * sequence, 1, 16, "", 0, false},
        {0, 1, 16, "", 0, false},
        {66, 1, 16, file, 1, true}, // no sequence number to compare
        {66 | sequence, 1, 16, file, 1, true},
        {66 | sequence, 2, 16, file, 1, false}, // has another owner; the engine checks
        {66 | sequence, 1, 17, "", 1, true},    // no type; the engine reads on
    };
    for (const auto &[base, own, type, name, streams, has_name] : cases) {
        put_number(built.image, built.record_position(90) + 32, base, 8);
        put_number(built.image, built.record_position(90) + 16, own, 2);
        put_number(built.image, list + 24, type, 4);
        open(built.image);
        mft_entry analysed;
        mft_entries_ctx(*volume).analyze_entry(analysed, 66);
        const auto found = std::ranges::count_if(analysed.attributes, [](auto &each) {
            return each.second.info.is(attribute_type::data);
        });
        byte_vector record;
        INODE_STATS stats;
        volume->read_filerecord(66, record);
        volume->collect_inode_stats(byte_view{record}, stats, 66);
        EXPECT_EQ(std::tuple(scan(66), found, stats.file_name[0] == user_entry),
                  std::tuple(name, streams, has_name))
            << base << ' ' << own << ' ' << type;
    }
}

// The bin of a volume whose clusters hold more blocks of an index than are read at
// once.
TEST_F(VolumeScan, FindsBinsInEveryBlockOfAnIndex)
{
    ntfs_volume_builder builder = empty_bin().cluster_size(256 * 1024);
    builder.directory(bin_item(90, "$RDIR123"))
        .directory(bin_item(91, "sub", "", 90))
        .file(bin_item(92, "deep.txt", "", 91));
    std::set<u64> files = {92};
    for (u64 entry = 100; entry < 1700; ++entry) {
        builder.file(bin_item(entry, std::string(20, 'x') + std::to_string(entry)));
        files.insert(entry);
    }
    open(builder.build());
    EXPECT_TRUE(find_recycle_bins(collection.emplace(), *volume, {}));
    EXPECT_EQ(collection->known_bin_files, files);
    EXPECT_EQ(collection->known_bin_directories, (std::set<u64>{user_entry, 90, 91}));
}

// Directories below each other, below nothing known, and below themselves.
TEST(DirectoryPaths, AreBuiltFromTheRootDown)
{
    const auto add = [](_inode_collection &to, u64 entry, u64 parent,
                        const char *name) {
        const u64 index = to.directories[entry] = to.records.add();
        to.records.edit(index).entry = entry;
        to.records.edit(index).first_parent = parent;
        to.records.set_name(index, name);
    };
    // The entry, its parent and name, the path, and whether that is complete.
    const std::tuple<u64, u64, const char *, const char *, bool> cases[] = {
        {5, 5, ".", "[root]/", true},
        {10, 11, "deep", "[root]\\a\\deep\\", true},
        {11, 5, "a", "[root]\\a\\", true},
        {12, 0xa3f1, "b", "[unk_inode_0x0000a3f1]\\b\\", false},
        {13, 12, "c", "[unk_inode_0x0000a3f1]\\b\\c\\", false},
        {14, 11, "", "[root]\\a\\[unk_inode_0x0000000e]\\", true},
        {20, 21, "x", "y\\x\\", false},
        {21, 20, "y", "y\\", false},
        {30, no_index, "none", "none\\", false},
    };
    _inode_collection collection;
    for (const auto &[entry, parent, name, path, complete] : cases)
        add(collection, entry, parent, name);
    build_directory_paths(collection, 1 << 20);
    for (const auto &[entry, parent, name, path, complete] : cases) {
        const u64 index = collection.directories.at(entry);
        EXPECT_EQ(collection.records.path(index), path);
        EXPECT_EQ(collection.records[index].path_complete, complete) << name;
    }
    // A chain deeper than any path can be costs no more text than it is allowed.
    _inode_collection chain;
    for (u64 entry = 100; entry < 60100; ++entry) add(chain, entry, entry + 1, "dd");
    build_directory_paths(chain, 1 << 20);
    u64 bytes = 0;
    for (u64 i = 0; i < chain.records.size(); ++i)
        bytes += chain.records.path(i).size();
    EXPECT_LT(bytes, 2u << 20);
}

} // namespace
} // namespace hv

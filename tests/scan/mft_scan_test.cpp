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

#include <map>

namespace hv {
namespace {

using namespace test_support;

struct decision {
    const char *name;
    u64 parent;
    bool is_directory;
    filter_answer known;   ///< with the bin known before the pass
    filter_answer unknown; ///< without
    bool is_bin_root = false;
};

// Entry 65 is a folder of the bin.
TEST(FilterRecord, DecidesWhatOfAVolumeIsKept)
{
    constexpr auto keep = filter_answer::keep;
    constexpr auto refuse = filter_answer::refuse;
    const std::vector<decision> cases = {
        {"$IAB12CD.txt", 65, false, keep, keep},
        {"a.txt", 66, false, refuse, keep},
        {"x", 65, false, refuse, refuse},
        {"", 65, false, refuse, refuse},
        {"info2", 66, false, keep, keep},
        {"Users", 5, true, refuse, keep},
        {"$RECYCLE.bin", 5, true, keep, keep, true},
        {"Recycler", 5, true, keep, keep, true},
        {"$Recycle.Bin", 66, true, keep, keep},
        {"sub", 65, true, keep, keep},
    };
    for (const bool known : {true, false}) {
        for (const decision &one : cases) {
            _trash_inodes collection;
            collection.bins_known = known;
            if (known) collection.known_bin_directories = {65};
            parsed_record record;
            record.entry = 70;
            record.name = one.name;
            record.first_parent = one.parent;
            record.flags = one.is_directory ? file_record::flag_directory : u16{0};
            u64 budget = 0;
            filter_decision decided = filter_record(collection, record);
            load_info2(decided, record, {}, budget);
            EXPECT_EQ(decided.answer, known ? one.known : one.unknown)
                << one.name << (known ? ", bin known" : "");
            EXPECT_EQ(decided.is_bin_root, one.is_bin_root) << one.name;
            const bool below_bin = known && one.is_directory && one.parent == 65;
            EXPECT_EQ(decided.in_bin, one.is_bin_root || below_bin) << one.name;
        }
    }
}

std::map<u64, std::string> names_by_entry(const _trash_inodes &collection)
{
    std::map<u64, std::string> result;
    for (u64 i = 0; i < collection.records.size(); ++i)
        result[collection.records[i].entry] = collection.records.name(i);
    return result;
}

// Scans the $MFT of a volume, as if it were this many bytes longer than its runs.
void scan_volume(_trash_inodes &collection, const CNtfs &volume, u64 surplus = 0)
{
    RAW_DISK_IO &disk = *volume.get_disk();
    const u32 record = volume.get_mft_record_size(),
              cluster = volume.get_cluster_size();
    const u64 size = volume.get_mft_entry_count() * record;
    disk.attach_runs(cluster, volume.get_mft_runs(), size, 0);
    run_options options;
    options.progress = false;
    scan_mft_store(collection, {disk, size + surplus, record, cluster}, options);
}

// A file with two names, in the second of the blocks that are read one by one.
TEST(MftScan, KeepsTheFactsOfARecord)
{
    const u64 t = sample_filetime;
    const byte_vector image = empty_bin()
                                  .directory(bin_item(60, "other", "", 5))
                                  .file({.entry = 90,
                                         .parent = user_entry,
                                         .name = "file.txt",
                                         .data = byte_vector(5),
                                         .times = {t + 1, t + 2, t + 3, t + 4}})
                                  .link({.entry = 90, .parent = 60, .name = "linked"})
                                  .link({.entry = 90, .parent = 62, .name = "last"})
                                  .build();
    const temp_dir dir;
    const auto volume = open_volume(dir.write_file("image", text(image)), 0);
    _trash_inodes collection;
    scan_volume(collection, *volume, 20000);
    const inode_record &record = collection.records[collection.records.size() - 1];
    EXPECT_EQ(collection.records.name(collection.records.size() - 1), "last");
    EXPECT_EQ(std::tuple(record.entry, record.first_parent, record.real_size),
              std::tuple(90, 60, 5));
    EXPECT_EQ(std::tuple(record.si_created, record.si_modified, record.si_mft_changed,
                         record.si_accessed),
              std::tuple(t + 1, t + 2, t + 3, t + 4));
}

// The first record of the $MFT gets damaged after the volume was opened.
TEST(MftScan, TakesTheRecordSizeOfTheVolumeForADamagedFirstRecord)
{
    const temp_dir dir;
    ntfs_volume built =
        empty_bin().record_size(4096).file(bin_item(66, "last.txt")).build_volume();
    const std::string path = dir.write_file("image", text(built.image));
    const auto volume = open_volume(path, 0);
    put_number(built.image, built.record_position(0) + 6, 2, 2);
    dir.write_file("image", text(built.image));
    _trash_inodes collection;
    scan_volume(collection, *volume);
    EXPECT_EQ(names_by_entry(collection)[66], "last.txt");
}

// The list takes three clusters, and the last of what it names is the zone of a file.
TEST(MftScan, ReadsAListOfSeveralClusters)
{
    ntfs_volume_builder builder =
        empty_bin().cluster_size(512).file(bin_item(66, "$IAB12CD.txt"));
    const auto add_stream = [&](const std::string &name, u64 record) {
        builder.stream({.entry = 66, .name = name, .data = bytes_of("ZoneId=3")})
            .move({.entry = 66, .record = record, .name = name});
    };
    for (int i = 0; i < 20; ++i)
        add_stream("A stream with a long name " + std::to_string(i), 90 + i / 4);
    add_stream("Zone.Identifier", 99);
    const temp_dir dir;
    const auto volume = open_volume(
        dir.write_file("image", text(builder.list_in_clusters(66).build())), 0);
    _trash_inodes collection;
    scan_volume(collection, *volume);
    u64 zones = 0;
    for (u64 i = 0; i < collection.records.size(); ++i)
        zones += collection.records.extras_or_blank(i).zone_data.size();
    EXPECT_EQ(zones, 8u);
}

TEST(KeepRecord, ADeletedFolderTakesNoPlaceOfALiveOne)
{
    _trash_inodes collection;
    parsed_record record;
    record.entry = 70;
    const auto keep = [&](u16 flags) {
        record.flags = file_record::flag_directory | flags;
        keep_record(collection, record, 0, {}, directory_claim::of_first_pass);
        return collection.directories.at(70);
    };
    EXPECT_EQ(keep(0), 0u);
    EXPECT_EQ(keep(file_record::flag_in_use), 1u);
    EXPECT_EQ(keep(0), 1u);
    EXPECT_EQ(keep(file_record::flag_in_use), 3u);
}

// An attribute list counts only for records that belong to its own, and only if its
// first entry has sense.
TEST(MftScan, ExtensionRecordsBelongToWhomTheyName)
{
    ntfs_volume built =
        empty_bin()
            .file(bin_item(66, "listed.txt", std::string(30000, 'x')))
            .move({.entry = 66, .record = 90, .type = ntfs_type::file_name})
            .move({.entry = 66, .record = 90, .type = ntfs_type::data})
            .build_volume();
    const temp_dir dir;
    // The name that the scan keeps, and what the two parsers of the engine see.
    const auto found = [&] {
        const auto volume = open_volume(dir.write_file("image", text(built.image)), 0);
        mft_entry analysed;
        mft_entries_ctx(*volume).analyze_entry(analysed, 66);
        const auto streams = std::ranges::count_if(analysed.attributes, [](auto &one) {
            return one.second.info.is(attribute_type::data);
        });
        byte_vector record;
        INODE_STATS stats;
        volume->read_filerecord(66, record);
        volume->collect_inode_stats(byte_view{record}, stats, 66);
        _trash_inodes collection;
        scan_volume(collection, *volume);
        return std::tuple(names_by_entry(collection)[66], streams,
                          stats.file_name[0] == user_entry);
    };
    const auto found_with_base = [&](u64 base) {
        put_number(built.image, built.record_position(90) + 32, base, 8);
        return found();
    };
    constexpr u64 sequence = u64{1} << 48;
    const std::tuple whole("listed.txt", 1, true), parted("", 0, false);
    EXPECT_EQ(found_with_base(67 | sequence), parted);
    EXPECT_EQ(found_with_base(66 | 2 * sequence), parted);
    EXPECT_EQ(found_with_base(0), parted);
    EXPECT_EQ(found_with_base(66), whole); // no sequence number to compare
    EXPECT_EQ(found_with_base(66 | sequence), whole);
    // The record has another owner since the list was written; only the engine
    // compares.
    const u64 sequence_position = built.record_position(90) + 16;
    put_number(built.image, sequence_position, 2, 2);
    EXPECT_EQ(found(), std::tuple("listed.txt", 1, false));
    put_number(built.image, sequence_position, 1, 2);
    // No type is like this; the engine reads the list all the same.
    const u64 list = built.attribute_position(66, ntfs_type::attribute_list);
    put_number(built.image, list + 24, 17, 4);
    EXPECT_EQ(found(), std::tuple("", 1, true));
}

// The bin of a volume whose clusters hold more blocks of an index than are read at
// once.
TEST(FindBins, ReadsEveryBlockOfAnIndex)
{
    ntfs_volume_builder builder = empty_bin().cluster_size(256 * 1024);
    builder.directory(bin_item(90, "$RDIR123"))
        .directory(bin_item(91, "sub", "", 90))
        .file(bin_item(92, "deep.txt", "", 91));
    std::set<u64> files = {92};
    for (u64 entry = 100; entry < 1700; ++entry) {
        builder.file(
            bin_item(entry, "$R" + std::to_string(entry) + "of a long name.txt"));
        files.insert(entry);
    }
    const temp_dir dir;
    const std::string path = dir.write_file("image", text(builder.build()));
    const auto volume = open_volume(path, 0);
    _trash_inodes collection;
    EXPECT_TRUE(find_recycle_bins(collection, *volume, {}));
    EXPECT_EQ(collection.known_bin_files, files);
    EXPECT_EQ(collection.known_bin_directories, (std::set<u64>{user_entry, 90, 91}));
}

// Directories below each other, below nothing known, and below themselves.
TEST(DirectoryPaths, AreBuiltFromTheRootDown)
{
    struct node {
        u64 entry;
        u64 parent;
        const char *name;
        const char *path;
        bool complete;
    };
    const std::vector<node> nodes = {
        {5, 5, ".", "[root]/", true},
        {10, 11, "deep", "[root]\\a\\deep\\", true},
        {11, 5, "a", "[root]\\a\\", true},
        {12, 0xa3f1, "b", "[unk_inode_0x0000a3f1]\\b\\", false},
        {13, 12, "c", "[unk_inode_0x0000a3f1]\\b\\c\\", false},
        {14, 11, "", "[root]\\a\\[unk_inode_0x0000000e]\\", true},
        {15, 15, "self", "self\\", false},
        {20, 21, "x", "y\\x\\", false},
        {21, 20, "y", "y\\", false},
        {30, no_index, "none", "none\\", false},
    };
    _inode_collection collection;
    for (const node &one : nodes) {
        const u64 index = collection.records.add();
        collection.records[index].entry = one.entry;
        collection.records[index].first_parent = one.parent;
        collection.records.set_name(index, one.name);
        collection.directories[one.entry] = index;
    }
    build_directory_paths(collection, 1 << 20);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        EXPECT_EQ(collection.records.path(i), nodes[i].path);
        EXPECT_EQ(collection.records[i].path_complete, nodes[i].complete)
            << nodes[i].name;
    }
    // A chain deeper than any path can be costs no more text than it is allowed.
    _inode_collection chain;
    for (u64 entry = 100; entry < 60100; ++entry) {
        const u64 index = chain.records.add();
        chain.records[index].entry = entry;
        chain.records[index].first_parent = entry + 1;
        chain.records.set_name(index, "dd");
        chain.directories[entry] = index;
    }
    build_directory_paths(chain, 1 << 20);
    u64 bytes = 0;
    for (u64 i = 0; i < chain.records.size(); ++i)
        bytes += chain.records.path(i).size();
    EXPECT_LT(bytes, 2u << 20);
}

} // namespace
} // namespace hv

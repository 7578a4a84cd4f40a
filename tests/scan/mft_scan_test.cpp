#include "scan/mft_scan.h"

#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace hv {
namespace {

using namespace test_support;

struct decision {
    const char *name;
    u64 parent;
    bool is_directory;
    filter_answer known;   ///< with the bin known ahead
    filter_answer unknown; ///< without
};

// Entry 65 is a folder of the bin.
TEST(FilterRecord, DecidesWhatOfAVolumeIsKept)
{
    constexpr auto keep = filter_answer::keep;
    constexpr auto refuse = filter_answer::refuse;
    const std::vector<decision> cases = {
        {"$IAB12CD.txt", 65, false, keep, keep}, {"a.txt", 66, false, refuse, keep},
        {"x", 65, false, refuse, refuse},        {"", 65, false, refuse, refuse},
        {"info2", 66, false, keep, keep},        {"Users", 5, true, refuse, keep},
        {"$RECYCLE.bin", 5, true, keep, keep},   {"Recycler", 5, true, keep, keep},
        {"$Recycle.Bin", 66, true, keep, keep},  {"sub", 65, true, keep, keep},
    };
    for (const bool known : {true, false}) {
        for (const decision &one : cases) {
            trash_options options;
            options.bins_known = known;
            if (known) options.known_bin_directories = {65};
            parsed_record record;
            record.entry = 70;
            record.name = one.name;
            record.first_parent = one.parent;
            record.flags = one.is_directory ? file_record::flag_directory : u16{0};
            u64 budget = 0;
            EXPECT_EQ(filter_record(options, record, 3, nullptr, budget),
                      known ? one.known : one.unknown)
                << one.name << (known ? ", bin known" : "");
            const bool is_root =
                one.is_directory && one.parent == 5 && one.name != std::string("Users");
            EXPECT_EQ(options.bin_root_index, is_root ? 3 : no_index) << one.name;
        }
    }
}

// A volume and what both passes over its `$MFT` put into the store.
TEST(MftScan, BothPassesFindTheSame)
{
    const byte_vector image =
        ntfs_volume_builder()
            .mft({.fragments = 3})
            .directory({.entry = 64, .name = "$Recycle.Bin"})
            .directory({.entry = 65, .parent = 64, .name = "S-1-5-21-7"})
            .file({.entry = 66,
                   .parent = 65,
                   .name = "$IAB12CD.txt",
                   .data = dollar_i_builder().bytes()})
            .file({.entry = 67,
                   .parent = 65,
                   .name = "listed.txt",
                   .data = byte_vector(30000, 'x')})
            .move({.entry = 67, .record = 90, .type = ntfs_type::file_name})
            .build();
    const temp_dir dir;
    const auto volume = open_volume(
        dir.write_file("image", std::string(image.begin(), image.end())), 0);
    ASSERT_NE(volume, nullptr);
    std::ostringstream out;
    const auto names = [](const trash_options &options) {
        std::map<u64, std::string> result;
        for (u64 i = 0; i < options.records.size(); ++i)
            result[options.records[i].entry] = options.records.name(i);
        return result;
    };
    const auto options_for_run = [&out](trash_options &options) {
        options.progress = false;
        options.results_stream = &out;
        options.cluster_size = 4096;
    };

    trash_options store_pass;
    options_for_run(store_pass);
    RAW_DISK_IO &disk = *volume->get_disk();
    const u64 size = volume->get_mft_entry_count() * 1024;
    disk.attach_runs(4096, volume->get_mft_runs(), size, 0);
    EXPECT_TRUE(scan_mft_store(store_pass, disk, size, 1024));

    trash_options entry_pass;
    options_for_run(entry_pass);
    for (int times = 0; times < 2; ++times) // what is stored already isn't stored again
        EXPECT_TRUE(scan_mft_entries(*volume, process_mft_record, 0, 0, entry_pass));
    EXPECT_EQ(names(entry_pass), names(store_pass));
    EXPECT_EQ(entry_pass.records.size(), store_pass.records.size());
    EXPECT_EQ(names(store_pass).at(67), "listed.txt");

    trash_options some;
    options_for_run(some);
    EXPECT_TRUE(scan_mft_entries(*volume, process_mft_record, 65, 2, some));
    EXPECT_EQ(names(some),
              (std::map<u64, std::string>{{65, "S-1-5-21-7"}, {66, "$IAB12CD.txt"}}));
}

// Directories that hang together, hang in the air, or hang from each other.
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

#include "ntfs/hv_stream_reader.h"

#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <sstream>

namespace hv {
namespace {

using namespace test_support;

// Bytes that pack well in parts and not at all in others.
byte_vector content(std::size_t size)
{
    byte_vector bytes(size);
    u32 state = 7;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        bytes[i] = i / 20000 % 2 == 0 ? static_cast<u8>(i / 300)
                                      : static_cast<u8>(state >> 24);
    }
    return bytes;
}

TEST(StreamReader, ReadsEveryKindOfStream)
{
    struct stream_case {
        std::size_t size;
        ntfs_storage stored;
    };
    const std::vector<stream_case> cases = {
        {100, {}},                                           // resident
        {100000, {}},                                        // one run
        {100001, {.fragments = 7}},                          // many
        {4096, {.non_resident = true}},                      // whole clusters
        {300000, {.compressed = true}},                      // units packed and plain
        {30000, {.compressed = true}},                       // less than a unit
        {262144, {.fragments = 3, .compressed = true}},      // units across runs
        {40960, {.runs = {{hole, 3}, {900, 4}, {hole, 3}}}}, // holes
    };
    ntfs_volume_builder builder;
    for (std::size_t i = 0; i < cases.size(); ++i)
        builder.file({.entry = 64 + i,
                      .name = "file " + std::to_string(i),
                      .data = content(cases[i].size),
                      .stored = cases[i].stored});
    const byte_vector image = builder.clusters(1200).build();
    const temp_dir dir;
    const std::string path =
        dir.write_file("image", std::string(image.begin(), image.end()));
    CNtfs volume(path, 0, volume_kind::path);
    ASSERT_TRUE(volume.validate_volume());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        byte_vector expected = content(cases[i].size);
        if (i == 7) { // what no cluster holds reads as zeros
            std::fill_n(expected.begin(), 3 * 4096, u8{0});
            std::fill_n(expected.end() - 3 * 4096, 3 * 4096, u8{0});
        }
        std::ostringstream out;
        EXPECT_TRUE(read_inode_data(volume, 64 + i, out, {})) << i;
        EXPECT_TRUE(out.str() == std::string(expected.begin(), expected.end())) << i;
    }
    std::ostringstream cut;
    EXPECT_TRUE(read_inode_data(volume, 65, cut, {.max_bytes = 5000}));
    EXPECT_EQ(cut.str().size(), 5000u);
    std::ostringstream slack;
    EXPECT_TRUE(read_inode_data(volume, 65, slack, {.follow_slack = true}));
    EXPECT_EQ(slack.str().size(), 25u * 4096);
    std::ostringstream dense;
    EXPECT_TRUE(read_inode_data(volume, 71, dense, {.compact = true}));
    EXPECT_EQ(dense.str().size(), 4u * 4096) << "the holes are left out";
    std::ostringstream none;
    EXPECT_FALSE(read_inode_data(volume, 5, none, {})) << "a directory";
    EXPECT_FALSE(read_inode_data(volume, 5000, none, {})) << "no such entry";
}

TEST(Volume, KnowsItsGeometryAndWhereItsEntriesLie)
{
    struct geometry {
        u32 cluster;
        u32 record;
        u64 offset;
        u64 fragments;
    };
    for (const geometry &one : {geometry{512, 1024, 0, 30},
                                {4096, 1024, 4096, 1},
                                {65536, 4096, 512, 2},
                                {131072, 1024, 0, 1}}) {
        const ntfs_volume built = ntfs_volume_builder()
                                      .cluster_size(one.cluster)
                                      .record_size(one.record)
                                      .offset(one.offset)
                                      .mft({.fragments = one.fragments})
                                      .file({.entry = 70, .name = "x"})
                                      .build_volume();
        const temp_dir dir;
        const std::string path = dir.write_file(
            "image", std::string(built.image.begin(), built.image.end()));
        CNtfs volume(path, one.offset, volume_kind::image);
        ASSERT_TRUE(volume.validate_volume());
        EXPECT_EQ(volume.get_cluster_size(), one.cluster);
        EXPECT_EQ(volume.get_mft_record_size(), one.record);
        for (const u64 entry : {u64{0}, u64{5}, u64{70}})
            EXPECT_EQ(volume.get_entry_position(entry) + one.offset,
                      built.record_position(entry));
        EXPECT_EQ(volume.get_entry_position(u64{1} << 40), 0u);
        EXPECT_FALSE(volume.get_bitmap_inode_runlist().empty());
        EXPECT_FALSE(
            CNtfs(path, one.offset + 512, volume_kind::image).validate_volume());
    }
    EXPECT_FALSE(CNtfs("", 0, volume_kind::path).validate_volume());
    EXPECT_EQ(CNtfs("/nowhere", 0, volume_kind::path).get_mft_record_size(), 1024u);
}

} // namespace
} // namespace hv

#include "ntfs/hv_stream_reader.h"

#include "ntfs/built_volume.h"
#include "ntfs/hv_mft_entries_ctx.h"

#include <gtest/gtest.h>

#include <sstream>

namespace hv {
namespace {

using namespace test_support;

// Bytes that can be compressed in parts and not at all in others.
std::string content(std::size_t size)
{
    std::string bytes(size, '\0');
    u32 state = 7;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        bytes[i] = static_cast<char>(i / 20000 % 2 == 0 ? i / 300 : state >> 24);
    }
    return bytes;
}

// What is read of the unnamed stream of an entry; "(none)" if nothing can be.
std::string read_data(const CNtfs &volume, u64 entry,
                      const stream_options &options = {})
{
    std::ostringstream out;
    return read_inode_data(volume, entry, out, options) ? out.str() : "(none)";
}

TEST(StreamReader, ReadsEveryKindOfStream)
{
    const std::pair<std::size_t, ntfs_storage> cases[] = {
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
    u64 entry = 64;
    for (const auto &[size, stored] : cases) {
        const std::string data = content(size);
        builder.file({.entry = entry,
                      .name = "file " + std::to_string(entry),
                      .data = {data.begin(), data.end()},
                      .stored = stored});
        ++entry;
    }
    const built_volume on(builder.clusters(1200));
    for (entry = 64; entry < 72; ++entry) {
        std::string expected = content(cases[entry - 64].first);
        if (entry == 71) { // what no cluster holds reads as zeros
            const std::string zeros(3 * 4096, '\0');
            expected = zeros + expected.substr(3 * 4096, 4 * 4096) + zeros;
        }
        EXPECT_TRUE(read_data(on.volume, entry) == expected) << entry;
    }
    EXPECT_EQ(read_data(on.volume, 65, {.max_bytes = 5000}).size(), 5000u);
    EXPECT_EQ(read_data(on.volume, 65, {.follow_slack = true}).size(), 25u * 4096);
    EXPECT_EQ(read_data(on.volume, 71, {.compact = true}).size(), 4u * 4096)
        << "the holes are left out";
    EXPECT_EQ(read_data(on.volume, 5), "(none)") << "a directory";
    EXPECT_EQ(read_data(on.volume, 5000), "(none)") << "no such entry";
}

TEST(Volume, KnowsWhereItsEntriesAre)
{
    const built_volume on(ntfs_volume_builder()
                              .cluster_size(131072)
                              .record_size(4096)
                              .offset(512)
                              .mft({.fragments = 2})
                              .file({.entry = 70, .name = "x"})
                              .build_volume(),
                          512);
    EXPECT_EQ(on.volume.get_cluster_size(), 131072u);
    EXPECT_EQ(on.volume.get_mft_record_size(), 4096u);
    for (const u64 entry : {u64{0}, u64{5}, u64{70}})
        EXPECT_EQ(on.volume.get_entry_position(entry) + 512,
                  on.built.record_position(entry));
    EXPECT_EQ(on.volume.get_entry_position(u64{1} << 40), 0u);
    EXPECT_FALSE(on.volume.get_bitmap_inode_runlist().empty());
    EXPECT_FALSE(CNtfs(on.path, 0, volume_kind::image).validate_volume());
    EXPECT_FALSE(CNtfs("", 0, volume_kind::path).validate_volume());
    EXPECT_EQ(CNtfs("/nowhere", 0, volume_kind::path).get_mft_record_size(), 1024u);
}

} // namespace
} // namespace hv

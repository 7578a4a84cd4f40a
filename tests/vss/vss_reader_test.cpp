#include "vss/hv_vss_reader.h"

#include "ntfs/hv_data_run.h"
#include "ntfs/hv_file_record.h"
#include "samples/shadow_structures.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

using namespace hv;
using namespace test_support;

constexpr u32 fwd = 1, overlay = 2, not_used = 4;
constexpr u64 block = shadow_block_size;
const u64 K10 = shadow_kept(1, 0), K11 = shadow_kept(1, 1), K20 = shadow_kept(2, 0);
const u64 L0 = shadow_live, L1 = L0 + block, L2 = L1 + block, L3 = L2 + block;
const u64 list_1 = shadow_area(1) + block;

// A volume with some stores, and a container for it.
struct snapshot_volume {
    snapshot_volume(const std::vector<shadow_store_plan> &plans, u64 first_number = 1)
    {
        const byte_vector image = shadow_volume(plans, first_number);
        bytes.assign(image.begin(), image.end());
        path = dir.write_file("volume", bytes);
        container.report_live_reads = false;
    }

    // What a read delivers: the offset that each stretch of sectors came from, with
    // their count; "0" for zeros.
    std::string read(u64 snapshot, u64 offset, bool include_flag_8 = false)
    {
        u32 length = 0;
        if (!container.read_data_raw(buffer, length, snapshot, offset, include_flag_8))
            return "-";
        return describe(length);
    }
    std::string describe(u32 length) const
    {
        std::ostringstream text;
        u64 from = 0, next = ~u64{0}, count = 0;
        for (u32 at = 0; at < length; at += 512) {
            const u64 stamp = byte_view{buffer}.read_padded<u64>(at);
            if (stamp != next && count != 0)
                text << std::hex << from << std::dec << '*' << count << ' ';
            if (stamp != next) from = stamp, count = 0;
            next = stamp == 0 ? 0 : stamp + 512, ++count;
        }
        text << std::hex << from << std::dec << '*' << count;
        return text.str();
    }
    void overwrite(u64 at, char value) const
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(at)).put(value);
    }

    temp_dir dir;
    std::string bytes;
    std::string path;
    vss_container container;
    std::vector<u8> buffer;
};

struct read_case {
    const char *name;
    shadow_store_plan one;
    shadow_store_plan two;
    const char *expected; ///< of snapshot 1
    bool include_flag_8 = false;
    bool inverted = false;
};

TEST(VssReader, BlocksOfSnapshot1)
{
    // Kept: 114000 and 118000 by store 1, 194000 by store 2. Live: 200000, 204000...
    // clang-format off
    const std::vector<read_case> cases = {
        {"Plain", {{{L0, K10}}}, {}, "114000*32"},
        {"OverlayBehindPlain", {{{L0, K10}, {L0, K11, overlay, 3}}}, {}, "118000*2 114400*30"},
        {"EarlierWins", {{{L0, K10, overlay, 3}, {L0, K11, overlay, 6}}}, {},
         "114000*2 118400*1 200600*29"},
        {"OverlayNextStoreAndLive", {{{L0, K10, overlay, 3}}}, {{{L0, K20, overlay, 15}}},
         "114000*2 194400*2 200800*28"},
        {"LastSector", {{{L0, K10, overlay, 1u << 31}}}, {{{L0, K20}}}, "194000*31 117e00*1"},
        {"OfNextStore", {}, {{{L0, K20}}}, "194000*32"},
        {"PlainOfSomeSectors", {{{L0, K10, 0, 1}}}, {}, "114000*1 200200*31"},
        {"Forwarder", {{{L0, 0, fwd, 0, L1}, {L1, K11}}}, {{{L0, K20}}}, "204000*32"},
        {"ForwarderTwice", {{{L0, 0, fwd, 0, L1}}}, {{{L1, 0, fwd, 0, L2}}}, "208000*32"},
        {"ForwarderCycle", {{{L0, 0, fwd, 0, L1}, {L1, 0, fwd, 0, L0}}},
         {{{L1, 0, fwd, 0, L0}, {L0, 0, fwd, 0, L1}}}, "200000*32"},
        {"OverlayOverForwarder", {{{L0, 0, fwd, 0, L1}, {L0, K10, overlay, 1}}}, {},
         "114000*1 204200*31"},
        {"OverlayForwards", {{{L0, K10, fwd | overlay, 1, L1}}}, {}, "204000*1 200200*31"},
        {"NotUsed", {{{L0, K10, not_used}, {L0, K11}}}, {}, "118000*32"},
        {"Flag8Unasked", {{{L0, K10, 8}}}, {}, "200000*32"},
        {"Flag8Asked", {{{L0, K10, 8}}}, {}, "114000*32", true},
        {"Flag8AmongOthers", {{{L0, K10, 0x88}}}, {}, "114000*32"},
        {"SecondListBlock", {{{L1, K10}}, {{L0, K11}}}, {}, "118000*32"},
        {"BitHidesOverlay", {{{L0, K10, overlay, 1}}, {}, {L0}}, {}, "200000*32"},
        {"BitHidesNoPlain", {{{L0, K10}}, {}, {L0}}, {}, "114000*32"},
        {"BitOfNextStore", {}, {{{L0, K20, 0x88}}, {}, {L0}}, "194000*32"},
        {"FreeNowOnly", {{}, {}, {L0}}, {}, "200000*32"},
        {"Free", {{}, {}, {L0}, {L0, L1}}, {}, "0*32"},
        {"FreeButKeptLater", {{}, {}, {L0}, {L0}}, {{{L0, K20, overlay, 1}}}, "194000*1 0*31"},
        {"FreeForNextStore", {}, {{}, {}, {L0}, {L0}}, "200000*32"},
        {"ForwarderToFree", {{{L0, 0, fwd, 0, L1}}}, {{}, {}, {L1}, {L1}}, "0*32"},
        {"InvertedUsed", {{}, {}, {L0}, {L0}}, {}, "200000*32", false, true},
        {"InvertedFree", {}, {}, "0*32", false, true},
    };
    // clang-format on
    for (const read_case &one : cases) {
        snapshot_volume volume({one.one, one.two});
        volume.container.inverted_bitmap = one.inverted;
        EXPECT_TRUE(volume.container.init(volume.path, 0, true)) << one.name;
        EXPECT_EQ(volume.read(1, L0, one.include_flag_8), one.expected) << one.name;
    }
}

TEST(VssReader, EdgesAndReports)
{
    // Numbers that begin with 7: the snapshots before were deleted.
    snapshot_volume volume({{{{L0, K10}, {L1, 0, fwd, 0, L2}}}, {{{L2, K20}}}}, 7);
    vss_container &container = volume.container;
    u32 length = 0;
    ASSERT_TRUE(container.init(volume.path, 0, true));
    ASSERT_EQ(container.store_count(), 2u);
    EXPECT_EQ(container.store(1)->store_number, 7u);
    EXPECT_EQ(volume.read(1, L0 + 0x600), "114600*29");
    EXPECT_EQ(volume.read(1, L3 + 0x3E00), "20fe00*1");
    EXPECT_EQ(volume.read(3, L0), "-");
    // The image ends with the copy of the boot sector, 512 bytes behind the clusters.
    EXPECT_TRUE(container.read_data_raw(volume.buffer, length, 1, 0x300000) &&
                length == 512);
    EXPECT_EQ(volume.read(1, 0x304000), "-");
    EXPECT_EQ(volume.read(1, ~u64{0}), "-");

    const std::string line =
        "vss_container::read_data_raw - !snap || !pull_descriptors_at_vol_offset\n";
    std::ostringstream dump;
    container.dump = &dump;
    container.report_live_reads = true;
    testing::internal::CaptureStdout();
    volume.read(0, L0);
    volume.read(1, L0);
    volume.read(1, L3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
    EXPECT_EQ(dump.str(), "offset [image]: 0x00200000\n"
                          "offset [image/vss]: 0x00114000\n"
                          "offset [image]: 0x0020c000\n");

    vss_descriptor_set set;
    EXPECT_TRUE(container.pull_descriptors_at_vol_offset(set, L1, 1, true, true));
    ASSERT_EQ(set.size(), 2u);
    EXPECT_EQ(set[1].store, 2u);
    EXPECT_FALSE(container.pull_descriptors_at_vol_offset(set, L2, 1, false, true));

    container.report_live_reads = false;
    const u64 reference = u64{1} << 48 | 41;
    container.attach_file(reference, 1,
                          {{.lcn = L0 / 4096, .vcn = 0, .clusters = 5},
                           {.vcn = 5, .is_sparse = true, .clusters = 1}});
    ASSERT_TRUE(
        container.read_snapshot_file(volume.buffer, length, reference, 512, 1 << 20));
    EXPECT_EQ(volume.describe(length), "114200*31 194000*8 0*8");
    ASSERT_TRUE(container.read_snapshot_file(volume.buffer, length, 0, 0, 512));
    EXPECT_EQ(volume.describe(length), "200000*1") << "the same file now";
    volume.buffer = {};
    EXPECT_TRUE(
        container.read_snapshot_file(volume.buffer, length, 0, 0, 2'000'000'000));
    EXPECT_EQ(length, 24576u) << "six clusters, whatever was asked for";
    EXPECT_LT(volume.buffer.size(), 2 * block + 24576);
    // Without the blocks, nothing of an earlier use is left.
    EXPECT_TRUE(container.init(volume.path, 0, false));
    EXPECT_EQ(volume.read(1, L0), "200000*32");
    EXPECT_FALSE(container.init(volume.path, 512, true));
    EXPECT_EQ(volume.read(0, L0), "-");
}

// The list's second block is away: what the first one has stays, and the loss is told.
TEST(VssReader, DamagedChains)
{
    for (const u64 next : {list_1, K10, u64{1} << 40, ~u64{0}}) {
        snapshot_volume volume({{.first = {{L0, K10}}, .next = next}});
        EXPECT_FALSE(volume.container.init(volume.path, 0, true)) << next;
        EXPECT_EQ(volume.read(1, L0), "114000*32") << next;
    }
    snapshot_volume volume({{{{L0, u64{1} << 40}, {L1, ~u64{0}, overlay, 1}}}});
    EXPECT_TRUE(volume.container.init(volume.path, 0, true));
    EXPECT_EQ(volume.read(1, L0), "-") << "what was kept is out of reach";
    EXPECT_EQ(volume.read(1, L1), "-");
}

// Whatever a descriptor says, and wherever the image is cut, reads end within bounds.
TEST(VssReader, AnyDamage)
{
    snapshot_volume volume({{{{L0, K10, 0, 0, L1}}}, {{{L1, K20, overlay, 1}}}});
    const auto survives = [&] {
        vss_container container;
        container.report_live_reads = false;
        container.init(volume.path, 0, true);
        u32 length = 0;
        for (const u64 at : {u64{0}, L0, L1, L2})
            for (const u64 snapshot : {1, 2})
                EXPECT_TRUE(
                    !container.read_data_raw(volume.buffer, length, snapshot, at) ||
                    (length != 0 && length <= block));
    };
    for (u64 at = list_1 + 32; at < list_1 + 128 + 32; ++at) {
        for (const char value : {'\0', '\1', '\xFF'}) {
            volume.overwrite(at, value);
            survives();
        }
        volume.overwrite(at, volume.bytes[at]);
    }
    for (u64 size = 0x300000; size > 0x80000; size -= 0x3E00) {
        std::filesystem::resize_file(volume.path, size);
        survives();
    }
}

// MD5 of the whole volume as its two snapshots saw it.
TEST(VssReader, VolumeOfWindows)
{
    const char *fixtures = std::getenv("VESKIT_FIXTURES");
    if (fixtures == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    const temp_dir dir;
    const std::string unpack = std::string("xz -dc '") + fixtures +
                               "/vss/vsstest.raw.xz' | cp --sparse=always /dev/stdin " +
                               dir / "raw" + " && test -s " + dir / "raw";
    if (std::system(unpack.c_str()) != 0) GTEST_SKIP() << "xz or the volume is missing";
    vss_container container;
    container.report_live_reads = false;
    ASSERT_TRUE(container.init(dir / "raw", 0, true));
    std::vector<u8> buffer;
    u32 length = 0;
    const char *digests[] = {"bc15e5100f13f4c804374219c83fd9bf",
                             "954000990defd14eda14d8b08c3392ae"};
    for (const u64 snapshot : {1, 2}) {
        FILE *md5 = popen(("md5sum > " + dir / "sum").c_str(), "w");
        for (u64 at = 0; at < u64{1} << 30; at += block) {
            ASSERT_TRUE(container.read_data_raw(buffer, length, snapshot, at)) << at;
            ASSERT_EQ(std::fwrite(buffer.data(), 1, length, md5), block);
        }
        pclose(md5);
        std::string sum;
        std::ifstream(dir / "sum") >> sum;
        EXPECT_EQ(sum, digests[snapshot - 1]);

        // The root holds "syslog", of 6 units, then "syslog.gz".
        std::vector<disk_run> runs;
        data_run_list listed;
        ASSERT_TRUE(
            container.read_snapshot_file(buffer, length, snapshot, 5 * 1024, 1024));
        for_each_attribute(byte_view{buffer}.clip(0, length), [&](attribute_ref one) {
            if (one.is(attribute_type::index_allocation))
                decode_attribute_runs(one.bytes(), listed);
            return true;
        });
        runs_to_cluster_runs(listed, runs);
        container.attach_file(~u64{0}, snapshot, runs);
        ASSERT_TRUE(container.read_snapshot_file(buffer, length, ~u64{0}, 0, 1 << 20));
        const std::string index(buffer.begin(), buffer.begin() + length);
        const std::size_t found = index.find({"s\0y\0s\0l\0o\0g\0", 12});
        ASSERT_NE(found, std::string::npos);
        EXPECT_EQ(index[found - 2], snapshot == 1 ? 6 : 9);
    }
}

} // namespace

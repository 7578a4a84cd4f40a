#include "vss/hv_vss_reader.h"

#include "ntfs/hv_data_run.h"
#include "ntfs/hv_file_record.h"
#include "samples/shadow_structures.h"
#include "support/fixtures.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <tuple>

namespace {

using namespace hv;
using namespace test_support;

constexpr u64 block = shadow_block_size;
constexpr u64 list_1 = shadow_area(1) + block;
constexpr u64 live(u64 index)
{
    return shadow_live + index * block;
}

// A store in words. "L0=114000": the block at live(0) is kept at 0x114000. With "~"
// only the sectors of a bitmap are, as in "L0~118000:3"; ">" is a forwarder. "!88" sets
// more flags. "|" starts the second block of the list; "next:0" says where that is
// instead. "free:200000" and "before:200000" set a bit in the bitmap and the previous
// bitmap.
shadow_store_plan plan_of(const std::string &text)
{
    shadow_store_plan plan;
    auto *list = &plan.first;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const auto hex_after = [&](char mark) -> u64 {
            const std::size_t at = word.find(mark);
            return at == word.npos ? 0 : std::stoull(word.substr(at + 1), nullptr, 16);
        };
        const u64 after_colon = hex_after(':');
        if (word == "|") {
            list = &plan.second;
        } else if (word.starts_with("free")) {
            plan.free.push_back(after_colon);
        } else if (word.starts_with("before")) {
            plan.free_before.push_back(after_colon);
        } else if (word.starts_with("next")) {
            plan.next = after_colon;
        } else {
            const u64 place = hex_after(word[2]);
            const u64 kind = word[2] == '>' ? 1 : word[2] == '~' ? 2 : 0;
            list->push_back({live(static_cast<u64>(word[1] - '0')), place,
                             static_cast<u32>(kind | hex_after('!')),
                             static_cast<u32>(after_colon), place});
        }
    }
    return plan;
}

// A volume with two stores, and a container for it.
struct snapshot_volume {
    snapshot_volume(const std::string &store_1, const std::string &store_2,
                    u64 first_number = 1)
    {
        const byte_vector image =
            shadow_volume({plan_of(store_1), plan_of(store_2)}, first_number);
        bytes.assign(image.begin(), image.end());
        path = dir.write_file("volume", bytes);
        container.report_live_reads = false;
    }

    bool init() { return container.init(path, 0, vss_load::with_blocks); }
    // What a read delivers: the offset that each stretch of sectors came from, with
    // their count; "0" for zeros.
    std::string read(u64 snapshot, u64 offset, vss_flag_8 flag_8 = vss_flag_8::left_out)
    {
        u32 length = 0;
        if (!container.read_data_raw(buffer, length, snapshot, offset, flag_8))
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
    const char *store_1;
    const char *store_2;
    const char *expected; ///< of snapshot 1: the block L0; with ", " also L1
    vss_flag_8 flag_8 = vss_flag_8::left_out;
    bool inverted = false;
};

// Kept: 114000 and 118000 by store 1, 194000 by store 2. Live: 200000, 204000, 208000.
const read_case read_cases[] = {
    {"Plain", "L0=114000", "", "114000*32"},
    {"OverlayAfterPlain", "L0=114000 L0~118000:3", "", "118000*2 114400*30"},
    {"EarlierOverlay", "L0~114000:3 L0~118000:6", "", "114000*2 118400*1 200600*29"},
    {"LaterPlain", "L0=114000 L0=118000", "", "118000*32"},
    {"LaterPlainOfSomeSectors", "L0=114000 L0=118000:1", "", "118000*1 114200*31"},
    {"ThreeLevels", "L0~114000:3", "L0~194000:f", "114000*2 194400*2 200800*28"},
    {"LastSector", "L0~114000:80000000", "L0=194000", "194000*31 117e00*1"},
    {"OfNextStore", "", "L0=194000", "194000*32"},
    {"PlainOfSomeSectors", "L0=114000:1", "", "114000*1 200200*31"},
    {"NotUsed", "L0=114000:0!4 L0=118000", "", "118000*32"},
    {"Flag8Unasked", "L0=114000:0!8", "", "200000*32"},
    {"Flag8Asked", "L0=114000:0!8", "", "114000*32", vss_flag_8::included},
    {"Flag8AmongOthers", "L0=114000:0!88", "", "114000*32"},
    {"SecondListBlock", "L1=114000 | L0=118000", "", "118000*32"},

    {"MovedAndKept", "L0>204000 L1=118000", "", "118000*32, 204000*32"},
    {"KeptForBoth", "L0>204000 L1=118000", "L0=194000 L1=194000",
     "118000*32, 194000*32"},
    {"KeptBeforeTheMove", "L1=114000 L0>204000 L1=118000", "", "118000*32, 114000*32"},
    {"KeptBeforeTheMoveOnly", "L1=114000 L0>204000", "", "204000*32, 114000*32"},
    {"MovedInPart", "L0~114000:1 L0>204000 L1~118000:3", "",
     "114000*1 118200*1 204400*30, 204000*32"},
    {"MovedTwice", "L0>204000 L1>208000 L2=118000", "", "118000*32, 204000*32"},
    {"MovedAndBack", "L0>204000 L1>200000 L0=114000", "", "114000*32, 204000*32"},
    {"MovedTwiceInTwoStores", "L0>204000", "L1>208000", "208000*32, 208000*32"},
    {"MovedBackInNextStore", "L0>204000", "L1>200000 L0=194000",
     "194000*32, 194000*32"},
    {"MovedInCircles", "L0>204000 L1>200000", "L1>200000 L0>204000",
     "200000*32, 204000*32"},
    {"FirstMoveCounts", "L0>204000 L0>208000 L1=114000 L2=118000", "",
     "114000*32, 204000*32"},
    {"KeptAfterTheMove", "L0>204000 L0=114000 L1=118000", "", "114000*32, 118000*32"},
    {"KeptThenMoved", "L0=114000 L0>204000 L1=118000", "", "114000*32, 118000*32"},
    {"KeptAtBothPlaces", "L0>204000 L1=118000 L0=114000", "", "114000*32, 204000*32"},
    {"Flag8AfterTheMove", "L0>204000 L0=114000:0!8", "", "204000*32"},
    {"OverlayAfterTheMove", "L0>204000 L0~114000:1", "", "114000*1 204200*31"},
    {"OverlayAndForwarder", "L0>204000:1!2", "", "204000*1 200200*31"},

    {"BitHidesOverlay", "L0~114000:1 free:200000", "", "200000*32"},
    {"BitHidesNoPlain", "L0=114000 free:200000", "", "114000*32"},
    {"BitOfNextStore", "", "L0=194000:0!88 free:200000", "194000*32"},
    {"FreeNowOnly", "free:200000", "", "200000*32"},
    {"Free", "free:200000 before:200000 before:204000", "", "0*32"},
    {"FreeButKeptLater", "free:200000 before:200000", "L0~194000:1", "194000*1 0*31"},
    {"FreeForNextStore", "", "free:200000 before:200000", "200000*32"},
    {"MovedToFree", "L0>204000", "free:204000 before:204000", "0*32"},
    {"InvertedUsed", "free:200000 before:200000", "", "200000*32", vss_flag_8::left_out,
     true},
    {"InvertedFree", "", "", "0*32", vss_flag_8::left_out, true},
};

TEST(VssReader, BlocksOfSnapshot1)
{
    for (const read_case &row : read_cases) {
        snapshot_volume volume(row.store_1, row.store_2);
        volume.container.inverted_bitmap = row.inverted;
        EXPECT_TRUE(volume.init()) << row.name;
        const std::string expected = row.expected;
        std::string blocks = volume.read(1, live(0), row.flag_8);
        if (expected.find(", ") != expected.npos)
            blocks += ", " + volume.read(1, live(1), row.flag_8);
        EXPECT_EQ(blocks, expected) << row.name;
    }
}

TEST(VssReader, EdgesAndReports)
{
    // Numbers that start with 7: the snapshots before were deleted.
    snapshot_volume volume("L0=114000 L1>208000", "L2=194000", 7);
    vss_container &container = volume.container;
    u32 length = 0;
    ASSERT_TRUE(volume.init());
    ASSERT_EQ(container.store_count(), 2u);
    EXPECT_EQ(container.store(1)->store_number, 7u);
    EXPECT_EQ(volume.read(1, live(0) + 0x600), "114600*29");
    EXPECT_EQ(volume.read(1, live(3) + 0x3E00), "20fe00*1");
    EXPECT_EQ(volume.read(3, live(0)), "-");
    // The image ends with the copy of the boot sector, 512 bytes after the clusters.
    EXPECT_TRUE(container.read_data_raw(volume.buffer, length, 1, 0x300000));
    EXPECT_EQ(length, 512u);
    EXPECT_EQ(volume.read(1, 0x304000), "-");
    EXPECT_EQ(volume.read(1, ~u64{0}), "-");

    const std::string line =
        "vss_container::read_data_raw - !snap || !pull_descriptors_at_vol_offset\n";
    std::ostringstream dump;
    container.dump = &dump;
    container.report_live_reads = true;
    testing::internal::CaptureStdout();
    volume.read(0, live(0));
    volume.read(1, live(0));
    volume.read(1, live(3));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
    EXPECT_EQ(dump.str(), "offset [image]: 0x00200000\n"
                          "offset [image/vss]: 0x00114000\n"
                          "offset [image]: 0x0020c000\n");

    vss_descriptor_set set;
    EXPECT_TRUE(container.pull_descriptors_at_vol_offset(
        set, live(1), 1, vss_search::later_stores_too, vss_forwarders::followed));
    ASSERT_EQ(set.size(), 2u);
    EXPECT_EQ(set[1].store, 2u);
    EXPECT_FALSE(container.pull_descriptors_at_vol_offset(set, live(2), 1,
                                                          vss_search::one_store));

    container.report_live_reads = false;
    const u64 reference = u64{1} << 48 | 41;
    container.attach_file(reference, 1,
                          {{.lcn = live(0) / 4096, .vcn = 0, .clusters = 5},
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
    EXPECT_TRUE(container.init(volume.path, 0, vss_load::catalog_only));
    EXPECT_EQ(volume.read(1, live(0)), "200000*32");
    EXPECT_FALSE(container.is_complete(1));
    EXPECT_FALSE(container.init(volume.path, 512, vss_load::with_blocks));
    EXPECT_EQ(volume.read(0, live(0)), "-");
}

// Which of the snapshots from 0 to one above the count are complete.
std::string completeness(const vss_container &container)
{
    std::string text;
    for (u64 snapshot = 0; snapshot <= container.store_count() + 1; ++snapshot)
        text += container.is_complete(snapshot) ? 'y' : 'n';
    return text;
}

// The second block of the list is lost: what the first one has stays.
TEST(VssReader, DamagedChains)
{
    for (const char *next : {"104000", "114000", "10000000000", "ffffffffffffffff"}) {
        snapshot_volume volume(std::string("L0=114000 next:") + next, "");
        EXPECT_FALSE(volume.init()) << next;
        EXPECT_EQ(completeness(volume.container), "ynyn") << next;
        EXPECT_EQ(volume.read(1, live(0)), "114000*32") << next;
    }
    snapshot_volume volume("L0=10000000000 L1~ffffffffffffffff:1", "");
    EXPECT_TRUE(volume.init());
    EXPECT_EQ(volume.read(1, live(0)), "-") << "what was kept is out of reach";
    EXPECT_EQ(volume.read(1, live(1)), "-");
}

// A store with its data on another volume has no entry of type 3 in the catalog. What
// it kept is missing from its own snapshot and from earlier ones.
TEST(VssReader, StoreOnAnotherVolume)
{
    const std::tuple<u64, const char *, const char *> cases[] = {
        {1, "ynyn", "194000*32 194000*32"}, {2, "ynnn", "114000*32 200000*32"}};
    for (const auto &[lost, complete, blocks] : cases) {
        snapshot_volume volume("L0=114000", "L0=194000");
        EXPECT_TRUE(volume.init());
        EXPECT_EQ(completeness(volume.container), "yyyn");
        byte_vector entry;
        put_number(entry, 0, 3, 8);
        put_number(entry, 8, shadow_area(lost) + block, 8);
        volume.overwrite(volume.bytes.find({entry.begin(), entry.end()}), 0);
        EXPECT_FALSE(volume.init()) << lost;
        EXPECT_EQ(completeness(volume.container), complete) << lost;
        EXPECT_EQ(volume.read(1, live(0)) + " " + volume.read(2, live(0)), blocks);
    }
}

// Whatever a descriptor says, and wherever the image is cut, reads end within bounds.
TEST(VssReader, AnyDamage)
{
    snapshot_volume volume("L0=114000 L1>208000", "L1~194000:1");
    const auto survives = [&] {
        vss_container container;
        container.report_live_reads = false;
        container.init(volume.path, 0, vss_load::with_blocks);
        u32 length = 0;
        for (const u64 at : {u64{0}, live(0), live(1), live(2)})
            for (const u64 snapshot : {1, 2}) {
                const bool is_read =
                    container.read_data_raw(volume.buffer, length, snapshot, at);
                EXPECT_EQ(is_read, length != 0);
                EXPECT_LE(length, block);
            }
    };
    for (u64 at = list_1 + 32; at < list_1 + 128 + 64; ++at) {
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
    const std::string image = fixture_or_skip("vss/vsstest.raw.xz");
    const temp_dir dir;
    vss_container container;
    container.report_live_reads = false;
    ASSERT_TRUE(container.init(image, 0, vss_load::with_blocks));
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
        data_run_list listed;
        std::vector<disk_run> runs;
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

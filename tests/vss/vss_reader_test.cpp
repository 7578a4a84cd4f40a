#include "vss/hv_vss_reader.h"

#include "ntfs/hv_path_lookup.h"
#include "ntfs/ntfs.h"
#include "samples/shadow_structures.h"
#include "support/fixtures.h"
#include "vss/hv_snapshot_source.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

namespace {

using namespace hv;
using namespace test_support;

constexpr u64 block = shadow_block_size;
// The blocks of the live file.
constexpr u64 live[] = {0x200000, 0x204000, 0x208000, 0x20C000};

// "L1" is a live block; all other places are hexadecimal.
u64 place_of(const std::string &text)
{
    return text[0] == 'L' ? live[text[1] - '0'] : std::stoull(text, nullptr, 16);
}

// A store in words. "L0=114000": the block L0 is kept at 0x114000; with "~" only the
// sectors of a bitmap are, as in "L0~118000:3"; "L0>L1" is a forwarder; "!88" sets more
// flags. "|" starts the second block of the list; "next:0" says where that is instead.
// "free:L0" and "before:L0" set a bit in the bitmap and in the previous bitmap.
shadow_store_plan plan_of(const std::string &text)
{
    shadow_store_plan plan;
    auto *list = &plan.first;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const auto after = [&](char mark) {
            const std::size_t at = word.find(mark);
            return at == word.npos ? 0 : place_of(word.substr(at + 1));
        };
        switch (word[0]) {
        case '|': list = &plan.second; break;
        case 'f': plan.free.push_back(after(':')); break;
        case 'b': plan.free_before.push_back(after(':')); break;
        case 'n': plan.next = after(':'); break;
        default:
            list->push_back(
                {place_of(word), word[2] == '>' ? 0 : after(word[2]),
                 static_cast<u32>(std::string("=>~").find(word[2]) | after('!')),
                 static_cast<u32>(after(':')), after(word[2])});
        }
    }
    return plan;
}

// A volume with two stores, and a container for it.
struct snapshot_volume {
    snapshot_volume(const std::string &store_1, const std::string &store_2,
                    u64 first_number = 1)
        : bytes(text(shadow_volume({plan_of(store_1), plan_of(store_2)}, first_number)))
    {
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
        EXPECT_LE(length, block);
        return describe(length);
    }
    std::string describe(u32 length) const
    {
        std::ostringstream out;
        for (u32 at = 0, next = 0; at < length; at = next) {
            const u64 from = byte_view{buffer}.read_padded<u64>(at);
            do next += 512;
            while (next < length && byte_view{buffer}.read_padded<u64>(next) ==
                                        (from == 0 ? 0 : from + next - at));
            out << (at == 0 ? "" : " ") << std::hex << from << std::dec << '*'
                << (next - at) / 512;
        }
        return out.str();
    }

    temp_dir dir;
    std::string bytes;
    std::string path = dir.write_file("volume", bytes);
    vss_container container;
    std::vector<u8> buffer;
};

// A name, the two stores, and the block L0 of snapshot 1; after ", " also L1.
// Kept: 114000 and 118000 by store 1, 194000 by store 2. Live: 200000, 204000, 208000.
const char *const read_cases[][4] = {
    {"OverlayAfterPlain", "L0=114000 L0~118000:3", "", "118000*2 114400*30"},
    {"EarlierOverlay", "L0~114000:3 L0~118000:6", "", "114000*2 118400*1 200600*29"},
    {"LaterPlainInPart", "L0=114000 L0=118000:1", "", "118000*1 114200*31"},
    {"ThreeLevels", "L0~114000:3", "L0~194000:f", "114000*2 194400*2 200800*28"},
    {"LastSector", "L0~114000:80000000", "L0=194000", "194000*31 117e00*1"},
    {"NotUsed", "L0=114000 L0=118000:0!4", "", "114000*32"},
    {"SecondListBlock", "L1=114000 | L0=118000", "", "118000*32"},

    {"KeptForBoth", "L0>L1 L1=118000", "L0=194000 L1=194000", "118000*32, 194000*32"},
    {"MovedInPart", "L0~114000:1 L0>L1 L1~118000:3", "",
     "114000*1 118200*1 204400*30, 204000*32"},
    {"MovedTwice", "L1=114000 L0>L1 L1>L2 L2=118000", "", "118000*32, 114000*32"},
    {"MovedAndBack", "L0>L1 L1>L0 L0=114000", "", "114000*32, 204000*32"},
    {"MovedBackLater", "L0>L1", "L1>L0 L0=194000", "194000*32, 194000*32"},
    {"MovedInCircles", "L0>L1 L1>L0", "L1>L0 L0>L1", "200000*32, 204000*32"},
    {"FirstMoveCounts", "L0>L1 L0>L2 L1=114000 L2=118000", "", "114000*32, 204000*32"},
    {"KeptAfterTheMove", "L0>L1 L0=114000 L1=118000", "", "114000*32, 118000*32"},
    {"KeptThenMoved", "L0=114000 L0>L1 L1=118000", "", "114000*32, 118000*32"},
    {"Flag8AfterTheMove", "L0>L1 L0=114000:0!8", "", "204000*32"},
    {"OverlayAfterTheMove", "L0>L1 L0~114000:1", "", "114000*1 204200*31"},
    {"OverlayAndForwarder", "L0>L1:1!2", "", "204000*1 200200*31"},

    {"BitHidesOverlay", "L0~114000:1 free:L0", "", "200000*32"},
    {"BitHidesNoPlain", "L0=114000 free:L0", "", "114000*32"},
    {"BitOfNextStore", "", "L0=194000:0!88 free:L0", "194000*32"},
    {"Free", "free:L0 before:L0 before:L1", "", "0*32, 204000*32"},
    {"FreeButKeptLater", "free:L0 before:L0", "L0~194000:1", "194000*1 0*31"},
    {"FreeForNextStore", "", "free:L0 before:L0", "200000*32"},
    {"MovedToFree", "L0>L1", "free:L1 before:L1", "0*32"},
};

TEST(VssReader, BlocksOfSnapshot1)
{
    for (const auto &[name, store_1, store_2, expected] : read_cases) {
        snapshot_volume volume(store_1, store_2);
        EXPECT_TRUE(volume.init()) << name;
        std::string blocks = volume.read(1, live[0]);
        if (std::string(expected).find(',') != std::string::npos)
            blocks += ", " + volume.read(1, live[1]);
        EXPECT_EQ(blocks, expected) << name;
    }
}

TEST(VssReader, EdgesAndFiles)
{
    // Numbers that start with 7: the snapshots before were deleted.
    snapshot_volume volume("L0=114000 L1>L2", "L2=194000", 7);
    vss_container &container = volume.container;
    ASSERT_TRUE(volume.init());
    ASSERT_EQ(container.store_count(), 2u);
    EXPECT_EQ(container.store(1)->store_number, 7u);
    // At 300000 the image ends with one sector, the copy of the boot sector.
    EXPECT_EQ(volume.read(1, live[0] + 0x600), "114600*29");
    EXPECT_EQ(volume.read(1, live[3] + 0x3E00), "20fe00*1");
    EXPECT_EQ(volume.read(1, 0x300000), "205346544e9052eb*1");
    EXPECT_EQ(volume.read(1, ~u64{0}), "-");
    EXPECT_EQ(volume.read(3, live[0]), "-");

    vss_descriptor_set set;
    for (const auto search : {vss_search::later_stores_too, vss_search::one_store})
        EXPECT_EQ(container.pull_descriptors_at_vol_offset(set, live[2], 1, search),
                  search == vss_search::later_stores_too);

    u32 length = 0;
    container.attach_file(99, 1,
                          {{.lcn = live[0] / 4096, .vcn = 0, .clusters = 5},
                           {.vcn = 5, .is_sparse = true, .clusters = 1}});
    EXPECT_TRUE(container.read_snapshot_file(volume.buffer, length, 99, 512, 1 << 20));
    EXPECT_EQ(volume.describe(length), "114200*31 194000*8 0*8");
    volume.buffer = {};
    EXPECT_TRUE(container.read_snapshot_file(volume.buffer, length, 0, 0, 1U << 31));
    EXPECT_EQ(volume.describe(length), "200000*40 0*8") << "the same file now";
    EXPECT_LT(volume.buffer.size(), 2 * block + 24576);
    // Without the blocks, nothing of an earlier use is left.
    EXPECT_TRUE(container.init(volume.path, 0, vss_load::catalog_only));
    EXPECT_EQ(volume.read(1, live[0]), "200000*32");
    EXPECT_FALSE(container.init(volume.path, 512, vss_load::with_blocks));
    EXPECT_EQ(volume.read(0, live[0]), "-");
}

TEST(VssReader, OptionsAndReports)
{
    snapshot_volume volume("L0=114000 L1=118000:0!8", "");
    ASSERT_TRUE(volume.init());
    EXPECT_EQ(volume.read(1, live[1], vss_flag_8::included), "118000*32");
    std::ostringstream dump;
    volume.container.dump = &dump;
    volume.container.report_live_reads = true;
    testing::internal::CaptureStdout();
    volume.read(0, live[0]);
    volume.read(1, live[0]);
    volume.read(1, live[3]);
    volume.container.inverted_bitmap = true;
    EXPECT_EQ(volume.read(1, live[3]), "0*32");
    const std::string line =
        "vss_container::read_data_raw - !snap || !pull_descriptors_at_vol_offset\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line + line);
    EXPECT_EQ(dump.str(), "offset [image]: 0x00200000\n"
                          "offset [image/vss]: 0x00114000\n"
                          "offset [image]: 0x0020c000\n");
}

TEST(VssReader, LostStores)
{
    // The second block of a list is lost: what the first one has stays.
    for (const char *next : {"104000", "114000", "10000000000", "ffffffffffffffff"}) {
        snapshot_volume volume(std::string("L0=114000 next:") + next, "");
        EXPECT_FALSE(volume.init()) << next;
        EXPECT_FALSE(volume.container.is_complete(1)) << next;
        EXPECT_TRUE(volume.container.is_complete(2)) << next;
        EXPECT_EQ(volume.read(1, live[0]), "114000*32") << next;
    }
    // What was kept is out of reach.
    snapshot_volume beyond("L0=10000000000 L1~ffffffffffffffff:1", "");
    EXPECT_TRUE(beyond.init());
    EXPECT_TRUE(beyond.container.is_complete(0));
    EXPECT_FALSE(beyond.container.is_complete(3));
    EXPECT_EQ(beyond.read(1, live[0]) + beyond.read(1, live[1]), "--");

    // A store with its data on another volume has no entry of type 3 in the catalog.
    // Earlier snapshots lack what it kept as well.
    snapshot_volume elsewhere("L0=114000", "L0=194000 L1=198000");
    elsewhere.bytes[elsewhere.bytes.find(std::string(16, '\x77')) - 16] = 0;
    elsewhere.dir.write_file("volume", elsewhere.bytes);
    EXPECT_FALSE(elsewhere.init());
    EXPECT_FALSE(elsewhere.container.is_complete(1));
    EXPECT_EQ(elsewhere.read(1, live[0]), "114000*32");
    EXPECT_EQ(elsewhere.read(1, live[1]), "204000*32");
}

// Whatever a descriptor says, and wherever the image is cut, reads end within bounds.
TEST(VssReader, AnyDamage)
{
    snapshot_volume volume("L0=114000 L1>L2", "L1~194000:1");
    const auto read_all = [&] {
        volume.init();
        for (const u64 at : {u64{0}, live[0], live[1], live[2]}) volume.read(1, at);
    };
    const u64 list = shadow_area(1) + block + shadow_header_size;
    for (u64 at = list; at < list + 64; ++at) {
        for (const char value : {'\0', '\1', '\xFF', volume.bytes[at]}) {
            std::fstream(volume.path).seekp(std::streamoff(at)).put(value);
            read_all();
        }
    }
    for (u64 size = 0x300000; size > 0x80000; size -= 0x3E00) {
        std::filesystem::resize_file(volume.path, size);
        read_all();
    }
}

// MD5 of the whole volume as its two snapshots saw it. The first root held "syslog",
// the second one "syslog.gz".
TEST(VssReader, VolumeOfWindows)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "reads 2 GiB twice; the tests of its blocks and rows read enough";
#endif
    const std::string path = fixture_or_skip("vss/vsstest.raw.xz");
    const auto now = open_volume(path, 0);
    const auto container = std::make_shared<vss_container>();
    container->report_live_reads = false;
    ASSERT_NE(now, nullptr);
    ASSERT_TRUE(container->init(*now, vss_load::with_blocks));
    const temp_dir dir;
    std::vector<u8> buffer, same(block);
    u32 length = 0;
    for (const u64 snapshot : {1, 2}) {
        const auto source = std::make_shared<snapshot_source>(container, snapshot);
        EXPECT_EQ(source->size(), u64{1} << 30);
        FILE *md5 = popen(("md5sum >> " + dir / "sums").c_str(), "w");
        for (u64 at = 0; at < source->size(); at += block) {
            ASSERT_TRUE(container->read_data_raw(buffer, length, snapshot, at)) << at;
            ASSERT_EQ(std::fwrite(buffer.data(), 1, length, md5), block);
            source->read(at, same);
            ASSERT_TRUE(buffer == same) << at;
        }
        pclose(md5);
        const auto volume = open_volume(source, 0, parse_rules::complete());
        ASSERT_NE(volume, nullptr);
        u64 entry = 0;
        EXPECT_TRUE(find_child_by_name(5, snapshot == 1 ? "syslog" : "syslog.gz", entry,
                                       *volume));
        EXPECT_EQ(entry, 35u);
        ASSERT_TRUE(
            container->read_snapshot_file(buffer, length, snapshot, 35 * 1024, 1024));
        EXPECT_EQ(buffer[240], snapshot == 1 ? 6 : 9) << "the length of the name";
    }
    EXPECT_EQ(file_bytes(dir / "sums"), "bc15e5100f13f4c804374219c83fd9bf  -\n"
                                        "954000990defd14eda14d8b08c3392ae  -\n");
}

} // namespace

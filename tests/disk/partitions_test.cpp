#include "disk/hv_partitions.h"

#include "base/hv_string.h"
#include "disk/hv_raw_disk_io.h"
#include "samples/record_builders.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

using namespace hv;
using namespace test_support;

// clang-format off
namespace {

using rows = std::vector<std::string>;
constexpr auto no_gaps = table_gaps::off, with_gaps = table_gaps::on;
constexpr auto no_scan = table_scan::off, with_scan = table_scan::on;

// A disk of zeros with the table signature where its sector size puts it.
struct disk_bytes {
    explicit disk_bytes(u64 sectors, u32 size = 512) : bytes(sectors * size), sector_size(size)
    {
        put(size - 2, 0xAA55, 2);
    }
    disk_bytes &put(u64 at, u64 value, std::size_t width) { return put_number(bytes, at, value, width), *this; }
    disk_bytes &text(u64 at, std::string_view value) { return put_text(bytes, at, value), *this; }
    // Record `i` of the table in a sector, which gets its signature.
    disk_bytes &record(u64 sector, unsigned i, u8 type, u32 first, u32 count)
    {
        const u64 at = sector * sector_size + 446 + 16 * i;
        if (sector != 0) put(sector * sector_size + 510, 0xAA55, 2);
        return put(at + 4, type, 1).put(at + 8, first, 4).put(at + 12, count, 4);
    }
    disk_bytes &gpt(u64 slots, u64 entry_size)
    {
        return record(0, 0, 0xEE, 1, 99)
            .put(sector_size + 24, 1, 8)
            .put(sector_size + 72, 2, 8)
            .put(sector_size + 80, slots, 4)
            .put(sector_size + 84, entry_size, 4);
    }
    disk_bytes &slot(u64 at, u64 first, u64 last, std::u16string_view name)
    {
        put_utf16(bytes, at + 56, name);
        return put(at, 0x4433B9E5EBD0A0A2, 8)
            .put(at + 8, 0xC79926B7B668C087, 8)
            .put(at + 16, at, 8)
            .put(at + 32, first, 8)
            .put(at + 40, last, 8)
            .put(at + 48, 0x8000000000000005, 8);
    }
    byte_vector bytes;
    u64 sector_size;
};

rows as_rows(const partition_list &list)
{
    rows out;
    for (const partition_entry &one : list)
        out.push_back(
            std::to_string(one.start_sector) + "+" + std::to_string(one.sectors) + " " + partition_type_name(one.type) +
            (one.m_sector_size != 512 ? " *" + std::to_string(one.m_sector_size) : "") +
            (one.file_system.empty() ? "" : " =" + one.file_system) + (one.name.empty() ? "" : " '" + one.name + "'"));
    return out;
}

struct result {
    bool good = false;
    partition_list list;
};
result walk(const std::string &path, table_scan scan = no_scan, table_gaps gaps = no_gaps)
{
    result out;
    out.good = find_partitions(out.list, RAW_DISK_IO(path), scan, gaps);
    return out;
}
result walk(const disk_bytes &disk, table_scan scan = no_scan, table_gaps gaps = no_gaps)
{
    const temp_dir dir;
    return walk(dir.write_file("disk", text(disk.bytes)), scan, gaps);
}

// What a command prints; empty if it fails.
std::string output_of(const std::string &command)
{
    const temp_dir dir;
    const bool good =
        std::system(("PATH=$PATH:/usr/sbin:/sbin; " + command + " >" + dir / "out" + " 2>/dev/null").c_str()) == 0;
    std::ifstream file(good ? dir / "out" : "");
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

TEST(Partitions, AsSfdiskPrints)
{
    const temp_dir dir;
    const std::string image = dir.write_file("i", std::string(10 << 20, '\0'));
    const std::string script = dir.write_file(
        "s", "label: dos\nstart=128,size=1000,type=7\nstart=2048,size=1000,type=c\nstart=4096,size=500,type=27\n"
             "start=6144,size=14000,type=f\nsize=500,type=83\nsize=600,type=7\nsize=700,type=b\n");
    if (output_of("command -v sfdisk").empty()) GTEST_SKIP() << "sfdisk isn't there";
    const std::string dump =
        output_of("sfdisk -q --no-tell-kernel --no-reread " + image + " <" + script + " && sfdisk --dump " + image);
    rows expected, links = {"10239+601 exten", "12287+701 exten"};
    for (std::size_t at = dump.find("start="); at != std::string::npos; at = dump.find("start=", at + 1)) {
        unsigned first = 0, count = 0, type = 0;
        ASSERT_EQ(std::sscanf(dump.c_str() + at, "start=%u, size=%u, type=%x", &first, &count, &type), 3);
        expected.push_back(std::to_string(first) + "+" + std::to_string(count) + " " +
                           partition_type_name(static_cast<u16>(type)));
    }
    ASSERT_EQ(expected.size(), 7u);
    rows found = as_rows(walk(image).list);
    for (const std::string &link : links) EXPECT_EQ(std::erase(found, link), 1u) << link;
    EXPECT_EQ(found, expected);
}

// Tables for 4096-byte sectors, as they are written today: with the signature at 510.
TEST(Partitions, AsFdiskPrintsForWideSectors)
{
    if (output_of("command -v fdisk").empty()) GTEST_SKIP() << "fdisk isn't there";
    const temp_dir dir;
    const std::string image = dir.write_file("i", std::string(64 << 20, '\0'));
    const auto make = [&](const std::string &keys) {
        output_of("printf '" + keys + "' | fdisk -b 4096 " + image);
        return output_of("fdisk -b 4096 -l -o Start,Sectors " + image + " | sed '1,/^Start/d'");
    };
    const auto found = [&] {
        std::string lines;
        for (const partition_entry &one : walk(image).list)
            lines += std::to_string(one.start_sector) + " " + std::to_string(one.sectors) + " " +
                     std::to_string(one.byte_offset() / one.start_sector) + "\n";
        return lines;
    };
    const auto squeezed = [](const std::string &printed, const std::string &size) {
        std::string lines;
        u64 start = 0, sectors = 0;
        for (std::istringstream in(printed); in >> start >> sectors;)
            lines += std::to_string(start) + " " + std::to_string(sectors) + " " + size + "\n";
        return lines;
    };
    const std::string gpt = make("g\\nn\\n1\\n\\n+8M\\nn\\n2\\n\\n+16M\\nw\\n");
    EXPECT_EQ(squeezed(gpt, "4096"), "256 2048 4096\n2304 4096 4096\n");
    EXPECT_EQ(found(), squeezed(gpt, "4096"));

    std::filesystem::resize_file(image, 0);
    std::filesystem::resize_file(image, 64 << 20);
    const std::string mbr = make("o\\nn\\np\\n1\\n256\\n+99\\nn\\np\\n2\\n512\\n+299\\nt\\n2\\n7\\nw\\n");
    EXPECT_EQ(squeezed(mbr, ""), "256 100 \n512 300 \n");
    EXPECT_EQ(found(), squeezed(mbr, "512")) << "nothing says that sectors are larger";
    std::fstream file(image, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(512 * 4096 + 3) << "NTFS    " << std::string("\0\x10", 2) << std::flush;
    EXPECT_EQ(found(), squeezed(mbr, "4096"));
}

TEST(Partitions, AsSgdiskPrints)
{
    const temp_dir dir;
    const std::string image = dir.write_file("i", std::string(4 << 20, '\0'));
    if (output_of("command -v sgdisk").empty()) GTEST_SKIP() << "sgdisk isn't there";
    ASSERT_FALSE(output_of("sgdisk -o -a 1 -n 1:2048:4095 -t 1:0700 -c '1:Größe' -n 3:4096:6000 -t 3:8300 -A 3:set:2 "
                           "-c 3:b -n 4:6002:6002 -t 4:ef00 -c 4:c " +
                           image)
                     .empty());
    const auto [good, list] = walk(image);
    ASSERT_TRUE(good && list.size() == 3);
    const char *types[] = {"Microsoft basic data", "Linux filesystem", "EFI system"};
    for (std::size_t i = 0; i < 3; ++i) {
        const partition_entry &one = list[i];
        std::string type, own;
        guid_text(type, byte_view{one.type_guid});
        guid_text(own, byte_view{one.partition_guid});
        to_upper(type);
        to_upper(own);
        const std::string info = output_of("sgdisk -i " + std::to_string(i + 1 + (i != 0)) + " " + image);
        for (const std::string &line :
             {"code: " + type, "unique GUID: " + own, "First sector: " + std::to_string(one.start_sector) + " ",
              "name: '" + one.name + "'", "Last sector: " + std::to_string(one.start_sector + one.sectors - 1) + " ",
              "flags: 000000000000000" + std::to_string(one.gpt_attributes)})
            EXPECT_NE(info.find(line), std::string::npos) << line << " in " << info;
        EXPECT_TRUE(one.is_gpt && one.type == 238 && gpt_type_name(byte_view{one.type_guid}) == types[i]);
    }
}

TEST(Partitions, Fixtures)
{
    const char *root = std::getenv("VESKIT_FIXTURES");
    if (root == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    const temp_dir dir;
    const auto unpacked = [&](const std::string &name) {
        return std::system(("gzip -dc '" + (root + ("/" + name)) + "' >" + dir / "i").c_str()), dir / "i";
    };
    EXPECT_EQ(as_rows(walk(unpacked("partitions/tsk_volume_system.raw.gz")).list),
              (rows{"1+350 linux", "351+2529 exten", "352+2528 linux"}));
    const auto list = walk(unpacked("ntfs/ntfs-lastaccess.raw.gz"), no_scan, with_gaps).list;
    EXPECT_EQ(as_rows(list), (rows{"0+1 empty =mbr 'mbr'", "1+127 empty 'unalloc'", "128+518144 ntfs or exfat =ntfs",
                                   "518272+6016 empty 'unalloc'"}));
    EXPECT_TRUE(list[2].is_volume && list[2].sectors_per_cluster == 8 && list[2].volume_serial == 0x70802C0E);
}

TEST(Partitions, WalksTables)
{
    disk_bytes chain(100), itself(50), wide(10, 4096), before(2100), lost(2100), far(3000), cut(50), volume(100),
        ext(4), last(2051);
    chain.record(0, 0, 0xA0, 1, 5)
        .record(0, 1, 7, 2, 10)
        .record(0, 2, 5, 20, 70)
        .record(0, 3, 0x83, 95, 2)
        .record(20, 0, 0x83, 2, 8)
        .record(20, 1, 5, 20, 30)
        .record(40, 0, 0x0B, 3, 5)
        .record(40, 1, 5, 0, 70);
    itself.record(0, 0, 5, 20, 9).record(20, 0, 5, 0, 8).record(0, 1, 0x83, 2, 2);
    wide.record(0, 0, 7, 2, 3).record(0, 1, 15, 5, 4).record(5, 0, 0x83, 1, 2);
    before.record(0, 0, 5, 2048, 40).record(2048, 0, 0x0B, 1, 5).text(63 * 512 + 3, "NTFS    ");
    lost.put(510, 0, 2)
        .record(100, 0, 0x0B, 1, 5)
        .record(2, 0, 7, 1, 1)
        .text(2 * 512 + 3, "MSDOS5.0")
        .text(63 * 512 + 3, "NTFS    ");
    cut.record(0, 0, 5, 50, 9);
    volume.text(3, "NTFS    ").put(11, 512, 2).put(40, 99, 8);
    ext.put(510, 0, 2).put(1080, 0xEF53, 2).text(1144, "root of all evil/mnt/usb");
    far.put(510, 0, 2).record(2049, 0, 7, 1, 1);
    last.put(510, 0, 2).record(2048, 0, 7, 1, 1);
    const rows chained = {"2+10 ntfs or exfat", "20+70 exten", "22+8 linux",
                          "40+30 exten",        "43+5 fat32",  "20+70 exten"};
    const rows whole = {"0+99 ntfs or exfat =ntfs"},
               wide_rows = {"2+3 ntfs or exfat *4096", "5+4 exten *4096", "6+2 linux *4096"};
    struct walk_case {
        const char *name;
        const disk_bytes &disk;
        table_scan scan;
        bool good;
        rows expected, buffered;
    };
    for (const auto &[name, disk, scan, good, expected, buffered] :
         {walk_case{"Chain", chain, no_scan, true, chained, {}},
          {"LinkToItself", itself, no_scan, true, {"20+9 exten", "20+8 exten"}, {"20+9 exten", "20+8 exten"}},
          {"WideSectors", wide, no_scan, true, wide_rows, wide_rows},
          {"AheadOfExtended",
           before,
           no_scan,
           true,
           {"63+1985 ntfs or exfat =ntfs", "2048+40 exten", "2049+5 fat32"},
           {"2048+40 exten", "2049+5 fat32"}},
          {"Lost", lost, with_scan, true, {"63+37 fat32 [guess]", "101+5 fat32"}, {"101+5 fat32"}},
          {"LostUnscanned", lost, no_scan, false, {}, {}},
          {"LastScanned", last, with_scan, true, {"2049+1 ntfs or exfat"}, {"2049+1 ntfs or exfat"}},
          {"TooFar", far, with_scan, false, {}, {"2050+1 ntfs or exfat"}},
          {"BehindTheEnd", cut, no_scan, false, {"50+9 exten"}, {"50+9 exten"}},
          {"Volume", volume, with_scan, true, whole, whole},
          {"VolumeUnscanned", volume, no_scan, true, whole, {}},
          {"Ext", ext, no_scan, true, {"0+0 linux =ext"}, {}},
          {"ExtScanned", ext, with_scan, true, {"0+0 linux =ext"}, {"0+0 linux =ext"}}}) {
        const auto found = walk(disk, scan);
        EXPECT_TRUE(found.good == good && as_rows(found.list) == expected)
            << name << testing::PrintToString(as_rows(found.list));
        partition_list list;
        EXPECT_EQ(find_partitions_in_buffer(list, byte_view{disk.bytes}, scan), !buffered.empty()) << name;
        EXPECT_EQ(as_rows(list), buffered) << name;
    }
    EXPECT_EQ(as_rows(walk(chain, no_scan, with_gaps).list),
              (rows{"0+1 empty =mbr 'mbr'", "1+1 empty 'unalloc'", "2+10 ntfs or exfat", "12+8 empty 'unalloc'",
                    "20+70 exten", "22+8 linux", "30+10 empty 'unalloc'", "40+30 exten", "43+5 fat32", "20+70 exten",
                    "90+10 empty 'unalloc'"}));
    EXPECT_EQ(as_rows(walk(volume, with_scan, with_gaps).list), whole);
    partition_list list;
    const byte_view bytes{wide.bytes};
    EXPECT_TRUE(!find_partitions_in_buffer(list, bytes.clip(0, 4096), no_scan) &&
                find_partitions_in_buffer(list, bytes.clip(0, 4097), no_scan) && list.size() == 2);
    EXPECT_TRUE(walk(ext).list[0].volume_label == "root of all evil" && walk(ext).list[0].last_mount == "/mnt/usb");
}

TEST(Partitions, WalksGpt)
{
    disk_bytes empty(40), wide(12, 4096), many(400), ext(60), behind(60), hybrid(60);
    empty.gpt(4, 128);
    wide.gpt(4, 256)
        .slot(8192, 6, 9, u"\u00e4")
        .slot(8192 + 512, 10, 10, u"b")
        .text(6 * 4096 + 3, "NTFS    ")
        .put(6 * 4096 + 11, 4096, 2);
    many.gpt(300, 128)
        .slot(1024, 100, 109, u"first")
        .slot(1024 + 299 * 128, 200, 200, u"last")
        .text(200 * 512 + 82, "FAT32")
        .text(200 * 512 + 3, "x");
    ext.gpt(1, 128)
        .slot(1024, 50, 58, u"gone")
        .text(50 * 512 + 3, "x")
        .put(50 * 512 + 1080, 0xEF53, 2)
        .put(50 * 512 + 1028, 3, 4);
    behind.gpt(2, 128).slot(1024, 50, 59, u"a").slot(1152, 60, 70, u"b");
    hybrid.gpt(1, 128).slot(1024, 50, 1, u"backwards").record(0, 0, 7, 50, 9).record(0, 1, 0xEE, 1, 49);
    struct gpt_case {
        const char *name;
        disk_bytes disk;
        bool good;
        rows expected;
    };
    for (const auto &[name, disk, good, expected] :
         {gpt_case{"Empty", empty, false, {}},
          {"Wide", wide, true, {"6+4 ntfs or exfat *4096 =ntfs '\u00e4'", "10+1 gpt *4096 'b'"}},
          {"TwoWindows", many, true, {"100+10 gpt 'first'", "200+0 fat32 =fat32 'last'"}},
          {"ExtIsMoved", ext, true, {"0+3072 linux =ext2/3 'ext2/3'"}},
          {"BehindTheEnd", behind, false, {"50+10 gpt 'a'"}},
          {"Hybrid", hybrid, true, {"50+0 gpt 'backwards'"}},
          {"OtherHeader", disk_bytes(ext).put(512 + 24, 2, 8), false, {}},
          {"ArrayBehind", disk_bytes(ext).put(512 + 72, ~u64{0}, 8), false, {}},
          {"NoEntrySize", disk_bytes(ext).put(512 + 84, 0, 4), false, {}},
          {"HugeEntries", disk_bytes(ext).put(512 + 84, ~u32{0}, 4), true, {"0+3072 linux =ext2/3 'ext2/3'"}},
          {"EndlessByLeaps", disk_bytes(empty).put(512 + 80, ~u32{0}, 4).put(512 + 84, ~u32{0}, 4), false, {}},
          {"EndlessBytes", disk_bytes(empty).put(512 + 80, ~u32{0}, 4).put(512 + 84, 1, 4), false, {}}}) {
        const auto found = walk(disk);
        EXPECT_TRUE(found.good == good && as_rows(found.list) == expected)
            << name << testing::PrintToString(as_rows(found.list));
    }
    partition_list list;
    const temp_dir dir;
    const rows reserved = {"0+1 gpt =protective_mbr 'protective_mbr'", "1+1 gpt =gpt header 'gpt header'",
                           "2+32 gpt =gpt partition entries 'gpt partition entries'"};
    EXPECT_TRUE(find_partitions_gpt(list, RAW_DISK_IO(dir.write_file("i", text(empty.bytes))), with_gaps) &&
                as_rows(list) == reserved);
    const auto gaps = walk(empty, no_scan, with_gaps).list;
    EXPECT_TRUE(gaps.size() == 4 && gaps[3].is_gpt && as_rows(gaps)[3] == "34+6 empty 'unalloc'");
    // A medium that backs as many entries of one byte as the header wants doesn't make them entries.
    disk_bytes bytes(200);
    bytes.gpt(~u32{0}, 1);
    std::fill(bytes.bytes.begin() + 1024, bytes.bytes.end(), u8{1});
    EXPECT_TRUE(!walk(bytes).good && walk(bytes).list.size() == 200 * 512 / 128);
}

TEST(Partitions, RecognisesVolumes)
{
    struct number {
        u64 at, value;
        std::size_t width;
    };
    struct volume_case {
        const char *file_system;
        u64 name_at;
        const char *name;
        std::vector<number> numbers;
        bool good, is_volume;
        u16 type;
        u32 size, per_cluster, serial;
        u64 sectors, kept;
    };
    const number bytes{11, 4096, 2}, cluster{13, 8, 1}, magic{1080, 0xEF53, 2};
    for (const auto &[file_system, name_at, name, numbers, good, is_volume, type, size, per_cluster, serial, sectors,
                      kept] :
         {volume_case{"exfat",
                      3,
                      "EXFAT   ",
                      {{72, 1000, 8}, {100, 7, 4}, {108, 12, 1}, {109, 3, 1}},
                      true,
                      true,
                      7,
                      4096,
                      8,
                      7,
                      1000,
                      5},
          {"exfat", 3, "EXFAT   ", {{108, 200, 1}, {109, 32, 1}}, true, true, 7, 512, 0, 0, 0, 5},
          {"ntfs", 3, "NTFS    ", {bytes, cluster, {40, 77, 8}, {72, 9, 4}}, true, true, 7, 4096, 8, 9, 77, 5},
          {"ntfs", 3, "NTFS    ", {}, true, true, 7, 512, 0, 0, 0, 5},
          {"bitlocker container", 3, "-FVE-FS-", {bytes, {40, 77, 8}}, true, true, 7, 4096, 0, 0, 77, 5},
          {"fat32",
           82,
           "FAT32",
           {bytes, cluster, {3, 1, 1}, {32, 600, 4}, {67, 3, 4}},
           true,
           true,
           12,
           4096,
           8,
           3,
           600,
           600},
          {"fat16",
           54,
           "FAT16",
           {bytes, cluster, {3, 1, 1}, {32, 600, 4}, {39, 3, 4}},
           true,
           true,
           4,
           4096,
           8,
           3,
           600,
           5},
          {"ext2/3",
           3,
           "x",
           {magic, {1048, 2, 4}, {1028, 10, 4}, {1128, 4, 4}},
           true,
           true,
           131,
           512,
           8,
           4,
           40960,
           40960},
          {"ext2/3", 3, "x", {magic, {1048, 22, 4}, {1028, 10, 4}}, true, true, 131, 512, 0, 0, 0, 0},
          {"ext", 0, "x", {magic}, true, false, 131, 512, 0, 0, 0, 5},
          {"hfs+", 1024, "H+", {}, true, false, 175, 512, 0, 0, 0, 5},
          {"hfsx", 1024, "HX", {}, true, false, 175, 512, 0, 0, 0, 5},
          {"", 1024, "HZ", {cluster}, false, false, 175, 512, 8, 0, 0, 5},
          {"", 3, "FAT16   ", {magic, {1081, 0, 1}}, false, false, 1, 512, 0, 0, 0, 5}}) {
        disk_bytes volume(4);
        volume.text(name_at, name);
        for (const auto &[at, value, width] : numbers) volume.put(at, value, width);
        for (const u64 stated : {0, 5}) {
            partition_entry entry(9, stated, 1, 512);
            EXPECT_EQ(read_volume_signature(entry, byte_view{volume.bytes}), good) << file_system;
            EXPECT_EQ(std::tuple(entry.file_system, entry.is_volume, entry.type, entry.m_sector_size,
                                 entry.sectors_per_cluster, entry.volume_serial, entry.sectors),
                      std::tuple(file_system, is_volume, type, size, per_cluster, serial, stated == 0 ? sectors : kept))
                << file_system;
            EXPECT_EQ(entry.start_sector, entry.name == "ext2/3" ? 0u : 9u);
            const bool in_superblock = type == 131 || type == 175;
            EXPECT_EQ(read_volume_signature(entry, byte_view{volume.bytes}.clip(0, 512)), good && !in_superblock)
                << file_system;
        }
    }
    EXPECT_TRUE(partition_type_name(0x8007) == "ntfs or exfat [guess]" && partition_type_name(0x107) == "unk" &&
                partition_type_name(0x87) == "ntfs volume set" && partition_type_name(160) == "hibernation partition");
    EXPECT_TRUE(is_known_partition_type(0xFE) && is_known_partition_type(1) && !is_known_partition_type(0xEE) &&
                !is_known_partition_type(0) && !is_known_partition_type(0xA0));
    const std::string bios = "Hah!IdontNeedEFI";
    EXPECT_TRUE(gpt_type_name(byte_view{byte_vector(bios.begin(), bios.end())}) == "BIOS boot" &&
                gpt_type_name(byte_view{byte_vector(16)}).empty());
}

TEST(Partitions, DamageEndsTheWalk)
{
    disk_bytes chain(8), guids(8);
    chain.record(0, 0, 7, 1, 1)
        .record(0, 1, 5, 2, 6)
        .record(2, 0, 0x83, 1, 1)
        .record(2, 1, 5, 2, 3)
        .record(4, 0, 0x0B, 1, 2);
    guids.gpt(4, 128).slot(1024, 4, 7, u"a").slot(1152, 5, 5, u"b");
    const temp_dir dir;
    const auto check = [&](const byte_vector &bytes) {
        const std::string path = dir.write_file("i", text(bytes));
        const std::size_t most = 4 * (bytes.size() / 512 + 2);
        partition_list list;
        EXPECT_TRUE(find_partitions_in_buffer(list, byte_view{bytes}, with_scan) == !list.empty() &&
                    list.size() <= most);
        const auto plain = walk(path, with_scan), gaps = walk(path, with_scan, with_gaps);
        EXPECT_TRUE(plain.good <= !plain.list.empty() && plain.good <= gaps.good && plain.list.size() <= most);
        EXPECT_LE(gaps.list.size(), 2 * plain.list.size() + 7);
    };
    for (const disk_bytes &disk : {chain, guids}) {
        for (std::size_t i = 0; i < disk.bytes.size(); i += i < 2560 ? 1 : 64) {
            byte_vector bytes = disk.bytes;
            bytes[i] ^= 0xFF;
            check(bytes);
            check({disk.bytes.begin(), disk.bytes.begin() + static_cast<std::ptrdiff_t>(i)});
        }
    }
}

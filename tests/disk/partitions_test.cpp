#include "disk/hv_partitions.h"

#include "base/hv_string.h"
#include "disk/hv_raw_disk_io.h"
#include "samples/record_builders.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

using namespace hv;
using namespace test_support;

namespace {

constexpr auto no_gaps = table_gaps::off, with_gaps = table_gaps::on;
constexpr auto no_scan = table_scan::off, with_scan = table_scan::on;

// A disk of zeros with the table signature where its sector size puts it.
struct disk_bytes {
    explicit disk_bytes(u64 sectors, u32 size = 512)
        : bytes(sectors * size),
          sector_size(size)
    {
        put(size - 2, 0xAA55, 2);
    }
    disk_bytes &put(u64 at, u64 value, std::size_t width)
    {
        return put_number(bytes, at, value, width), *this;
    }
    disk_bytes &text(u64 at, std::string_view value)
    {
        return put_text(bytes, at, value), *this;
    }
    disk_bytes &unsign() { return put(sector_size - 2, 0, 2); }
    // The records of tables: "SECTOR: TYPE FIRST+COUNT, TYPE FIRST+COUNT; SECTOR: ...",
    // with types in hexadecimal. Each table gets its signature.
    disk_bytes &tables(const std::string &description)
    {
        std::istringstream in(description);
        u64 sector = 0, type = 0, first = 0, count = 0;
        for (char mark = 0; in >> sector >> mark;) {
            if (sector != 0) put(sector * sector_size + 510, 0xAA55, 2);
            for (u64 at = sector * sector_size + 450; mark == ':' || mark == ',';
                 at += 16) {
                in >> std::hex >> type >> std::dec >> first >> mark >> count;
                put(at, type, 1).put(at + 4, first, 4).put(at + 8, count, 4);
                if (!(in >> mark)) mark = ';';
            }
        }
        return *this;
    }
    disk_bytes &gpt(u64 slots, u64 entry_size)
    {
        tables("0: ee 1+99");
        put(sector_size + 24, 1, 8).put(sector_size + 72, 2, 8);
        return put(sector_size + 80, slots, 4).put(sector_size + 84, entry_size, 4);
    }
    disk_bytes &slot(u64 at, u64 first, u64 last, std::u16string_view name)
    {
        put_utf16(bytes, at + 56, name);
        put(at, 0x4433B9E5EBD0A0A2, 8).put(at + 8, 0xC79926B7B668C087, 8);
        put(at + 16, at, 8).put(at + 32, first, 8).put(at + 40, last, 8);
        return put(at + 48, 0x8000000000000005, 8);
    }
    byte_vector bytes;
    u64 sector_size;
};

// "START+COUNT TYPE *SECTOR_SIZE =FILE_SYSTEM 'NAME'" of each entry, one a line.
std::string as_text(const partition_list &list)
{
    std::ostringstream out;
    for (const partition_entry &entry : list) {
        out << entry.start_sector << '+' << entry.sectors << ' '
            << partition_type_name(entry.type);
        if (entry.m_sector_size != 512) out << " *" << entry.m_sector_size;
        if (!entry.file_system.empty()) out << " =" << entry.file_system;
        if (!entry.name.empty()) out << " '" << entry.name << '\'';
        out << '\n';
    }
    return out.str();
}

// The entries as text, with "failed\n" before them after a failure.
std::string walk(const std::string &path, table_scan scan = no_scan,
                 table_gaps gaps = no_gaps)
{
    partition_list list;
    const bool good = find_partitions(list, RAW_DISK_IO(path), scan, gaps);
    return (good ? "" : "failed\n") + as_text(list);
}

std::string walk(const disk_bytes &disk, table_scan scan = no_scan,
                 table_gaps gaps = no_gaps)
{
    const temp_dir dir;
    return walk(dir.write_file("disk", text(disk.bytes)), scan, gaps);
}

} // namespace

TEST(Partitions, WalksWhatSfdiskWrites)
{
    const temp_dir dir;
    const std::string image = dir.write_file("i", std::string(10 << 20, '\0'));
    const std::string script = dir.write_file(
        "s", "label: dos\nstart=128,size=1000,type=7\nstart=2048,size=1000,type=c\n"
             "start=4096,size=500,type=27\nstart=6144,size=14000,type=f\n"
             "start=8192,size=500,type=83\nstart=10240,size=600,type=7\nstart=12288,"
             "size=700,type=b\n");
    const std::string command =
        "PATH=$PATH:/usr/sbin:/sbin; sfdisk -q --no-tell-kernel --no-reread " + image +
        " <" + script;
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "sfdisk doesn't run";
    EXPECT_EQ(walk(image),
              "128+1000 ntfs or exfat\n2048+1000 fat32\n4096+500 hidden ntfs\n"
              "6144+14000 exten\n8192+500 linux\n10239+601 exten\n"
              "10240+600 ntfs or exfat\n12287+701 exten\n12288+700 fat32\n");
}

TEST(Partitions, WalksWhatSgdiskWrites)
{
    const temp_dir dir;
    const std::string image = dir.write_file("i", std::string(4 << 20, '\0'));
    const std::string own_guid = "00112233-4455-6677-8899-aabbccddeeff";
    const std::string command =
        "PATH=$PATH:/usr/sbin:/sbin; sgdisk -o -a 1 -n 1:2048:4095 -t 1:0700 -c "
        "'1:Größe' -n 3:4096:6000 -t 3:8300 -A 3:set:2 -c 3:b -u 3:" +
        own_guid + " -n 4:6002:6002 -t 4:ef00 -c 4:c " + image + " >/dev/null";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "sgdisk doesn't run";
    EXPECT_EQ(walk(image),
              "2048+2048 gpt 'Größe'\n4096+1905 gpt 'b'\n6002+1 gpt 'c'\n");
    partition_list list;
    ASSERT_TRUE(find_partitions_gpt(list, RAW_DISK_IO(image), no_gaps));
    const char *types[] = {"Microsoft basic data", "Linux filesystem", "EFI system"};
    for (std::size_t i = 0; i < list.size(); ++i)
        EXPECT_EQ(gpt_type_name(byte_view{list[i].type_guid}), types[i]);
    std::string own;
    EXPECT_TRUE(guid_text(own, byte_view{list.at(1).partition_guid}));
    EXPECT_EQ(own, own_guid);
    EXPECT_EQ(list.at(1).gpt_attributes, 4U);
}

TEST(Partitions, WalksTables)
{
    disk_bytes chain(100), itself(50), wide(10, 4096), before(2100), lost(2100),
        far(3000), cut(50), volume(100), ext(4), last(2051), low(10, 4096);
    chain.tables("0: a0 1+5, 7 2+10, 5 20+70, 83 95+2; 20: 83 2+8, 5 20+30;"
                 "40: b 3+5, 5 0+70");
    itself.tables("0: 5 20+9, 83 2+2; 20: 5 0+8");
    wide.tables("0: 7 2+3, f 5+4; 5: 83 1+2");
    before.tables("0: 5 2048+40; 2048: b 1+5").text(63 * 512 + 3, "NTFS    ");
    lost.unsign().tables("100: b 1+5; 2: 7 1+1");
    lost.text(2 * 512 + 3, "MSDOS5.0").text(63 * 512 + 3, "NTFS    ");
    cut.tables("0: 5 50+9");
    volume.text(3, "NTFS    ").put(11, 512, 2).put(40, 99, 8);
    ext.unsign().put(1080, 0xEF53, 2).text(1144, "root of all evil/mnt/usb");
    far.unsign().tables("2049: 7 1+1");
    last.unsign().tables("2048: 7 1+1");
    // As fdisk writes them for such sectors: the signature is at 510.
    low.unsign().put(510, 0xAA55, 2).tables("0: 83 1+1, 7 2+3");
    low.text(2 * 4096 + 3, "NTFS    ").put(2 * 4096 + 11, 4096, 2);
    const std::string whole = "0+99 ntfs or exfat =ntfs\n";
    const struct {
        const char *name;
        const disk_bytes &disk;
        table_scan scan;
        std::string expected, in_buffer = "="; // "=": the same
    } cases[] = {
        {"Chain", chain, no_scan,
         "2+10 ntfs or exfat\n20+70 exten\n22+8 linux\n40+30 exten\n"
         "43+5 fat32\n20+70 exten\n",
         ""},
        {"LinkToItself", itself, no_scan, "20+9 exten\n20+8 exten\n"},
        {"WideSectors", wide, no_scan,
         "2+3 ntfs or exfat *4096\n5+4 exten *4096\n6+2 linux *4096\n"},
        {"WideAsFdisk", low, no_scan,
         "1+1 linux *4096\n2+3 ntfs or exfat *4096 =ntfs\n",
         "1+1 linux\n2+3 ntfs or exfat\n"},
        {"BeforeExtended", before, no_scan,
         "63+1985 ntfs or exfat =ntfs\n2048+40 exten\n2049+5 fat32\n",
         "2048+40 exten\n2049+5 fat32\n"},
        {"Lost", lost, with_scan, "63+37 fat32 [guess]\n101+5 fat32\n",
         "101+5 fat32\n"},
        {"LostUnscanned", lost, no_scan, "failed\n", ""},
        {"LastScanned", last, with_scan, "2049+1 ntfs or exfat\n"},
        {"TooFar", far, with_scan, "failed\n", "2050+1 ntfs or exfat\n"},
        {"PastTheEnd", cut, no_scan, "failed\n50+9 exten\n", "50+9 exten\n"},
        {"Volume", volume, with_scan, whole},
        {"VolumeUnscanned", volume, no_scan, whole, ""},
        {"Ext", ext, no_scan, "0+0 linux =ext\n", ""},
        {"ExtScanned", ext, with_scan, "0+0 linux =ext\n"},
    };
    for (const auto &[name, disk, scan, expected, in_buffer] : cases) {
        EXPECT_EQ(walk(disk, scan), expected) << name;
        partition_list list;
        const bool good = find_partitions_in_buffer(list, byte_view{disk.bytes}, scan);
        EXPECT_EQ(good, !list.empty()) << name;
        EXPECT_EQ(as_text(list), in_buffer == "=" ? expected : in_buffer) << name;
    }
    EXPECT_EQ(walk(chain, no_scan, with_gaps),
              "0+1 empty =mbr 'mbr'\n1+1 empty 'unalloc'\n2+10 ntfs or exfat\n"
              "12+8 empty 'unalloc'\n20+70 exten\n22+8 linux\n30+10 empty 'unalloc'\n"
              "40+30 exten\n43+5 fat32\n20+70 exten\n90+10 empty 'unalloc'\n");
    EXPECT_EQ(walk(volume, with_scan, with_gaps), whole);
    partition_list list;
    const byte_view bytes{wide.bytes};
    EXPECT_FALSE(find_partitions_in_buffer(list, bytes.clip(0, 4096), no_scan));
    EXPECT_TRUE(find_partitions_in_buffer(list, bytes.clip(0, 4097), no_scan));
    ASSERT_TRUE(find_partitions_in_buffer(list, byte_view{ext.bytes}, with_scan));
    EXPECT_EQ(list[0].volume_label, "root of all evil");
    EXPECT_EQ(list[0].last_mount, "/mnt/usb");
}

TEST(Partitions, WalksGpt)
{
    disk_bytes empty(40), wide(12, 4096), low(48, 4096), many(400), ext(60), cut(60),
        hybrid(60);
    empty.gpt(4, 128);
    low.gpt(1, 128).slot(8192, 40, 43, u"").text(4096, "EFI PART");
    low.unsign().put(510, 0xAA55, 2);
    wide.gpt(4, 256).slot(8192, 6, 9, u"\u00e4").slot(8192 + 512, 10, 10, u"b");
    wide.text(6 * 4096 + 3, "NTFS    ").put(6 * 4096 + 11, 4096, 2);
    many.gpt(300, 128)
        .slot(1024, 100, 109, u"a")
        .slot(1024 + 299 * 128, 200, 200, u"b");
    many.text(200 * 512 + 82, "FAT32").text(200 * 512 + 3, "x");
    ext.gpt(1, 128).slot(1024, 50, 58, u"gone").text(50 * 512 + 3, "x");
    ext.put(50 * 512 + 1080, 0xEF53, 2).put(50 * 512 + 1028, 3, 4);
    cut.gpt(2, 128).slot(1024, 50, 59, u"a").slot(1152, 60, 70, u"b");
    hybrid.gpt(1, 128).slot(1024, 50, 1, u"backwards").tables("0: 7 50+9, ee 1+49");
    EXPECT_EQ(walk(empty), "failed\n");
    EXPECT_EQ(walk(empty, no_scan, with_gaps),
              "0+1 gpt =protective_mbr 'protective_mbr'\n"
              "1+1 gpt =gpt header 'gpt header'\n"
              "2+32 gpt =gpt partition entries 'gpt partition entries'\n"
              "34+6 empty 'unalloc'\n");
    EXPECT_EQ(walk(wide),
              "6+4 ntfs or exfat *4096 =ntfs '\u00e4'\n10+1 gpt *4096 'b'\n");
    EXPECT_EQ(
        walk(low, no_scan, with_gaps),
        "0+1 gpt *4096 =protective_mbr 'protective_mbr'\n"
        "1+1 gpt *4096 =gpt header 'gpt header'\n"
        "2+32 gpt *4096 =gpt partition entries 'gpt partition entries'\n"
        "34+6 empty *4096 'unalloc'\n40+4 gpt *4096\n44+4 empty *4096 'unalloc'\n");
    EXPECT_EQ(walk(many), "100+10 gpt 'a'\n200+0 fat32 =fat32 'b'\n");
    EXPECT_EQ(walk(ext), "0+3072 linux =ext2/3 'ext2/3'\n") << "the start is lost";
    EXPECT_EQ(walk(cut), "failed\n50+10 gpt 'a'\n");
    EXPECT_EQ(walk(hybrid), "50+0 gpt 'backwards'\n");
    EXPECT_EQ(walk(ext.put(512 + 24, 2, 8)), "failed\n") << "a header of another place";
    // Entries of one byte each, as many as the header wants, aren't believed.
    disk_bytes bytes(200);
    std::fill(bytes.bytes.begin() + 1024, bytes.bytes.end(), u8{1});
    bytes.gpt(~u32{0}, 1);
    const std::string found = walk(bytes);
    EXPECT_EQ(std::ranges::count(found, '\n'), 1 + 200 * 512 / 128) << found;
}

TEST(Partitions, RecognisesVolumes)
{
    // What is at 3, 54, 82 or 1024 of a volume, and the numbers that differ from those
    // below. Then "TYPE FILE_SYSTEM SECTOR_SIZE SECTORS_PER_CLUSTER SERIAL", and the
    // count of an entry that had none and of one that had 5.
    const struct {
        const char *name;
        u64 name_at;
        std::vector<layout_row> numbers;
        const char *expected;
    } cases[] = {
        {"EXFAT   ", 3, {}, "7 exfat 4096 16 7, 9 or 5"},
        {"EXFAT   ", 3, {{108, 1, 200}, {109, 1, 32}}, "7 exfat 512 0 7, 9 or 5"},
        {"NTFS    ", 3, {}, "7 ntfs 4096 8 9, 77 or 5"},
        {"NTFS    ", 3, {{11, 2, 0}, {13, 1, 0}}, "7 ntfs 512 0 9, 77 or 5"},
        {"-FVE-FS-", 3, {}, "7 bitlocker container 4096 8 9, 77 or 5"},
        {"FAT32", 82, {{3, 1, 1}}, "12 fat32 4096 8 3, 600 or 600"},
        {"FAT16", 54, {{3, 1, 1}}, "4 fat16 4096 8 19712, 600 or 5"},
        {"x", 3, {{1080, 2, 0xEF53}}, "131 ext2/3 512 8 4, 40960 or 40960"},
        {"x", 3, {{1080, 2, 0xEF53}, {1048, 4, 22}}, "131 ext2/3 512 0 4, 0 or 0"},
        {"", 3, {{1080, 2, 0xEF53}}, "131 ext 512 8 0, 0 or 5"},
        {"H+", 1024, {}, "175 hfs+ 512 8 0, 0 or 5"},
        {"HX", 1024, {}, "175 hfsx 512 8 0, 0 or 5"},
        {"HZ", 1024, {}, "175  512 8 0, 0 or 5"},
        {"x", 3, {}, "1  512 8 0, 0 or 5"},
    };
    for (const auto &[name, name_at, numbers, expected] : cases) {
        disk_bytes volume(4);
        volume.put(11, 4096, 2).put(13, 8, 1).put(32, 600, 4).put(40, 77, 8);
        volume.put(67, 3, 4)
            .put(72, 9, 8)
            .put(100, 7, 4)
            .put(108, 12, 1)
            .put(109, 4, 1);
        volume.put(1028, 10, 4).put(1048, 2, 4).put(1128, 4, 4);
        volume.text(name_at, name);
        for (const auto &[at, width, value] : numbers) volume.put(at, value, width);
        const byte_view bytes{volume.bytes};
        partition_entry entry(9, 0, 1, 512), counted(9, 5, 1, 512), cut(9, 5, 1, 512);
        const bool good = read_volume_signature(entry, bytes);
        read_volume_signature(counted, bytes);
        std::ostringstream text;
        text << entry.type << ' ' << entry.file_system << ' ' << entry.m_sector_size
             << ' ' << entry.sectors_per_cluster << ' ' << entry.volume_serial << ", "
             << entry.sectors << " or " << counted.sectors;
        EXPECT_EQ(text.str(), expected);
        EXPECT_EQ(good, !entry.file_system.empty()) << expected;
        EXPECT_EQ(entry.is_volume, good && name_at != 1024 && *name != 0) << expected;
        EXPECT_EQ(entry.start_sector, entry.name == "ext2/3" ? 0U : 9U) << expected;
        EXPECT_EQ(read_volume_signature(cut, bytes.clip(0, 512)),
                  good && entry.type < 131)
            << expected << ": ext and HFS don't show in the first sector";
    }
    EXPECT_EQ(partition_type_name(0x107), "unk");
    EXPECT_EQ(partition_type_name(160), "hibernation partition");
    EXPECT_EQ(gpt_type_name(byte_view{byte_vector(16)}), "");
}

TEST(Partitions, DamageEndsTheWalk)
{
    disk_bytes chain(8), guids(8);
    chain.tables("0: 7 1+1, 5 2+6; 2: 83 1+1, 5 2+3; 4: b 1+2");
    guids.gpt(4, 128).slot(1024, 4, 7, u"a").slot(1152, 5, 5, u"b");
    const temp_dir dir;
    for (const disk_bytes &disk : {chain, guids}) {
        for (std::size_t i = 0; i < disk.bytes.size(); ++i) {
            byte_vector bytes = disk.bytes;
            bytes[i] ^= 0xFF;
            if (i % 64 != 0 && bytes[i] == 0xFF) continue;
            const std::string path = dir.write_file("i", text(bytes));
            partition_list list;
            find_partitions_in_buffer(list, byte_view{bytes}, with_scan);
            EXPECT_LE(list.size(), 40U);
            const auto found = std::ranges::count(walk(path, with_scan), '\n');
            EXPECT_LE(found, 41);
            EXPECT_LE(std::ranges::count(walk(path, with_scan, with_gaps), '\n'),
                      2 * found + 8);
        }
    }
}

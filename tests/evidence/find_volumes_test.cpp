#include "evidence/describe_medium.h"

#include "disk/hv_file_source.h"
#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "support/fixtures.h"
#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

using namespace test_support;

constexpr u64 sector = 512;

// A volume of clusters of 512 bytes; its last sector is the copy of the boot sector.
// Both state how many sectors are before the volume.
ntfs_volume make_volume(u64 hidden_sectors = 0, u32 update_array = 48)
{
    ntfs_volume volume = ntfs_volume_builder()
                             .cluster_size(512)
                             .records(40)
                             .update_array(update_array)
                             .build_volume();
    for (const u64 boot : {u64{0}, volume.image.size() - sector})
        put_number(volume.image, boot + 28, hidden_sectors, 4);
    return volume;
}

// A disk of zeros on which things are put; positions are sectors.
struct test_disk {
    byte_vector bytes = byte_vector(8000 * sector);

    test_disk &volume(u64 at, u64 hidden_sectors)
    {
        return put_bytes(bytes, at * sector, make_volume(hidden_sectors).image), *this;
    }
    test_disk &volume(u64 at) { return volume(at, at); }
    test_disk &text(u64 at, std::size_t offset, std::string_view value)
    {
        return put_text(bytes, at * sector + offset, value), *this;
    }
    test_disk &copy(u64 from, u64 to)
    {
        return put_bytes(bytes, to * sector, cut(bytes, from * sector, sector)), *this;
    }
    test_disk &wipe(u64 at, u64 sectors = 1)
    {
        return put_bytes(bytes, at * sector, byte_vector(sectors * sector)), *this;
    }
    // The record `number` of the table in sector `at`.
    test_disk &record(u64 at, u64 number, u64 type, u64 first, u64 count)
    {
        put_number(bytes, at * sector + 510, 0xAA55, 2);
        put_layout(bytes, {{4, 1, type}, {8, 4, first}, {12, 4, count}},
                   at * sector + 446 + 16 * number);
        return *this;
    }
    // A GPT in `unit` bytes, of partitions by their first and last sector.
    test_disk &gpt(u64 unit, u64 header, u64 array,
                   const std::vector<std::pair<u64, u64>> &partitions, u64 size = 128)
    {
        put_text(bytes, header * unit, "EFI PART");
        put_layout(bytes,
                   {{24, 8, header}, {72, 8, array}, {80, 4, 128}, {84, 4, size}},
                   header * unit);
        for (std::size_t i = 0; i < partitions.size(); ++i)
            put_layout(bytes,
                       {{0, 8, 0xEBD0A0A2},
                        {32, 8, partitions[i].first},
                        {40, 8, partitions[i].second}},
                       array * unit + 128 * i);
        return *this;
    }
};

// "2048 MBR, 4000 boot sector": the first sectors of volumes, and what is odd.
std::string summary(const medium_layout &layout)
{
    std::string all;
    for (const found_volume &volume : layout.volumes) {
        if (!all.empty()) all += ", ";
        all += std::to_string(volume.offset / sector) + ' ' + found_by_text(volume.how);
        if (volume.boot_from_copy) all += " (copied boot)";
        if (volume.mft == mft_state::from_mirror) all += " (mirrored)";
        if (volume.mft == mft_state::rebuilt) all += " (rebuilt)";
        if (volume.mft == mft_state::missing) all += " (no $MFT)";
    }
    return all;
}

std::string summary(const test_disk &disk, volume_search search)
{
    return summary(find_volumes(memory_source(disk.bytes), search));
}

struct search_case {
    const char *name = "";
    test_disk medium;
    volume_search search = volume_search::usual_places;
    const char *volumes = "";
};

TEST(FindVolumes, ReadsTables)
{
    using disk = test_disk;
    const disk two = disk().volume(2048).volume(2700);
    const std::vector<std::pair<u64, u64>> listed = {{2048, 2582}, {2700, 3234}};
    const std::tuple<const char *, disk, const char *> cases[] = {
        {"hidden types, and a type that is no NTFS's",
         disk(two)
             .volume(63)
             .record(0, 0, 0x17, 2048, 535)
             .record(0, 1, 0x27, 63, 535)
             .record(0, 2, 0xAB, 2700, 535),
         "63 MBR, 2048 MBR, 2700 MBR"},
        {"an NTFS volume after an extended partition, whose chain leads in a circle",
         disk(two)
             .volume(4063)
             .volume(4763)
             .record(0, 0, 5, 4000, 2000)
             .record(0, 1, 7, 2048, 535)
             .record(4000, 0, 7, 63, 535)
             .record(4000, 1, 5, 700, 1000)
             .record(4700, 0, 7, 63, 535)
             .record(4700, 1, 5, 0, 1000),
         "2048 MBR, 4063 MBR, 4763 MBR"},
        {"a volume whose type is that of a chain", disk(two).record(0, 0, 5, 2700, 535),
         "2048 boot sector, 2700 MBR"},
        {"numbers that no disk has",
         disk(two)
             .record(0, 0, 7, 0xFFFFFFFF, 9)
             .record(0, 1, 7, 2048, 0xFFFFFFFF)
             .record(0, 2, 15, 0xFFFFFFFF, 1)
             .record(0, 3, 7, 2100, 535)
             .gpt(512, 1, 0xFFFFFFFFFFFFFF, {}),
         "2048 MBR"},
        {"a GPT", disk(two).record(0, 0, 0xEE, 1, 7999).gpt(512, 1, 2, listed),
         "2048 GPT, 2700 GPT"},
        {"a GPT without an MBR", disk(two).gpt(512, 1, 2, listed),
         "2048 GPT, 2700 GPT"},
        {"the copy of a GPT", disk(two).gpt(512, 7999, 7967, listed),
         "2048 copy of the GPT, 2700 copy of the GPT"},
        {"a GPT whose entries are too small to be any",
         disk(two).gpt(512, 1, 2, listed, 64), "2048 boot sector"},
        {"a GPT in sectors of 4096",
         disk(two).volume(3304).gpt(4096, 1, 2, {{256, 322}, {413, 479}}),
         "2048 GPT, 3304 GPT"},
        {"an MBR in sectors of 4096", disk(two).record(0, 0, 7, 256, 67), "2048 MBR"},
    };
    for (const auto &[name, medium, volumes] : cases)
        EXPECT_EQ(summary(medium, volume_search::usual_places), volumes) << name;
}

TEST(FindVolumes, DoesWithoutTables)
{
    using disk = test_disk;
    const disk lost = disk().volume(63).volume(2048).volume(3001);
    const search_case cases[] = {
        {"usual places", lost, volume_search::usual_places,
         "63 boot sector, 2048 boot sector"},
        {"any place", lost, volume_search::lost_tables,
         "63 boot sector, 2048 boot sector, 3001 boot sector"},
        {"a table that says what is there", disk(lost).record(0, 0, 7, 2048, 535),
         volume_search::lost_tables, "63 boot sector, 2048 MBR"},
        {"beside that table", disk(lost).record(0, 0, 7, 2048, 535),
         volume_search::every_sector, "63 boot sector, 2048 MBR, 3001 boot sector"},
        {"a partition without its boot sector",
         disk(lost).wipe(3001).record(0, 0, 7, 3001, 535), volume_search::usual_places,
         "63 boot sector, 2048 boot sector, 3001 MBR (copied boot)"},
        {"a partition that is larger than its volume",
         disk(lost).wipe(3001).record(0, 0, 7, 3001, 1200), volume_search::lost_tables,
         "63 boot sector, 2048 boot sector, "
         "3001 copy of the boot sector (copied boot)"},
        {"no boot sector and no table", disk(lost).wipe(3001).wipe(63),
         volume_search::lost_tables,
         "63 copy of the boot sector (copied boot), 2048 boot sector, "
         "3001 copy of the boot sector (copied boot)"},
        {"the copy that old systems keep in the middle",
         disk(lost).copy(3001, 3001 + 267).wipe(3001).wipe(3535),
         volume_search::lost_tables,
         "63 boot sector, 2048 boot sector, "
         "3001 copy of the boot sector (copied boot)"},
        {"a boot sector in another file system's file",
         disk(lost).record(0, 0, 7, 2900, 900).text(2900, 3, "EXFAT   "),
         volume_search::every_sector, "63 boot sector, 2048 boot sector"},
        {"boot sectors without a volume",
         disk(lost).wipe(64, 533).wipe(2049, 533).wipe(3002, 533),
         volume_search::lost_tables, ""},
        {"a boot sector at the start, without a volume", disk().volume(0).wipe(1, 533),
         volume_search::lost_tables, "0 boot sector (no $MFT)"},
    };
    for (const auto &[name, medium, search, volumes] : cases)
        EXPECT_EQ(summary(medium, search), volumes) << name;
}

// A volume of which only the copy of the boot sector is left has a virtual disk in one
// of its files, with a volume of its own. If that states its place on the medium, it is
// in no file: one of the two was made over the other.
TEST(FindVolumes, LeavesOutVolumesInFiles)
{
    constexpr u64 first = 1001, entry = 30;
    ntfs_volume outer = ntfs_volume_builder()
                            .cluster_size(512)
                            .file({.entry = entry,
                                   .name = "disk.vhd",
                                   .data = test_disk().volume(128).bytes,
                                   .stored = {.non_resident = true}})
                            .build_volume();
    const u64 inner = outer.stream_runs(entry).front().lcn + 128;
    test_disk disk;
    put_number(outer.image, outer.image.size() - sector + 28, first, 4);
    put_bytes(disk.bytes, first * sector, outer.image);
    // The copy isn't at the end of the disk, so the other boot sector is met first.
    disk.wipe(first).wipe(disk.bytes.size() / sector, 3000);
    const std::string found = "1001 copy of the boot sector (copied boot)";
    EXPECT_EQ(summary(disk, volume_search::lost_tables), found);

    put_number(disk.bytes, (first + inner) * sector + 28, first + inner, 4);
    EXPECT_EQ(summary(disk, volume_search::lost_tables),
              found + ", " + std::to_string(first + inner) + " boot sector");
}

TEST(FindVolumes, TellsRegions)
{
    const memory_source medium(test_disk().volume(63).volume(3001).bytes);
    const medium_layout layout = find_volumes(medium, volume_search::lost_tables);
    const std::vector<byte_range> gaps = {{0, 63 * sector},
                                          {598 * sector, 2403 * sector},
                                          {3536 * sector, 4464 * sector}};
    EXPECT_EQ(layout.gaps, gaps);
}

// The engine opens what was found, and knows where all records of the $MFT are.
TEST(FindVolumes, PatchesWhatIsGone)
{
    const u64 mft = 16, mirror = make_volume().stream_runs(1).front().lcn;
    const struct {
        const char *name;
        std::vector<std::pair<u64, u64>> wiped; // sectors
        const char *volumes;
    } cases[] = {
        {"the boot sector", {{0, 1}}, "copy of the boot sector (copied boot)"},
        {"entry 0", {{mft, 2}}, "boot sector (mirrored)"},
        {"entry 2", {{mft + 4, 2}}, "boot sector (mirrored)"},
        {"the boot sector and the first records",
         {{0, 1}, {mft, 32}},
         "copy of the boot sector (copied boot) (mirrored)"},
        {"the first records and their copies",
         {{mft, 32}, {mirror, 8}},
         "boot sector (rebuilt)"},
        {"the boot sector, the first records and their copies",
         {{0, 1}, {mft, 32}, {mirror, 8}},
         "copy of the boot sector (copied boot) (rebuilt)"},
    };
    constexpr u64 first = 3001, entry = 20;
    for (const u32 update_array : {48, 42}) {
        const ntfs_volume original = make_volume(first, update_array);
        for (const auto &[name, wiped, volumes] : cases) {
            test_disk disk;
            put_bytes(disk.bytes, first * sector, original.image);
            for (const auto &[at, sectors] : wiped) disk.wipe(first + at, sectors);
            const auto medium = std::make_shared<memory_source>(disk.bytes);
            const auto layout = find_volumes(*medium, volume_search::lost_tables);
            ASSERT_EQ(summary(layout), "3001 " + std::string(volumes)) << name;

            CNtfs volume(patch_source(medium, layout.volumes[0].patches),
                         first * sector, parse_rules::complete());
            ASSERT_TRUE(volume.validate_volume()) << name;
            EXPECT_EQ(volume.get_mft_entry_count(), 40u) << name;
            EXPECT_EQ(volume.get_entry_position(entry), original.record_position(entry))
                << name;
        }
    }
}

TEST(FindVolumes, TakesAnMftWithoutRunsForADamagedOne)
{
    constexpr u64 runs_offset = 64;
    ntfs_volume volume = make_volume();
    const u64 runs = volume.attribute_position(0, ntfs_type::data) + runs_offset;
    volume.image.at(runs) = 0;
    EXPECT_EQ(
        summary(find_volumes(memory_source(volume.image), volume_search::lost_tables)),
        "0 boot sector (mirrored)");
}

TEST(DescribeMedium, SaysWhatIsThere)
{
    test_disk disk;
    disk.volume(2048).record(0, 0, 7, 2048, 535).record(0, 1, 7, 3000, 100);
    disk.record(0, 2, 7, 4000, 100).record(0, 3, 0x42, 5000, 100);
    disk.text(3000, 3, "-FVE-FS-").text(4000, 3, "NTFS    ");
    const medium_description found = describe_medium(memory_source(disk.bytes));
    EXPECT_EQ(found.table, "MBR");
    EXPECT_EQ(found.volumes.size(), 1u);
    EXPECT_EQ(found.refusal, "");
    std::string others;
    for (const other_content &other : found.others) others += other.text + '\n';
    EXPECT_EQ(others,
              "BitLocker volume at offset 1536000; give its key with "
              "--recovery-key or --password-file\n"
              "NTFS with a damaged boot sector at offset 2048000\n"
              "dynamic disk at offset 2560000; assemble it with the tools of its "
              "system, and name the volumes\n");

    EXPECT_EQ(describe_medium(memory_source(test_disk().volume(2048).bytes)).table,
              "lost table");
    EXPECT_EQ(describe_medium(memory_source(make_volume().image)).table, "no table");
}

// What an examiner named instead of a volume of Windows, and what to do about it.
TEST(DescribeMedium, NamesWhatHoldsNoVolume)
{
    const auto refused = [](u64 at, const std::string &signature, std::size_t size) {
        byte_vector bytes(size, 1);
        put_text(bytes, at, signature);
        return describe_medium(memory_source(bytes)).refusal;
    };
    struct content_row {
        u64 at;
        std::string signature;
        std::string refusal;
    };
    const std::string mount =
        "; mount it read-only, and examine the files of its bin one by one";
    const std::string unlock =
        "; unlock it with its password or recovery key, and name the unlocked volume";
    const std::string assemble =
        "; assemble it with the tools of its system, and name the volumes";
    const std::string foreign = "; Windows keeps no bin on it";
    for (const auto &[at, signature, refusal] : std::vector<content_row>{
             {3, std::string("ReFS\0\0\0\0", 8), "ReFS at offset 0" + mount},
             {3, "EXFAT   ", "exFAT at offset 0" + mount},
             {54, "FAT16   ", "FAT at offset 0" + mount},
             {82, "FAT32   ", "FAT at offset 0" + mount},
             {0, "XFSB", "XFS at offset 0" + foreign},
             {0x10040, "_BHRfS_M", "Btrfs at offset 0" + foreign},
             {1024, std::string("H+\0\4", 4), "HFS+ at offset 0" + foreign},
             {32, "NXSB", "APFS at offset 0" + foreign},
             {4086, "SWAPSPACE2", "swap space at offset 0" + foreign},
             {0x8001, "CD001", "ISO 9660 at offset 0" + foreign},
             {0, "LUKS\xBA\xBE", "LUKS volume at offset 0" + unlock},
             {512, "LABELONE", "physical volume of LVM at offset 0" + assemble},
             {4096, "SPACEDB ", "disk of a storage pool at offset 0" + assemble},
         })
        EXPECT_EQ(refused(at, signature, 0x20000),
                  "no NTFS volume can be read: " + refusal);

    const std::string unpack = "; unpack it, and name what was in it";
    const std::string image =
        "; mount it as a raw image, or convert it to one, and name that";
    for (const auto &[at, signature, refusal] : std::vector<content_row>{
             {0, std::string("LVF\x09\r\n\xFF\0", 8),
              "Expert Witness collection of files (L01): this kind of file isn't read; "
              "export its files; it holds no disk"},
             {0, std::string("AFF10\r\n\0", 8),
              "AFF image: this kind of file isn't read" + image},
             {0x20000 - 512, "koly",
              "disk image (DMG): this kind of file isn't read" + image},
             {0, "\x1F\x8B\x08", "gzip file: this kind of file isn't read" + unpack},
             {0, "PK\3\4", "zip archive: this kind of file isn't read" + unpack},
             {0, "7z\xBC\xAF\x27\x1C",
              "7z archive: this kind of file isn't read" + unpack},
             {0,
              std::string("\xFD"
                          "7zXZ\0",
                          6),
              "xz file: this kind of file isn't read" + unpack},
             {0, "BZh9", "bzip2 file: this kind of file isn't read" + unpack},
             {0, "\x28\xB5\x2F\xFD",
              "zstd file: this kind of file isn't read" + unpack},
             {0, "Rar!\x1A\x07", "RAR archive: this kind of file isn't read" + unpack},
         })
        EXPECT_EQ(refused(at, signature, 0x20000), refusal);
}

TEST(DescribeMedium, KnowsContainers)
{
    test_disk footer;
    footer.volume(2048).record(0, 0, 7, 2048, 535);
    footer.text(7999, 0, "conectix").text(7999, 63, "\x03");
    const memory_source grows(footer.bytes);
    const memory_source fixed(footer.text(7999, 63, "\x02").bytes);
    EXPECT_EQ(describe_medium(grows).container, container_kind::vhd);
    EXPECT_EQ(describe_medium(fixed).volumes.size(), 1u) << "a raw image with a footer";

    for (const auto &[file, kind] :
         {std::pair{"containers/test.ntfs.dd.E01", container_kind::ewf},
          {"containers/image.qcow2", container_kind::qcow},
          {"containers/streamOptimized.vmdk", container_kind::vmdk},
          {"containers/test.vhdx.zip", container_kind::vhdx},
          {"mft/DFR-16.MFT", container_kind::mft},
          {"ntfs/charlie.dd.bz2", container_kind::none}})
        EXPECT_EQ(describe_medium(file_source(fixture_or_skip(file))).container, kind)
            << file;
}

TEST(DescribeMedium, ReadsRealMedia)
{
    const struct {
        const char *file;
        const char *volumes;
        const char *others;
    } cases[] = {
        {"partitions/tsk_volume_system.raw.gz", "", "zeros at offset 512"},
        {"ntfs/ntfs-lastaccess.raw.gz", "128 MBR", ""},
    };
    for (const auto &[file, volumes, others] : cases) {
        const file_source medium(fixture_or_skip(file));
        EXPECT_EQ(summary(find_volumes(medium, volume_search::lost_tables)), volumes)
            << file;
        const auto found = describe_medium(medium).others;
        EXPECT_EQ(found.empty() ? "" : found.front().text, others) << file;
    }
}

} // namespace
} // namespace hv

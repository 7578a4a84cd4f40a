#include "ntfs/hv_volume_targets.h"

#include "base/hv_string.h"
#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace hv;
using namespace test_support;

namespace {

// A disk with a table of a FAT32 volume at 32 KiB and an NTFS volume at 1 MiB.
struct sample_disk {
    sample_disk &put(u64 at, u64 value, std::size_t width)
    {
        return put_number(bytes, at, value, width), *this;
    }
    sample_disk &record(unsigned i, u8 type, u64 first, u64 count)
    {
        put(450 + 16 * i, type, 1);
        return put(454 + 16 * i, first, 4).put(458 + 16 * i, count, 4);
    }
    sample_disk &cut(std::size_t size) { return bytes.resize(size), *this; }
    sample_disk()
    {
        put(510, 0xAA55, 2).record(0, 12, 64, 100);
        record(1, 7, 2048, bytes.size() / 512 - 2048);
    }
    byte_vector bytes = ntfs_volume_builder().offset(0x100000).build();
};

} // namespace

TEST(VolumeTargets, FindsTheVolumeOrTellsWhere)
{
    const sample_disk disk;
    const u64 size = disk.bytes.size();
    const std::string fat = "\nvolume offset [ 0x8000 ] : fat32\n";
    const std::string list = fat + "volume offset [ 0x100000 ] : ntfs or exfat\n";
    const std::string use = "\nuse option [-offset 0x100000]\n";
    const std::string outside = " is not within image bounds\n";
    const std::string lost_text =
        " corrupted, partition info questionable\n\nvolume offset [ 0x1000 ] : fat32\n"
        "\nprob detecting ntfs partition\n";
    const std::string wrong =
        "volume offset selected 0x8000 is not a NTFS partition, but ";
    sample_disk volume, zeros, lost;
    volume.bytes.erase(volume.bytes.begin(), volume.bytes.begin() + 0x100000);
    zeros.bytes.assign(4096, 0);
    lost.put(510, 0, 2).put(0x1000 + 510, 0xAA55, 2);
    lost.put(0x1000 + 450, 11, 1).put(0x1000 + 458, 9, 4);
    const struct {
        const char *name;
        byte_vector bytes;
        u64 offset;
        bool passed, found;
        u64 left;
        std::string text, in_memory = "="; // "=": the same by the first bytes alone
        size_check check = size_check::enforce;
    } cases[] = {
        {"NoOffset", disk.bytes, 0, false, true, 0x100000, list + use},
        {"Right", disk.bytes, 0x100000, true, true, 0x100000, ""},
        {"AtTheEnd", disk.bytes, size, false, true, 0x100000, list + use},
        {"PastTheEnd", disk.bytes, size + 1, false, false, size + 1,
         "volume offset 0x" + hex_digits(size + 1, 1) + outside},
        {"OtherType", disk.bytes, 0x8000, false, false, 0x8000, wrong + "[fat32]\n",
         wrong + "a fat32\n"},
        {"Cut", sample_disk().cut(0x101000).bytes, 0x100000, false, true, 0x100000,
         "volume offset 0x100000 is a NTFS partition, however image size does not "
         "encapsulate entire volume\n"},
        {"CutIgnored", sample_disk().cut(0x101000).bytes, 0x100000, true, true,
         0x100000, "", "=", size_check::ignore},
        {"OutOfTheImage", sample_disk().record(2, 39, 0x10000000, 9).bytes, 0, false,
         true, 0x2000000000,
         "volume offset 0x2000000000" + outside + list +
             "volume offset [ 0x2000000000 ] : hidden ntfs\n\n"
             "use option [-offset 0x2000000000]\n"},
        {"NoNtfs", sample_disk().record(1, 0x83, 1024, 9).bytes, 1, false, false, 1,
         fat + "volume offset [ 0x80000 ] : linux\n\n"
               "prob detecting ntfs partition\n"},
        {"Volume", volume.bytes, 0, true, true, 0, ""},
        {"Nothing", zeros.bytes, 0, false, false, 0,
         "couldn't find any partitions on disk\n",
         "couldn't find any partitions on disk \n"},
        {"LostTable", lost.bytes, 0, false, false, 0, "disk is" + lost_text,
         "image" + lost_text},
    };
    for (const auto &[name, bytes, offset, passed, found, left, text, in_memory,
                      check] : cases) {
        const temp_dir dir;
        const std::string path = dir.write_file("i", test_support::text(bytes));
        for (const bool by_path : {true, false}) {
            std::ostringstream messages;
            bool was_found = !found;
            u64 at = offset;
            const bool good =
                by_path ? check_image_target(messages, path, at, was_found, check)
                        : find_ntfs_volume(messages, was_found, at, byte_view{bytes},
                                           bytes.size(), check);
            EXPECT_EQ(std::tuple(good, was_found, at), std::tuple(passed, found, left))
                << name;
            EXPECT_EQ(messages.str(), by_path || in_memory == "=" ? text : in_memory);
        }
    }
    // By the first bytes alone, a candidate counts sectors of 512 bytes.
    std::ostringstream messages;
    bool found = false;
    u64 at = 0;
    sample_disk wide;
    wide.put(510, 0, 2).put(4094, 0xAA55, 2).record(0, 7, 16, 9).record(1, 0, 0, 0);
    EXPECT_FALSE(find_ntfs_volume(messages, found, at, byte_view{wide.bytes}, size,
                                  size_check::enforce));
    EXPECT_EQ(messages.str(), "\nvolume offset [ 0x10000 ] : ntfs or exfat\n\n"
                              "use option [-offset 0x2000]\n");
}

TEST(VolumeTargets, SaysWhatCantBeOpened)
{
    const temp_dir dir;
    std::ostringstream messages;
    bool found = true;
    u64 at = 0;
    EXPECT_FALSE(check_image_target(messages, "", at, found, size_check::enforce));
    EXPECT_FALSE(found);
    EXPECT_FALSE(check_drive_target(messages, 25, at, found, size_check::enforce));
    EXPECT_FALSE(check_vmdk_target(messages, {}, at, found, size_check::enforce));
    EXPECT_FALSE(check_mounted_vmdk_target(messages, dir / "no", at, found,
                                           size_check::enforce));
    EXPECT_EQ(messages.str(), "problems accessing physical disk #25, aborting \n"
                              "invalid disk collection of snaps \n"
                              "couldn't find any partitions on disk\n");
    EXPECT_EQ(RAW_DISK_IO(dir / "no").failure(), open_failure::missing);
    EXPECT_EQ(RAW_DISK_IO(dir.path).failure(), open_failure::unsupported);
    EXPECT_EQ(RAW_DISK_IO(dir.write_file("f", "x")).failure(), open_failure::none);
}

TEST(VolumeTargets, OpensTheFirstThatIsNamed)
{
    const temp_dir dir;
    const std::string bytes = text(sample_disk().bytes);
    const std::string image = dir.write_file("image", bytes);
    const std::string volume = dir.write_file("volume", bytes.substr(0x100000));
    const std::string input = dir.write_file("input", std::string(10240, 'x'));
    CNtfs attached(volume, 0, volume_kind::path), broken(image, 0, volume_kind::path);
    // What is named, "FIELD=FILE" each; what is opened, "-" for nothing; and the label.
    const struct {
        const char *named, *opened;
        std::string label;
        u64 offset = 0;
    } cases[] = {
        {"", "-", ""},
        {"input=none attached=volume", "-", dir / "none"},
        {"input=input path=volume", "input", input},
        {"input=input records=4096", "input", input},
        {"attached=volume vmdk=none", "attached", ""},
        {"attached=image path=volume", "volume", volume, 9},
        {"image=image partition=volume", "volume", image, 0x100000},
        {"image=image partition=volume", "-", image, 512},
        {"partition=volume mounted=image", "volume", "partition: " + volume, 512},
        {"mounted=image", "volume", image, 0x100000},
        {"drive=20 image=volume", "-", "specified by physical drive number"},
        {"vmdk=none drive=0", "-", "vmdk file " + dir / "none"},
    };
    for (const auto &[named, opened, label, offset] : cases) {
        volume_target target;
        target.volume_offset = offset;
        std::istringstream in(named);
        for (std::string field, file;
             std::getline(in, field, '=') && std::getline(in, file, ' ');) {
            if (field == "input") target.input_file = dir / file;
            if (field == "attached")
                target.attached = file == "image" ? &broken : &attached;
            if (field == "vmdk") target.vmdk_files = {dir / file};
            if (field == "drive") target.drive_number = std::stoi(file);
            if (field == "records") target.wanted_record_size = 4096;
            if (field == "path") target.volume_path = dir / file;
            if (field == "image") target.image_path = dir / file;
            if (field == "partition") target.partition = dir / file;
            if (field == "mounted") target.mounted_vmdk = dir / file;
        }
        const std::string expected = opened;
        EXPECT_EQ(open_target(target), expected != "-") << named;
        EXPECT_EQ(open_target(target), expected != "-") << named << ", again";
        EXPECT_EQ(target.label, label);
        EXPECT_EQ(target.volume == &attached, expected == "attached") << named;
        EXPECT_EQ(target.owned_volume != nullptr, expected == "volume") << named;
        EXPECT_EQ(target.input.is_open(), expected == "input") << named;
        const u32 size = std::max(target.wanted_record_size, 1024U);
        const u64 entries =
            expected == "input" ? 10240 / size : attached.get_mft_entry_count();
        EXPECT_EQ(std::tuple(target.record_size, target.entry_count),
                  expected == "-" ? std::tuple(0U, u64{0}) : std::tuple(size, entries))
            << named;
    }
}

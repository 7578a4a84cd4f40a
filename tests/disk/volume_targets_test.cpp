#include "ntfs/hv_volume_targets.h"

#include "base/hv_string.h"
#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

using namespace hv;
using namespace test_support;

// clang-format off
namespace {

// A disk with an NTFS volume at 1 MiB and a table of FAT32 at 32 KiB and that volume.
struct sample_disk {
    sample_disk &put(u64 at, u64 value, std::size_t width) { return put_number(bytes, at, value, width), *this; }
    sample_disk &record(unsigned i, u8 type, u64 first, u64 count)
    {
        return put(450 + 16 * i, type, 1).put(454 + 16 * i, first, 4).put(458 + 16 * i, count, 4);
    }
    sample_disk &cut(std::size_t size) { return bytes.resize(size), *this; }
    sample_disk() { put(510, 0xAA55, 2).record(0, 12, 64, 100).record(1, 7, 2048, bytes.size() / 512 - 2048); }
    byte_vector bytes = ntfs_volume_builder().offset(0x100000).build();
};

} // namespace

TEST(VolumeTargets, FindsTheVolumeOrTellsWhere)
{
    const sample_disk disk;
    const u64 size = disk.bytes.size();
    const std::string fat = "\nvolume offset [ 0x8000 ] : fat32\n",
                      ntfs = "volume offset [ 0x100000 ] : ntfs or exfat\n", use = "\nuse option [-offset 0x100000]\n";
    const std::string cut_text =
        "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire volume\n";
    const std::string far_text = "volume offset 0x2000000000 is not within image bounds\n";
    sample_disk volume, zeros, lost;
    volume.bytes.erase(volume.bytes.begin(), volume.bytes.begin() + 0x100000);
    zeros.bytes.assign(4096, 0);
    lost.put(510, 0, 2).put(0x1000 + 510, 0xAA55, 2).put(0x1000 + 450, 11, 1).put(0x1000 + 458, 9, 4);
    struct target_case {
        const char *name;
        byte_vector bytes;
        u64 offset;
        size_check check;
        bool passed, found;
        u64 left;
        std::string text, buffered = "="; // what the check of first bytes says instead
    };
    const auto strict = size_check::enforce, lenient = size_check::ignore;
    for (const auto &[name, bytes, offset, check, passed, found, left, text, buffered] :
         {target_case{"NoOffset", disk.bytes, 0, strict, false, true, 0x100000, fat + ntfs + use},
          {"Right", disk.bytes, 0x100000, strict, true, true, 0x100000, ""},
          {"AtTheEnd", disk.bytes, size, strict, false, true, 0x100000, fat + ntfs + use},
          {"BehindTheEnd", disk.bytes, size + 1, strict, false, false, size + 1,
           "volume offset " + number_text(size + 1, true, 1) + " is not within image bounds\n"},
          {"OtherType", disk.bytes, 0x8000, strict, false, false, 0x8000,
           "volume offset selected 0x8000 is not a NTFS partition, but [fat32]\n",
           "volume offset selected 0x8000 is not a NTFS partition, but a fat32\n"},
          {"Cut", sample_disk().cut(0x101000).bytes, 0x100000, strict, false, true, 0x100000, cut_text},
          {"CutIgnored", sample_disk().cut(0x101000).bytes, 0x100000, lenient, true, true, 0x100000, ""},
          {"TheLaterOne", sample_disk().record(2, 39, 256, 9).bytes, 0, strict, false, true, 0x20000,
           fat + ntfs + "volume offset [ 0x20000 ] : hidden ntfs\n\nuse option [-offset 0x20000]\n"},
          {"OutOfTheImage", sample_disk().record(2, 7, 0x10000000, 9).bytes, 0, strict, false, true, 0x2000000000,
           far_text + fat + ntfs +
               "volume offset [ 0x2000000000 ] : ntfs or exfat\n\nuse option [-offset 0x2000000000]\n"},
          {"NoNtfs", sample_disk().record(1, 0x83, 1024, 9).bytes, 1, strict, false, false, 1,
           fat + "volume offset [ 0x80000 ] : linux\n\nprob detecting ntfs partition\n"},
          {"Volume", volume.bytes, 0, strict, true, true, 0, ""},
          {"Nothing", zeros.bytes, 0, strict, false, false, 0, "couldn't find any partitions on disk\n",
           "couldn't find any partitions on disk \n"},
          {"LostTable", lost.bytes, 0, strict, false, false, 0,
           "disk is corrupted, partition info questionable\n\nvolume offset [ 0x1000 ] : fat32\n\nprob detecting ntfs "
           "partition\n",
           "image corrupted, partition info questionable\n\nvolume offset [ 0x1000 ] : fat32\n\nprob detecting ntfs "
           "partition\n"}}) {
        const temp_dir dir;
        const std::string path = dir.write_file("image", std::string(bytes.begin(), bytes.end()));
        for (const int form : {0, 1, 2}) {
            std::ostringstream messages;
            bool was_found = !found;
            u64 at = offset;
            EXPECT_EQ(form == 0   ? check_image_target(messages, path, at, was_found, check)
                      : form == 1 ? check_mounted_vmdk_target(messages, path, at, was_found, check)
                                  : find_ntfs_volume(messages, was_found, at, byte_view{bytes}, bytes.size(), check),
                      passed)
                << name;
            EXPECT_EQ(std::tuple(messages.str(), was_found, at),
                      std::tuple(form < 2 || buffered == "=" ? text : buffered, found, left))
                << name;
        }
    }
    // By first bytes alone, a candidate counts sectors of 512 bytes, whatever the table's are.
    std::ostringstream messages;
    bool found = false;
    u64 at = 0;
    sample_disk wide;
    wide.put(510, 0, 2).put(4094, 0xAA55, 2).record(0, 0, 0, 0).record(1, 0, 0, 0).record(0, 7, 16, 9);
    EXPECT_TRUE(!find_ntfs_volume(messages, found, at, byte_view{wide.bytes}, size, strict) && found && at == 16 * 512);
    EXPECT_EQ(messages.str(), "\nvolume offset [ 0x10000 ] : ntfs or exfat\n\nuse option [-offset 0x2000]\n");
}

TEST(VolumeTargets, SaysWhatCantBeOpened)
{
    std::ostringstream messages;
    bool found = true;
    u64 at = 0;
    EXPECT_FALSE(check_image_target(messages, "", at, found, size_check::enforce) || found);
    EXPECT_FALSE(check_drive_target(messages, 25, at, found, size_check::enforce));
    EXPECT_FALSE(check_vmdk_target(messages, {}, at, found, size_check::enforce));
    EXPECT_FALSE(check_image_target(messages, "/nowhere", at, found, size_check::enforce));
    EXPECT_EQ(messages.str(), "problems accessing physical disk #25, aborting \ninvalid disk collection of snaps "
                              "\ncouldn't find any partitions on disk\n");
    EXPECT_EQ(unresolved_path_text("a b"), "prob reading: a b, aborting\n,");
    EXPECT_EQ(suggested_array_text("-vmdk", {"a", "b c"}), "suggested array: -vmdk \"a | b c\"\n");
    for (const auto &[passed, was_found, offset, given, choice] :
         {std::tuple{true, true, 512u, true, volume_choice::at_offset},
          {true, true, 0u, true, volume_choice::at_offset},
          {false, true, 0u, true, volume_choice::stop},
          {true, true, 512u, false, volume_choice::at_offset},
          {true, true, 0u, false, volume_choice::whole_image},
          {false, true, 0u, false, volume_choice::whole_image},
          {false, true, 512u, false, volume_choice::stop},
          {false, false, 0u, false, volume_choice::stop}})
        EXPECT_EQ(choose_volume_offset(passed, was_found, offset, given), choice)
            << passed << was_found << offset << given;
}

TEST(VolumeTargets, OpensTheFirstThatIsNamed)
{
    const temp_dir dir;
    const sample_disk disk;
    const std::string image = dir.write_file("disk", std::string(disk.bytes.begin(), disk.bytes.end())),
                      volume = dir.write_file("volume", std::string(disk.bytes.begin() + 0x100000, disk.bytes.end()));
    const std::string copy = dir.write_file("mft", std::string(10240, 'x'));
    CNtfs attached(volume, 0, volume_kind::path), broken(image, 0, volume_kind::path);
    enum outcome { fails, opens_input, opens, uses_attached };
    struct open_case {
        const char *name;
        outcome expected;
        std::string label;
        std::function<void(volume_target &)> name_it;
    };
    for (const auto &[name, expected, label, name_it] : {open_case{"Nothing", fails, "", [](auto &) {}},
                                                         {"MissingInput", fails, dir / "none",
                                                          [&](auto &t) {
                                                              t.input_file = dir / "none";
                                                              t.attached = &attached;
                                                          }},
                                                         {"Input", opens_input, copy,
                                                          [&](auto &t) {
                                                              t.input_file = copy;
                                                              t.volume_path = volume;
                                                          }},
                                                         {"LargeRecords", opens_input, copy,
                                                          [&](auto &t) {
                                                              t.input_file = copy;
                                                              t.wanted_record_size = 4096;
                                                          }},
                                                         {"Attached", uses_attached, "",
                                                          [&](auto &t) {
                                                              t.attached = &attached;
                                                              t.vmdk_files = {"/nowhere"};
                                                          }},
                                                         {"BrokenAttached", opens, volume,
                                                          [&](auto &t) {
                                                              t.attached = &broken;
                                                              t.volume_path = volume;
                                                              t.volume_offset = 9;
                                                          }},
                                                         {"Image", opens, image,
                                                          [&](auto &t) {
                                                              t.image_path = image;
                                                              t.volume_offset = 0x100000;
                                                              t.partition = volume;
                                                          }},
                                                         {"WrongOffset", fails, image,
                                                          [&](auto &t) {
                                                              t.image_path = image;
                                                              t.volume_offset = 512;
                                                              t.partition = volume;
                                                          }},
                                                         {"Partition", opens, "partition: " + volume,
                                                          [&](auto &t) {
                                                              t.partition = volume;
                                                              t.volume_offset = 512;
                                                              t.mounted_vmdk = image;
                                                          }},
                                                         {"Mounted", opens, image,
                                                          [&](auto &t) {
                                                              t.mounted_vmdk = image;
                                                              t.volume_offset = 0x100000;
                                                          }},
                                                         {"Drive", fails, "specified by physical drive number",
                                                          [&](auto &t) {
                                                              t.drive_number = 20;
                                                              t.image_path = volume;
                                                          }},
                                                         {"Chain", fails, "vmdk file a | b", [](auto &t) {
                                                              t.vmdk_files = {"a", "b"};
                                                              t.drive_number = 0;
                                                          }}}) {
        volume_target target;
        name_it(target);
        for (const bool good : {expected != fails, expected != fails})
            EXPECT_TRUE(open_target(target) == good && target.is_opened == good && target.label == label)
                << name << target.label;
        EXPECT_EQ(target.volume, expected == uses_attached ? &attached : target.owned_volume.get()) << name;
        EXPECT_TRUE((target.owned_volume != nullptr) == (expected == opens) &&
                    target.input.is_open() == (expected == opens_input))
            << name;
        EXPECT_EQ(target.device_label, target.drive_number == 20 ? "physical drive: 20" : "") << name;
        if (expected == fails) continue;
        EXPECT_EQ(target.record_size, std::max(target.wanted_record_size, 1024u)) << name;
        EXPECT_EQ(target.entry_count,
                  expected == opens_input ? 10240 / target.record_size : attached.get_mft_entry_count())
            << name;
    }
}

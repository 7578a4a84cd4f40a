#include "ntfs/hv_volume_refusal.h"

#include "samples/bins.h"
#include "support/memory_source.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

using namespace test_support;

TEST(VolumeRefusal, SaysWhy)
{
    const byte_vector good = empty_bin().build();
    const auto with = [&good](std::size_t at, std::string_view bytes) {
        byte_vector image = good;
        put_text(image, at, bytes);
        return image;
    };
    struct refusal_case {
        byte_vector image;
        u64 offset;
        const char *reason;
    };
    const std::string zeros(1024, '\0');
    const std::vector<refusal_case> cases = {
        {good, good.size(), "the offset is after the end of the medium"},
        {byte_vector(300), 0, "the boot sector can't be read"},
        {with(3, "-FVE-FS-"), 0, "the volume is encrypted (BitLocker)"},
        {with(3, "MSDOS5.0"), 0, "there is no NTFS boot sector"},
        {with(11, {zeros.data(), 2}), 0,
         "the boot sector states no possible cluster size"},
        {with(ntfs_volume_builder().build_volume().record_position(0), zeros), 0,
         "the first record of the $MFT can't be read"},
    };
    const temp_dir dir;
    for (const refusal_case &one : cases) {
        CNtfs volume(dir.write_file("image", text(one.image)), one.offset,
                     volume_kind::path);
        EXPECT_FALSE(volume.validate_volume()) << one.reason;
        EXPECT_TRUE(refusal_reason(volume).starts_with(one.reason))
            << refusal_reason(volume);
    }
    CNtfs missing(dir / "none", 0, volume_kind::path);
    EXPECT_FALSE(missing.validate_volume());
    EXPECT_EQ(refusal_reason(missing), "no such file or device");
}

TEST(Volume, BelievesTheFirstRecordMoreThanTheBootSector)
{
    const temp_dir dir;
    byte_vector image = ntfs_volume_builder().record_size(4096).build();
    put_number(image, 64, 0xF6, 1); // 2^10 bytes
    const auto volume = open_volume(dir.write_file("image", text(image)), 0);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->get_mft_record_size(), 4096u);
}

// Systems before Windows XP wrote the update sequence array at 42, over what is now the
// number of the record.
TEST(Volume, ReadsRecordsOfOldSystemsOnRequest)
{
    ntfs_volume built =
        ntfs_volume_builder().file({.entry = 64, .name = "old"}).build_volume();
    const auto as_new =
        open_volume(std::make_shared<memory_source>(built.image), 0, {});
    for (const u64 entry : {0, 64}) {
        const std::span<u8> record =
            std::span(built.image).subspan(built.record_position(entry), 1024);
        EXPECT_EQ(stored_entry_number(byte_view{record}), entry);
        std::ranges::copy(record.subspan(48, 6), record.begin() + 42);
        record[4] = 42;
        EXPECT_EQ(stored_entry_number(byte_view{record}), std::nullopt);
    }
    const auto medium = std::make_shared<memory_source>(built.image);
    EXPECT_EQ(open_volume(medium, 0, parse_rules::fixed()), nullptr);
    EXPECT_EQ(open_volume(nullptr, 0, parse_rules::complete()), nullptr);
    const auto volume = open_volume(medium, 0, parse_rules::complete());
    ASSERT_NE(volume, nullptr);
    ASSERT_NE(as_new, nullptr);
    std::vector<u8> record, expected;
    EXPECT_TRUE(volume->read_filerecord(64, record));
    EXPECT_TRUE(as_new->read_filerecord(64, expected));
    // From the first attribute on, with the ends of the sectors put back.
    EXPECT_EQ(std::vector(record.begin() + 56, record.end()),
              std::vector(expected.begin() + 56, expected.end()));
}

TEST(Volume, CountsBitsFromTheLeastSignificant)
{
    const byte_vector bytes = {0x01, 0x80};
    for (u64 bit = 0; bit < 32; ++bit)
        EXPECT_EQ(test_bitmap_bit(byte_view{bytes}, bit), bit == 0 || bit == 15) << bit;
}

} // namespace
} // namespace hv

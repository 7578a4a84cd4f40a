#include "ntfs/hv_volume_refusal.h"

#include "samples/bins.h"
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

TEST(Volume, CountsBitsFromTheLeastSignificant)
{
    const byte_vector bytes = {0x01, 0x80};
    for (u64 bit = 0; bit < 32; ++bit)
        EXPECT_EQ(test_bitmap_bit(byte_view{bytes}, bit), bit == 0 || bit == 15) << bit;
}

} // namespace
} // namespace hv

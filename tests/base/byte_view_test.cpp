#include "base/hv_byte_view.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace hv {
namespace {

constexpr u64 huge = std::numeric_limits<u64>::max();

TEST(ByteView, ReadsLittleEndianWithinItsBounds)
{
    const std::vector<u8> bytes = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88};
    const byte_view view{bytes};
    u16 two = 0;
    u64 eight = 0;
    EXPECT_TRUE(view.read(6, two));
    EXPECT_EQ(two, 0x8807);
    EXPECT_TRUE(view.read(0, eight));
    EXPECT_EQ(eight, 0x8807060504030201u);
    EXPECT_FALSE(view.read(7, two));
    EXPECT_FALSE(view.read(huge, two)) << "an offset near the top must not wrap";
    EXPECT_EQ(two, 0x8807) << "a failed read leaves the value alone";
}

TEST(ByteView, TakesBytesAfterTheEndAsZeroWhenPadded)
{
    const std::vector<u8> bytes = {0x11, 0x22, 0x33};
    const byte_view view{bytes};
    EXPECT_EQ(view.read_padded<u32>(1), 0x00003322u);
    EXPECT_EQ(view.read_padded<u32>(3), 0u);
    EXPECT_EQ(view.read_padded<u32>(huge), 0u);
}

TEST(ByteView, CutsPiecesWithoutWrapping)
{
    const std::vector<u8> bytes(10, 7);
    const byte_view view{bytes};
    byte_view piece;
    EXPECT_TRUE(view.sub(4, 6, piece));
    EXPECT_EQ(piece.size(), 6u);
    EXPECT_FALSE(view.sub(4, 7, piece));
    EXPECT_FALSE(view.sub(4, huge, piece));
    EXPECT_FALSE(view.sub(huge, 2, piece));
    EXPECT_EQ(view.clip(4, huge).size(), 6u);
    EXPECT_EQ(view.clip(11, 1).size(), 0u);
    EXPECT_EQ(view.from(10).size(), 0u);
    fixed_view<10> whole;
    fixed_view<11> more;
    EXPECT_TRUE(view.fixed(0, whole));
    EXPECT_FALSE(view.fixed(0, more));
    EXPECT_FALSE(view.fixed(1, whole));
}

} // namespace
} // namespace hv

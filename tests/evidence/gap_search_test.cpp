#include "evidence/examine.h"

#include "samples/bins.h"
#include "samples/record_builders.h"
#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

using namespace test_support;

// Counts the bytes that are read.
class counting_source : public memory_source {
public:
    using memory_source::memory_source;
    std::size_t read(u64 offset, std::span<u8> out) const override
    {
        const std::size_t count = memory_source::read(offset, out);
        bytes_read += count;
        return count;
    }
    mutable u64 bytes_read = 0;
};

constexpr std::size_t mebibyte = 1 << 20;

void put(std::vector<u8> &bytes, std::size_t at, const std::vector<u8> &what)
{
    std::ranges::copy(what, bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

// Each gap is searched for volumes and carved at once, and keeps to itself.
TEST(GapSearch, ReadsOnceWhatIsBetweenVolumes)
{
    std::vector<u8> disk(16 * mebibyte, 0xA5);
    const std::vector<u8> volume = recent_bin().build();
    put(disk, 6 * mebibyte, volume);
    put(disk, 2 * mebibyte, metadata(u"C:\\before"));
    put(disk, 12 * mebibyte, metadata(u"C:\\after"));
    const auto medium = std::make_shared<counting_source>(disk);
    examination found;
    examine_options options;
    options.carve = true;
    examine(found, medium, options);
    ASSERT_EQ(found.regions.size(), 3);
    std::map<u32, std::vector<std::u16string>> paths; // by the place of the region
    for (const deletion &item : found.deletions)
        if (!found.regions[item.volume].is_volume)
            paths[item.volume].push_back(*item.path);
    ASSERT_EQ(paths.size(), 2);
    for (const auto &[region, expected] :
         {std::pair{u64{0}, u"C:\\before"},
          {6 * mebibyte + volume.size(), u"C:\\after"}}) {
        const auto gap =
            std::ranges::find(found.regions, region, &examined_region::offset);
        ASSERT_NE(gap, found.regions.end());
        EXPECT_EQ(paths[static_cast<u32>(gap - found.regions.begin())],
                  std::vector<std::u16string>{expected});
    }
    EXPECT_LT(medium->bytes_read, disk.size() * 5 / 4);
}

// What was found until a user interrupts the run isn't lost.
TEST(GapSearch, KeepsWhatItHasWhenItIsStopped)
{
    std::vector<u8> disk(16 * mebibyte, 0xA5);
    put(disk, mebibyte, metadata(u"C:\\early"));
    put(disk, 15 * mebibyte, metadata(u"C:\\late"));
    examination found;
    examine_options options;
    options.carve = true;
    u64 done_so_far = 0;
    options.progress = [&](u64 done, u64) { done_so_far = done; };
    options.should_stop = [&] { return done_so_far > 4 * mebibyte; };
    examine(found, std::make_shared<memory_source>(disk), options);
    EXPECT_TRUE(found.is_cut_short);
    ASSERT_EQ(found.deletions.size(), 1);
    EXPECT_EQ(found.deletions[0].path, u"C:\\early");
}

} // namespace
} // namespace hv

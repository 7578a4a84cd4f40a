#include "vss/hv_snapshot_source.h"

#include "lab/cases.h"
#include "ntfs/ntfs.h"
#include "samples/crc32.h"
#include "samples/shadow_structures.h"
#include "support/memory_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace {

using namespace hv;
using namespace test_support;

// A volume, and its snapshots as sources.
struct watched_source {
    watched_source(byte_source_ptr medium, u64 offset,
                   const parse_rules &rules = parse_rules::fixed())
        : volume(open_volume(std::move(medium), offset, rules))
    {
        if (volume == nullptr) return;
        container->report_live_reads = false;
        container->init(*volume, vss_load::with_blocks);
    }
    std::shared_ptr<snapshot_source> snapshot(u64 number) const
    {
        return std::make_shared<snapshot_source>(container, number);
    }

    std::unique_ptr<CNtfs> volume;
    std::shared_ptr<vss_container> container = std::make_shared<vss_container>();
};

// Positions in hexadecimal, with the sectors that follow each other; "-" for no place.
std::string places_of(const byte_source &source, u64 begin, u64 bytes)
{
    std::string text;
    for (u64 at = begin; at < begin + bytes;) {
        const byte_source::place place = source.locate(at);
        char part[40];
        std::snprintf(part, sizeof part, "%s%llx*%llu ", place.is_stored ? "" : "-",
                      static_cast<unsigned long long>(place.position),
                      static_cast<unsigned long long>(place.length / 512));
        text += part;
        at += place.length;
    }
    return text;
}

// Two snapshots, in an image in which the volume begins at 512. The second one's store
// has an overlay, which the first one mustn't show, and a block that both see.
TEST(SnapshotSource, ShowsEachSnapshotAndItsPlaces)
{
    const u64 own = shadow_kept(1, 0), later = shadow_kept(2, 0);
    byte_vector image = bytes_of(std::string(512, 'x'));
    put_bytes(
        image, 512,
        shadow_volume({{.first = {{shadow_live, own, 2, 0x80000001}},
                        .free = {shadow_live + 2 * shadow_block_size},
                        .free_before = {shadow_live + 2 * shadow_block_size}},
                       {.first = {{shadow_live, later, 2, 0x3},
                                  {shadow_live + shadow_block_size, later, 0, 0}}}}));
    const watched_source shadows(std::make_shared<memory_source>(image), 512);
    const auto first = shadows.snapshot(1), second = shadows.snapshot(2);
    const std::tuple<u64, const char *, const char *> blocks[] = {
        {0, "114200*1 200400*30 118000*1 ", "194200*2 200600*30 "},
        {1, "194200*32 ", "194200*32 "},
        {2, "-0*32 ", "208200*32 "},
    };
    for (const auto &[number, of_first, of_second] : blocks) {
        const u64 at = shadow_live + number * shadow_block_size;
        EXPECT_EQ(places_of(*first, at, shadow_block_size), of_first) << number;
        EXPECT_EQ(places_of(*second, at, shadow_block_size), of_second) << number;
        // Every sector begins with its place on the volume.
        for (const auto &source : {first, second})
            for (u64 sector = at; sector < at + shadow_block_size; sector += 512) {
                u8 stamp[8] = {};
                EXPECT_EQ(source->read(sector, stamp), 8u);
                const byte_source::place place = source->locate(sector);
                EXPECT_EQ(byte_view{stamp}.read_padded<u64>(0),
                          place.is_stored ? place.position - 512 : 0)
                    << sector;
            }
    }
    EXPECT_EQ(shadows.snapshot(0)->size() + shadows.snapshot(3)->size(), 0u);
    // After the end of the medium there is nothing, however large the volume was.
    EXPECT_EQ(first->size(), 0x40000000u);
    EXPECT_EQ(first->stored_size(), image.size());
    EXPECT_EQ(places_of(*first, 0x3FFE0000 + 512, 512), "-0*31 ");
    u8 byte = 1;
    EXPECT_EQ(first->read(0x3FFFFFFF, {&byte, 1}), 1u);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(first->read(0x40000000, {&byte, 1}), 0u);
}

// The bytes of a snapshot; those that nobody knows are zeros.
byte_vector known_bytes(const watched_source &shadows, const lab::told_volume &volume,
                        u64 number)
{
    byte_vector bytes = read_all(*shadows.snapshot(number));
    for (const auto &[offset, length] : volume.snapshots[number - 1].unknown)
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), length, u8{0});
    return bytes;
}

// Changes the first letter of every such name.
void rename_folder(byte_vector &bytes, u8 from, u8 to)
{
    byte_vector name(50);
    put_utf16(name, 0, u"System Volume Information");
    name[0] = from;
    for (auto at = bytes.begin();; ++at) {
        at = std::search(at, bytes.end(), name.begin(), name.end());
        if (at == bytes.end()) return;
        *at = to;
    }
}

// Media on which the bytes of every snapshot are known.
TEST(SnapshotSource, LaboratorysSnapshots)
{
    lab::case_makers makers;
    lab::add_snapshot_cases(makers);
#ifdef __SANITIZE_ADDRESS__ // which makes them take long
    constexpr std::string_view kinds[] = {"moved", "middle-deleted"};
#else
    constexpr std::string_view kinds[] = {"log-replayed", "moved", "free-blocks",
                                          "middle-deleted"};
#endif
    std::erase_if(makers, [&](const lab::case_maker &maker) {
        return !maker.is_first ||
               std::ranges::none_of(kinds, [&](std::string_view kind) {
                   return maker.name.find(kind) != std::string::npos;
               });
    });
    ASSERT_EQ(makers.size(), std::size(kinds));
    std::size_t count = 0;
    for (const lab::case_maker &maker : makers) {
        lab::told_case told;
        const auto medium = std::make_shared<memory_source>(maker.make(told));
        for (const lab::told_volume &volume : told.volumes) {
            const watched_source shadows(medium, volume.offset);
            EXPECT_EQ(shadows.container->store_count(), volume.snapshots.size());
            for (u64 number = 1; number <= volume.snapshots.size(); ++number, ++count)
                EXPECT_EQ(crc32(known_bytes(shadows, volume, number)),
                          volume.snapshots[number - 1].crc32)
                    << maker.name << ' ' << number;
        }
    }
    EXPECT_GT(count, makers.size());
}

// Without its name in any index or record the catalog is where the header says.
TEST(SnapshotSource, FindsACatalogThatNoIndexLeadsTo)
{
    lab::case_makers makers;
    lab::add_snapshot_cases(makers);
    const auto maker = std::ranges::find_if(
        makers, [](const lab::case_maker &each) { return each.is_first; });
    ASSERT_NE(maker, makers.end());
    lab::told_case told;
    byte_vector image = maker->make(told);
    rename_folder(image, 'S', 'T');
    const lab::told_volume &volume = told.volumes.front();
    const auto medium = std::make_shared<memory_source>(image);
    EXPECT_EQ(watched_source(medium, volume.offset, parse_rules::fixed())
                  .container->store_count(),
              0u);
    const watched_source shadows(medium, volume.offset, parse_rules::complete());
    ASSERT_EQ(shadows.container->store_count(), volume.snapshots.size());
    for (u64 number = 1; number <= volume.snapshots.size(); ++number) {
        byte_vector bytes = known_bytes(shadows, volume, number);
        rename_folder(bytes, 'T', 'S');
        EXPECT_EQ(crc32(bytes), volume.snapshots[number - 1].crc32) << number;
    }
}

} // namespace

// What sweeps over damaged media have found, each by a small medium that shows it.

#include "evidence/examine.h"
#include "evidence/file_facts.h"

#include "samples/bins.h"
#include "samples/record_builders.h"
#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

using namespace test_support;

// Paths of all rows, with the time where it isn't that of the samples.
std::vector<std::u16string> rows_of(const byte_vector &medium, bool carve = false)
{
    examination found;
    examine_options options;
    options.carve = carve;
    examine(found, std::make_shared<memory_source>(medium), options);
    std::vector<std::u16string> rows;
    for (const deletion &item : found.deletions)
        rows.push_back(item.path.value_or(u"?") +
                       (item.deleted == sample_filetime ? u"" : u" at another time"));
    std::ranges::sort(rows);
    return rows;
}

TEST(DamagedList, StatesOnlyWhatIsLeftOfIt)
{
    constexpr u64 cluster = 800, cluster_size = 1024, begin = cluster * cluster_size;
    ntfs_item list = bin_item(
        66, "INFO2",
        text(info2_file({{.ansi_path = "C:\\one", .path = u"C:\\one"},
                         {.ansi_path = "C:\\two", .path = u"C:\\two", .number = 2}})));
    list.stored.runs = {{cluster, 2}};
    const byte_vector whole = empty_bin("RECYCLER")
                                  .cluster_size(cluster_size)
                                  .clusters(cluster + 10)
                                  .file(list)
                                  .build();
    byte_vector headless = whole;
    put_bytes(headless, begin, byte_vector(20, 0xFF));

    using rows = std::vector<std::u16string>;
    EXPECT_EQ(rows_of(whole), (rows{u"C:\\one", u"C:\\two"}));
    EXPECT_EQ(rows_of(headless), (rows{u"C:\\one", u"C:\\two"}));
    // The medium ends in the second record, before its time.
    EXPECT_EQ(rows_of(cut(whole, 0, begin + 820 + 200)), rows{u"C:\\one"});
}

// The second sector of a record, from the middle of its $I file's path on, was never
// written.
TEST(TornRecord, StatesTheStartOfItsPath)
{
    const std::u16string path = u"C:\\" + std::u16string(200, u'x');
    const ntfs_volume whole =
        empty_bin().file(bin_metadata(66, "$IAB12CD.txt", path)).build_volume();
    const u64 second = whole.record_position(66) + 512;
    const auto path_at = whole.attribute_position(66, ntfs_type::data) + 24 + 28 -
                         whole.record_position(66);
    const auto told = [&](const byte_vector &sector) {
        byte_vector medium = whole.image;
        put_bytes(medium, second, sector);
        examination found;
        examine(found, std::make_shared<memory_source>(medium), {});
        std::vector<std::pair<std::u16string, bool>> rows;
        for (const deletion &item : found.deletions)
            rows.emplace_back(item.path.value_or(u"?"), item.path_is_whole);
        return rows;
    };
    using rows = std::vector<std::pair<std::u16string, bool>>;
    const std::u16string start = path.substr(0, (512 - path_at) / 2);
    EXPECT_EQ(told(cut(whole.image, second, 512)), (rows{{path, true}}));
    EXPECT_EQ(told(byte_vector(512)), (rows{{start, false}}));
}

// What is said of the one snapshot of a volume: as it should be, with a block in the
// place of its boot sector that is none, with a damaged list of the blocks it kept.
TEST(DamagedSnapshot, SaysWhatIsLost)
{
    const auto kept_of = [](u64 offset) {
        return shadow_volume({{.first = {{offset, shadow_kept(1, 0)}}}});
    };
    byte_vector damaged = kept_of(shadow_live);
    put_bytes(damaged, shadow_area(1) + shadow_block_size, byte_vector(48, 0xFF));
    for (const auto &[medium, trouble] :
         std::vector<std::pair<byte_vector, std::string>>{
             {kept_of(shadow_live), ""},
             {kept_of(0), "snapshot 1 can't be read"},
             {damaged,
              "parts of snapshot 1 are lost: later bytes stand in for them"}}) {
        examination found;
        examine(found, std::make_shared<memory_source>(medium), {});
        ASSERT_EQ(found.regions.size(), 1u);
        EXPECT_EQ(found.regions[0].snapshots.size(), 1u);
        EXPECT_EQ(found.regions[0].trouble, trouble);
    }
}

TEST(DamagedRecord, TakesNoFileOutOfTheBin)
{
    const ntfs_volume volume = empty_bin()
                                   .file(bin_metadata(66, "$IAB12CD.txt", u"C:\\a.txt"))
                                   .file(bin_item(67, "$RAB12CD.txt", "data"))
                                   .build_volume();
    using state = std::tuple<deletion_state, data_state>;
    for (const auto &[entry, expected] :
         std::map<u64, state>{{66, {deletion_state::in_bin, data_state::whole}},
                              {67, {deletion_state::in_bin, data_state::unknown}}}) {
        byte_vector medium = volume.image;
        put_bytes(medium, volume.record_position(entry), byte_vector(1024));
        examination found;
        examine(found, std::make_shared<memory_source>(medium), {});
        ASSERT_EQ(found.deletions.size(), 1U) << entry;
        EXPECT_EQ(state(found.deletions[0].state, found.deletions[0].content), expected)
            << entry;
    }
}

// Someone may have emptied it. With other content, it only has the name.
TEST(DamagedMetadata, IsKnownByItsNameUnlessItHoldsSomethingElse)
{
    for (const auto &[content, state] :
         std::map<std::string, std::optional<deletion_state>>{
             {"", deletion_state::metadata_only}, {"a text", std::nullopt}}) {
        const byte_vector medium =
            empty_bin().file(bin_item(66, "$IAB12CD.txt", content)).build();
        examination found;
        examine(found, std::make_shared<memory_source>(medium), {});
        EXPECT_EQ(found.deletions.size(), state ? 1U : 0U) << content;
        for (const deletion &item : found.deletions) EXPECT_EQ(item.state, state);
    }
}

// What a file holds isn't carved, as it may be a copy from anywhere.
TEST(DamagedBitmap, LeavesItToTheRecordsWhichClustersAreFree)
{
    constexpr u64 cluster_size = 1024, free_cluster = 900, map_entry = 6;
    ntfs_item archive = bin_item(70, "backup.tar", text(metadata(u"C:\\copy")), 5);
    archive.stored.non_resident = true;
    const ntfs_volume volume = empty_bin()
                                   .cluster_size(cluster_size)
                                   .clusters(1000)
                                   .file(archive)
                                   .build_volume();
    byte_vector medium = volume.image;
    put_bytes(medium, free_cluster * cluster_size, metadata(u"C:\\free"));

    using rows = std::vector<std::u16string>;
    EXPECT_EQ(rows_of(medium, true), rows{u"C:\\free"});
    put_bytes(medium, volume.record_position(map_entry), byte_vector(1024));
    EXPECT_EQ(rows_of(medium, true), rows{u"C:\\free"});
}

// All samples have the same check value, as many records of a volume do.
TEST(DamagedRecord, EndsWhereAnotherOneBegins)
{
    byte_vector letters(900, 'a'), others(900, 'b');
    byte_vector record = ntfs_structures::encode_record({}, {.entry = 40}, letters);
    const byte_vector other = ntfs_structures::encode_record({}, {.entry = 41}, others);
    put_bytes(record, 512, cut(other, 0, 512));

    record_bytes read;
    ASSERT_TRUE(read_record(read, byte_view{record}, parse_rules::complete()));
    EXPECT_EQ(read.sound, 512U);
    EXPECT_EQ(read.bytes[510], 'a');
    EXPECT_EQ(read.bytes[1022], 'b');
}

} // namespace
} // namespace hv

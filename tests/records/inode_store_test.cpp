#include "records/inode_store.h"

#include <gtest/gtest.h>

#include <tuple>

namespace hv {
namespace {

auto facts_of(const inode_record &record)
{
    return std::tuple(record.entry, record.first_parent, record.sequence, record.in_use,
                      record.is_directory, record.position, record.si_created,
                      record.si_modified, record.si_mft_changed, record.si_accessed,
                      record.real_size);
}

// Numbers of all lengths, each from a record of a hostile medium, come back.
TEST(InodeStore, PacksRecordsWithoutLoss)
{
    constexpr u64 most = ~u64{0};
    const std::pair<inode_record, std::string> cases[] = {
        {{}, ""},
        {{.entry = 1,
          .first_parent = 2,
          .si_modified = 3,
          .si_accessed = 4,
          .si_mft_changed = 5,
          .si_created = 6,
          .real_size = 7,
          .position = 8,
          .sequence = 9,
          .in_use = true},
         "a"},
        {{.entry = 40,
          .first_parent = 5,
          .si_modified = 133541216135000000,
          .si_accessed = 133541216135000001,
          .si_mft_changed = 133541216134999999,
          .si_created = 133541216130000000,
          .real_size = 300,
          .position = 40960,
          .sequence = 2,
          .is_directory = true},
         "$RAB12CD.docx"},
        {{.entry = most,
          .first_parent = most - 1,
          .si_modified = most,
          .si_accessed = u64{1} << 63,
          .si_created = 1,
          .real_size = most,
          .position = most,
          .sequence = 0xffff,
          .in_use = true},
         std::string(765, 'n')},
        {{.entry = 127, .first_parent = most, .real_size = 128},
         std::string(65537, 'l')},
    };
    inode_store store;
    for (const auto &[record, name] : cases) store.add_packed(record, name);
    for (u64 i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(facts_of(store[i]), facts_of(cases[i].first)) << i;
        EXPECT_EQ(store.name(i), cases[i].second) << i;
        EXPECT_EQ(store.path(i), "") << i;
    }
}

TEST(InodeStore, KeepsEverythingOfARecordThatIsChanged)
{
    inode_store store;
    store.add_packed({.entry = 40, .first_parent = 5, .real_size = 12}, "first");
    const u64 index = store.add_packed({.entry = 41, .position = 77}, "second");
    store.set_path(index, "a\\b");
    store.extras(index).zone_data = {1};
    EXPECT_EQ(store.name(index), "second");
    EXPECT_EQ(store.path(index), "a\\b");
    EXPECT_EQ(store[index].position, 77U);
    EXPECT_EQ(store.extras_or_blank(index).zone_data, std::vector<u8>{1});
    EXPECT_EQ(store.name(0), "first");
    EXPECT_EQ(store[0].real_size, 12U);
    EXPECT_TRUE(store.extras_or_blank(0).zone_data.empty());
}

} // namespace
} // namespace hv

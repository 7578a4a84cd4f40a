#include "evidence/user_names.h"

#include "samples/hive_builder.h"
#include "samples/ntfs_volume_builder.h"
#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

using namespace test_support;

constexpr u64 day = 864'000'000'000;

// A volume with a SAM hive, as it is now or as a snapshot of that day saw it.
void note(user_names &names, u32 snapshot, const byte_vector &sam,
          const std::string &windows = "Windows")
{
    ntfs_volume_builder builder;
    builder.directory({.entry = 70, .name = windows})
        .directory({.entry = 71, .parent = 70, .name = "system32"})
        .directory({.entry = 72, .parent = 71, .name = "CONFIG"})
        .file({.entry = 73, .parent = 72, .name = "SAM", .data = sam});
    volume_view view(std::make_shared<memory_source>(builder.build()), 0, snapshot);
    ASSERT_TRUE(view.open());
    names.note_hives(
        view, {.volume = 512,
               .taken = snapshot == 0 ? std::nullopt : std::optional(snapshot * day)});
}

// What is called what, by which hive.
TEST(UserNames, ComeFromTheFreshestHiveThatHasThem)
{
    if (!can_read_hives()) GTEST_SKIP() << "built without libregf";
    user_names names;
    note(names, 1,
         sam_hive({1, 2, 3}, {{1, u"first"}, {2, u"first"}, {3, u"first"}}, day));
    note(names, 0, sam_hive({1, 2, 3}, {{1, u"now"}}, 3 * day));
    note(names, 2, sam_hive({1, 2, 3}, {{1, u"later"}, {2, u"later"}}, 2 * day),
         "WINNT");
    examination found;
    found.regions.resize(2);
    const std::u16string computer = u"S-1-5-21-1-2-3-";
    for (const char16_t *user : {u"1", u"2", u"3", u"4"}) {
        found.deletions.emplace_back().user = computer + user;
        found.deletions.back().owner = "S-1-5-18";
    }
    names.name_users(found);
    const std::string place = " of the volume at byte 0x200";
    const std::tuple<std::u16string, std::string> expected[] = {
        {u"now", "\\Windows\\System32\\config\\SAM" + place},
        {u"later", "\\WINNT\\System32\\config\\SAM" + place + ", snapshot 2"},
        {u"first", "\\Windows\\System32\\config\\SAM" + place + ", snapshot 1"},
        {u"", ""}};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const found_name &name = found.deletions[i].user_name;
        EXPECT_EQ(std::tuple(name.name, name.from), expected[i]) << i;
    }
    EXPECT_EQ(found.deletions[0].owner_name.name, u"SYSTEM");
    EXPECT_EQ(found.regions[1].user_names[computer + u"2"], u"later");
    EXPECT_EQ(found.names_trouble, "");
}

// Damage is said where it may have cost a name.
TEST(UserNames, SayWhichHiveIsDamaged)
{
    if (!can_read_hives()) GTEST_SKIP() << "built without libregf";
    user_names names;
    byte_vector damaged = sam_hive({1, 2, 3}, {{1, u"lost"}});
    std::fill(damaged.begin() + 4096, damaged.end(), u8{0xFF});
    note(names, 0, damaged);
    examination found;
    found.deletions.emplace_back().user = u"S-1-5-21-1-2-3-1";
    names.name_users(found);
    EXPECT_EQ(found.names_trouble,
              "no names of users from \\Windows\\System32\\config\\SAM "
              "of the volume at byte 0x200: it is damaged");
}

} // namespace
} // namespace hv

#include "evidence/examine.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

constexpr u64 moment = 133'500'000'000'000'000;
constexpr entry_id user_folder = {41, 1};

// A record that is reached through the volume now.
sighting seen(sighting_kind kind, const std::u16string &name, u64 entry,
              bool in_use = true)
{
    sighting made;
    made.kind = kind;
    made.name = name;
    made.entry = entry_id{entry, 1};
    made.parent = user_folder;
    made.user = u"S-1-5-21-7";
    made.is_in_bin = true;
    made.in_use = in_use;
    made.views = {0};
    made.ranges = {{entry * 1024, 100}};
    made.times.record_changed = moment;
    made.times.created = moment;
    return made;
}

sighting metadata(const std::u16string &name, u64 entry, bool in_use = true)
{
    sighting made = seen(sighting_kind::metadata, name, entry, in_use);
    deleted_file file;
    file.deleted = moment;
    file.path = u"C:\\a.txt";
    file.size = 5;
    made.metadata = file;
    return made;
}

sighting data(const std::u16string &name, u64 entry, bool in_use = true)
{
    sighting made = seen(sighting_kind::data_item, name, entry, in_use);
    made.data_size = 5;
    return made;
}

// A record of a list, of which number `number` was given out at `deleted`.
sighting listed(u32 number, u64 deleted, const std::u16string &path)
{
    sighting made =
        metadata(u"Dc" + std::u16string(1, char16_t(u'0' + number)) + u".txt", 66);
    made.metadata->format = metadata_format::info2_800;
    made.metadata->number = number;
    made.metadata->deleted = deleted;
    made.metadata->path = path;
    made.ranges = {{deleted % 1'000'000'000, 800}};
    return made;
}

std::vector<deletion> assembled(std::vector<sighting> sightings)
{
    std::vector<deletion> found;
    assemble(found, std::move(sightings), 0);
    return found;
}

struct state_case {
    const char *name;
    std::vector<sighting> sightings;
    deletion_state expected;
};

TEST(Assemble, StatesFollowFromSightings)
{
    const std::u16string i = u"$IAB12CD.txt", r = u"$RAB12CD.txt";
    sighting back = seen(sighting_kind::restored_item, r, 68);
    sighting struck = listed(1, moment, u"C:\\a.txt");
    struck.metadata->is_struck = true;
    const state_case cases[] = {
        {"both in use", {metadata(i, 67), data(r, 68)}, deletion_state::in_bin},
        {"both freed",
         {metadata(i, 67, false), data(r, 68, false)},
         deletion_state::emptied},
        {"metadata alone", {metadata(i, 67)}, deletion_state::metadata_only},
        {"data freed",
         {metadata(i, 67), data(r, 68, false)},
         deletion_state::metadata_only},
        {"data alone", {data(r, 68)}, deletion_state::data_only},
        {"lives outside", {metadata(i, 67, false), back}, deletion_state::restored},
        {"a line alone",
         {seen(sighting_kind::journal_line, r, 68, false)},
         deletion_state::journal_only},
        {"struck in its list", {struck}, deletion_state::emptied},
    };
    for (const state_case &each : cases) {
        const std::vector<deletion> found = assembled(each.sightings);
        ASSERT_EQ(found.size(), 1u) << each.name;
        EXPECT_EQ(found[0].state, each.expected) << each.name;
    }
}

TEST(Assemble, ADeletionIsToldOnceHoweverOftenItWasSeen)
{
    sighting carved = metadata(u"", 67);
    carved.entry.reset();
    carved.ranges = {{1 << 20, 100}};
    const std::vector<deletion> found =
        assembled({carved, metadata(u"$IAB12CD.txt", 67), data(u"$RAB12CD.txt", 68),
                   seen(sighting_kind::index_name, u"$RAB12CD.txt", 68)});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].sightings.size(), 4u);
    EXPECT_EQ(found[0].stated_size, 5u);
    EXPECT_EQ(found[0].found_size, 5u);
}

// The same name in the bins of two users, and data without metadata: no deletion time.
TEST(Assemble, UsersAndGuessesStayApart)
{
    sighting other = data(u"$RAB12CD.txt", 90);
    other.user = u"S-1-5-21-8";
    other.parent = entry_id{42, 1};
    const std::vector<deletion> found =
        assembled({metadata(u"$IAB12CD.txt", 67), other});
    ASSERT_EQ(found.size(), 2u);
    for (const deletion &each : found) {
        const bool has_metadata = each.format.has_value();
        EXPECT_EQ(each.deleted.has_value(), has_metadata);
        EXPECT_EQ(each.record_changed.has_value(), !has_metadata);
    }
}

// A list gives its numbers out again: the data item is of the record of its own time.
TEST(Assemble, NumbersOfListsAreToldApartByTheirTimes)
{
    sighting item = data(u"Dc1.txt", 70);
    item.times.record_changed = moment + 5'000'000;
    const u64 later = moment + 36'000'000'000;
    const std::vector<deletion> found = assembled(
        {listed(1, later, u"C:\\new.txt"), item, listed(1, moment, u"C:\\old.txt")});
    ASSERT_EQ(found.size(), 2u);
    for (const deletion &each : found)
        EXPECT_EQ(each.data_entry.has_value(), each.path == u"C:\\old.txt");
}

// More evidence doesn't change what a deletion is called, and no two are called the
// same.
TEST(Assemble, IdsOutliveWhatIsLearned)
{
    const std::u16string i = u"$IAB12CD.txt", r = u"$RAB12CD.txt",
                         listed_name = u"Dc1.txt";
    const auto id = [](const std::vector<sighting> &sightings) {
        return assembled(sightings).at(0).id;
    };
    const std::string random = id({metadata(i, 67)});
    EXPECT_EQ(id({data(r, 68)}), random);
    EXPECT_EQ(id({metadata(i, 67), data(r, 68)}), random);
    EXPECT_EQ(id({data(listed_name, 70)}),
              id({data(listed_name, 70), listed(1, moment, u"C:\\old.txt")}));

    sighting other = data(r, 90);
    other.user = u"S-1-5-21-8";
    other.parent = entry_id{42, 1};
    for (const auto &both : {std::vector{data(r, 68), other},
                             std::vector{listed(1, moment, u"C:\\old.txt"),
                                         listed(1, moment + 1, u"C:\\new.txt")}}) {
        const std::vector<deletion> found = assembled(both);
        ASSERT_EQ(found.size(), 2u);
        EXPECT_NE(found[0].id, found[1].id);
    }
}

// Metadata without a name belongs to the only item that came at its time.
TEST(Assemble, BareMetadataJoinsOnlyWhatIsUnique)
{
    sighting bare = metadata(u"", 67);
    bare.entry.reset();
    bare.parent.reset();
    bare.user.clear();
    const sighting one = data(u"$RAB12CD.txt", 68, false);
    const std::vector<deletion> joined = assembled({bare, one});
    ASSERT_EQ(joined.size(), 1u);
    EXPECT_EQ(joined[0].data_entry, (entry_id{68, 1}));
    EXPECT_EQ(joined[0].conflicts.size(), 1u);
    EXPECT_EQ(assembled({bare, one, data(u"$RXY12CD.txt", 69, false)}).size(), 3u);
}

} // namespace
} // namespace hv

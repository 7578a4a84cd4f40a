#include "ntfs/hv_directory_index.h"

#include "ntfs/hv_file_record.h"
#include "samples/ntfs_structures.h"
#include "support/fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

namespace {

using namespace hv;
using namespace test_support;
using namespace test_support::ntfs_structures;

struct index_item {
    u64 child = 64;
    std::u16string name = u"a";
    u64 parent = 5;
    u64 time = sample_filetime;
    u32 attributes = 0x20;
};

byte_vector index_entry_bytes(const index_item &item)
{
    byte_vector value(66);
    put_layout(value, {{0, 8, item.parent},
                       {40, 8, 4096},
                       {48, 8, 100},
                       {56, 4, item.attributes},
                       {64, 1, item.name.size()}});
    for (const std::size_t at : {8u, 16u, 24u, 32u})
        put_number(value, at, item.time, 8);
    put_utf16(value, 66, item.name);
    return encode_index_entry(item.child, value);
}

// Everything from the index header on: entries at 40, the end marker after them, and
// zeros up to the end of a block.
byte_vector index_bytes(const std::vector<index_item> &items)
{
    byte_vector bytes(40);
    for (const index_item &item : items) append(bytes, index_entry_bytes(item));
    append(bytes, encode_node({}));
    put_layout(bytes, {{0, 4, 40}, {4, 4, bytes.size()}});
    bytes.resize(4072);
    return bytes;
}

struct listing {
    explicit listing(const byte_vector &index, slack_mode mode = slack_mode::recover,
                     u64 parent = 0)
        : given(parent),
          good(parse_index_entries(live, slack, given, byte_view{index}, 1000, mode))
    {
    }

    // The names, live ones before a "|", in their order; "-" if the header is refused.
    std::string names() const
    {
        std::string text = good ? "" : "-";
        for (const auto &[key, entry] : live) text += entry.name + " ";
        text += "|";
        for (const auto &[key, entry] : slack) text += " " + entry.name;
        return text;
    }

    index_live_map live;
    index_slack_map slack;
    u64 given;
    bool good;
};

// Entries of one-letter names are 88 bytes long; "a" begins at 40, "b" at 128, "c" at
// 216, and the end marker at 304.
const std::vector<index_item> abc = {{64, u"a"}, {65, u"b"}, {66, u"c"}};

// What a walk over names finds: "ab" for the entries 64 and 65.
std::string children_of(const byte_vector &index, name_walk mode)
{
    std::set<u64> children;
    std::string letters;
    if (!read_index_names(children, byte_view{index}, mode)) return "-";
    for (const u64 child : children) letters += static_cast<char>('a' + child - 64);
    return letters;
}

TEST(ParseIndexEntries, EndsItsWalks)
{
    // A field and what it becomes, and what the walks find: over live entries, strictly
    // over names, tolerantly over names.
    const std::tuple<layout_row, const char *, const char *, const char *> cases[] = {
        {{8, 4, 0}, "a b c |", "abc", "abc"},
        {{128 + 8, 2, 512}, "a b |", "a", "a"}, // length of the second entry
        {{128 + 8, 2, 513}, "a |", "a", "a"},
        {{128 + 8, 2, 0}, "a |", "a", "a"},
        {{128 + 10, 2, 89}, "a b c |", "a", "abc"}, // length of its content
        {{128 + 10, 2, 321}, "a b c |", "a", "a"},  // longer than all entries
        {{128, 8, 0}, "a |", "a", "ac"},            // its reference
        {{128 + 12, 2, 2}, "a |", "a", "ac"},       // its flags: the last entry
        {{0, 4, 4072}, "|", "-", "-"},              // first entry
        {{0, 4, 4073}, "-|", "-", "-"},             // after the end of the block
        {{4, 4, 0}, "|", "-", "-"},                 // bytes in use
        {{4, 4, 4095}, "a b c |", "abc", "abc"},
        {{4, 4, 4096}, "|", "-", "-"},
        {{4, 4, 89}, "a b |", "ab", "ab"},
        {{40 + 80, 1, 0}, "<name not present> b c |", "abc", "abc"},
    };
    for (const auto &[change, live, strict, tolerant] : cases) {
        SCOPED_TRACE(testing::Message() << change.value << " at " << change.offset);
        byte_vector index = index_bytes(abc);
        put_layout(index, {change});
        EXPECT_EQ(listing(index, slack_mode::skip).names(), live);
        EXPECT_EQ(children_of(index, name_walk::strict), strict);
        EXPECT_EQ(children_of(index, name_walk::tolerant), tolerant);
    }
}

TEST(ParseIndexEntries, FillsFieldsAndKeys)
{
    const listing found(index_bytes({{64 | u64{7} << 48, u"Ab"},
                                     {65, u"aB"},
                                     {66, u"c", 4, sample_filetime, 0x10000000}}));
    ASSERT_EQ(found.names(), "c Ab |"); // by parent; the second of two equal keys goes
    EXPECT_TRUE(found.live.at("0000000004_c").is_directory);
    const index_entry &first = found.live.at("0000000005_ab");
    EXPECT_EQ(std::tuple(reference_entry(first.reference), first.position,
                         first.is_directory),
              std::tuple(64, 1040, false));
    EXPECT_EQ(found.given, 5u);
}

constexpr u64 bound_1986 = 121'493'952'000'000'000;
constexpr u64 bound_2100 = 157'469'184'000'000'000; // 182,256 days after 1601

struct slack_case {
    const char *what;
    std::size_t at; // in the slack, of 4032 bytes; the first 16 are an end marker
    bool found;
    index_item item;
    layout_row change = {14, 2, 0}; // of the stale entry
};

TEST(ParseIndexEntries, RecoversStaleEntries)
{
    const std::vector<slack_case> cases = {
        {"under the end marker", 0, true, {.time = 0}},
        {"of another parent", 16, false, {.parent = 6, .time = 0}},
        {"padding", 16, false, {.time = 0}, {14, 2, 1}},
        {"larger than allocated", 16, false, {.time = 0}, {64, 8, 4097}},
        {"64 units", 16, true, {.name = std::u16string(64, u'x'), .time = 0}},
        {"65 units", 16, false, {.name = std::u16string(65, u'x'), .time = 0}},
        {"times need no test", 16, true, {.parent = 6}, {14, 2, 1}},
        {"1985", 16, false, {.parent = 6, .time = bound_1986 - 1}},
        {"1986", 16, true, {.parent = 6, .time = bound_1986}},
        {"2100", 16, true, {.parent = 6, .time = bound_2100}},
        {"later", 16, false, {.parent = 6, .time = bound_2100 + 1}},
        {"no last stamp", 16, true, {.parent = 6}, {48, 8, 0}},
        {"no first stamp", 16, true, {.parent = 6}, {24, 8, 0}},
        {"cut by the end", 4032 - 80, false, {}},
        {"name ends with the block", 4032 - 88, true, {.name = u"abc"}},
    };
    for (const auto &[what, at, is_found, item, change] : cases) {
        byte_vector stale = index_entry_bytes(item);
        put_layout(stale, {change});
        byte_vector index = index_bytes({});
        if (at == 0) std::copy_n(index.begin() + 40, 16, stale.begin());
        put_bytes(index, 40 + at, stale);
        index.resize(4072);
        const listing found(index, slack_mode::recover, 5);
        EXPECT_EQ(found.slack.size(), is_found ? 1u : 0u) << what;
        for (const auto &[parent, entry] : found.slack) {
            EXPECT_EQ(parent, item.parent) << what;
            EXPECT_EQ(entry.position, 1000u + 40 + at) << what;
        }
    }
}

TEST(ParseIndexEntries, KeepsSlackEntriesApart)
{
    // Two believable starts 40 bytes apart: the first one is taken. The second one
    // leaves little allocated.
    byte_vector index = index_bytes(abc);
    put_bytes(index, 320, index_entry_bytes({70, u"inner", 5, 0}));
    const byte_vector head = index_entry_bytes({71, u"", 5, 0});
    std::copy_n(head.begin(), 24, index.begin() + 360);
    put_layout(index, {{320 + 64, 8, 0}, {360 + 80, 1, 1}, {360 + 82, 2, u'y'}});
    EXPECT_EQ(listing(index).names(), "a b c | inner");
    // Whatever is in use, the whole block is slack then.
    put_number(index, 4, 0, 4);
    EXPECT_EQ(listing(index, slack_mode::recover, 5).names(), "| a b c inner");
}

TEST(ListDirectory, RealIndexKeepsWhatWasDeleted)
{
    std::vector<std::set<std::string>> live, slack;
    for (const char *file : {"i30/Start.I30", "i30/FirstDelete.I30"}) {
        byte_vector bytes = bytes_of(file_bytes(fixture_or_skip(file)));
        auto &live_names = live.emplace_back(), &slack_names = slack.emplace_back();
        for (std::size_t at = 0; at < 5 * std::size_t{4096}; at += 4096) {
            const std::span block = std::span(bytes).subspan(at, 4096);
            EXPECT_TRUE(apply_fixup(block, 512));
            const listing found(byte_vector(block.begin() + 24, block.end()));
            for (const auto &[key, entry] : found.live) live_names.insert(entry.name);
            for (const auto &[key, entry] : found.slack) slack_names.insert(entry.name);
        }
    }
    EXPECT_EQ(live[0].size(), 50u);
    EXPECT_EQ(live[1].size(), 20u);
    // Of 30 names that vanished, 14 were overwritten by their neighbours moving up; the
    // bytes of the others are still in the second file.
    std::string recovered;
    for (const std::string &name : live[0])
        if (!live[1].contains(name) && slack[1].contains(name)) recovered += name + ' ';
    EXPECT_EQ(recovered, "Folder5 Folder5a SOE7F0~1.TXT SOMEFI~1.TXT SOMEFI~2.TXT "
                         "SOMEFI~3.TXT SOMEFI~4.TXT SomeFile12.txt SomeFile2.txt "
                         "SomeFile3.txt SomeFile4.txt SomeFile5.txt SomeFile6.txt "
                         "SomeFile7.txt SomeFile8.txt SomeFile9.txt ");
}

} // namespace

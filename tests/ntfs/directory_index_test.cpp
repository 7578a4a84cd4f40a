#include "ntfs/hv_directory_index.h"

#include "ntfs/hv_file_record.h"
#include "samples/record_builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

using namespace hv;
using namespace test_support;

struct index_item {
    u64 child = 64;
    std::u16string name = u"a";
    u64 parent = 5;
    u64 time = sample_filetime;
    u32 attributes = 0x20;
};

// One index entry, its length a multiple of 8.
byte_vector index_entry_bytes(const index_item &item)
{
    const std::size_t name = 2 * item.name.size();
    byte_vector bytes((82 + name + 7) / 8 * 8);
    put_number(bytes, 0, item.child, 8);
    put_number(bytes, 8, bytes.size(), 2);
    put_number(bytes, 10, 66 + name, 2);
    put_number(bytes, 16, item.parent, 8);
    for (std::size_t at = 24; at < 56; at += 8) put_number(bytes, at, item.time, 8);
    put_number(bytes, 56, 4096, 8);
    put_number(bytes, 64, 100, 8);
    put_number(bytes, 72, item.attributes, 4);
    put_number(bytes, 80, item.name.size(), 1);
    put_utf16(bytes, 82, item.name);
    return bytes;
}

void put_bytes(byte_vector &bytes, std::size_t at, const byte_vector &piece)
{
    if (bytes.size() < at + piece.size()) bytes.resize(at + piece.size());
    std::copy(piece.begin(), piece.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

// Everything from the index header on: entries at 40, the end marker behind them, and
// zeros up to the end of a block.
byte_vector index_bytes(const std::vector<index_item> &items)
{
    byte_vector bytes(40);
    for (const index_item &item : items)
        put_bytes(bytes, bytes.size(), index_entry_bytes(item));
    const std::size_t end = bytes.size();
    put_number(bytes, end + 8, 16, 2);
    put_number(bytes, end + 12, 2, 4);
    put_number(bytes, 0, 40, 4);
    put_number(bytes, 4, bytes.size(), 4);
    bytes.resize(4072);
    return bytes;
}

struct listing {
    explicit listing(const byte_vector &index, slack_mode mode = slack_mode::recover,
                     u64 parent = 0)
        : given(parent)
    {
        good = parse_index_entries(live, slack, given, byte_view{index}, 1000, mode);
    }

    // The names, live ones ahead of a "|", in their order.
    std::string names() const
    {
        std::string text;
        for (const auto &[key, entry] : live) text += entry.name + " ";
        text += "|";
        for (const auto &[key, entry] : slack) text += " " + entry.name;
        return text;
    }

    index_live_map live;
    index_slack_map slack;
    u64 given;
    bool good = false;
};

// Entries of one-letter names are 88 bytes long; "a" stands at 40, "b" at 128, "c" at
// 216, and the end marker at 304.
const std::vector<index_item> abc = {{64, u"a"}, {65, u"b"}, {66, u"c"}};

struct poke_case {
    const char *what;
    std::size_t at;
    u64 value;
    std::size_t width;
    const char *names;
};

TEST(ParseIndexEntries, EndsTheLiveWalk)
{
    const std::vector<poke_case> cases = {
        {"nothing", 8, 0, 4, "a b c |"},
        {"entry of 512 bytes", 128 + 8, 512, 2, "a b |"},
        {"entry of 513 bytes", 128 + 8, 513, 2, "a |"},
        {"entry of length 0", 128 + 8, 0, 2, "a |"},
        {"no reference", 128, 0, 8, "a |"},
        {"last entry", 128 + 12, 2, 2, "a |"},
        {"nothing in use", 4, 0, 4, "|"},
        {"4095 bytes in use", 4, 4095, 4, "a b c |"},
        {"4096 bytes in use", 4, 4096, 4, "|"},
        {"in use into the second entry", 4, 89, 4, "a b |"},
        {"no name", 40 + 80, 0, 1, "<name not present> b c |"},
    };
    for (const poke_case &one : cases) {
        byte_vector index = index_bytes(abc);
        put_number(index, one.at, one.value, one.width);
        EXPECT_EQ(listing(index, slack_mode::skip).names(), one.names) << one.what;
    }
    byte_vector outside = index_bytes(abc);
    put_number(outside, 0, outside.size() + 1, 4);
    EXPECT_FALSE(listing(outside).good);
}

TEST(ParseIndexEntries, FillsFieldsAndKeys)
{
    const listing found(index_bytes({{64 | u64{7} << 48, u"Ab"},
                                     {65, u"aB"},
                                     {66, u"c", 4, sample_filetime, 0x10000000}}));
    ASSERT_EQ(found.names(), "c Ab |"); // by parent; the second of two equal keys goes
    EXPECT_TRUE(found.live.at("0000000004_c").is_directory);
    const index_entry &first = found.live.at("0000000005_ab");
    EXPECT_EQ(reference_entry(first.reference), 64u);
    EXPECT_EQ(first.position, 1040u);
    EXPECT_FALSE(first.is_directory);
    EXPECT_EQ(found.given, 5u);
}

constexpr u64 bound_1986 = 121'493'952'000'000'000;
constexpr u64 bound_2100 = 157'469'184'000'000'000; // 182,256 days behind 1601

struct slack_case {
    const char *what;
    std::size_t at; //< behind the end marker of an otherwise empty index
    index_item item;
    std::size_t poke; //< one field of the stale entry
    u64 value;
    std::size_t width;
    bool found;
};

TEST(ParseIndexEntries, RecoversStaleEntries)
{
    const std::u16string longest(64, u'x');
    const std::u16string too_long(65, u'x');
    const std::vector<slack_case> cases = {
        {"by parent", 16, {.time = 0}, 14, 0, 2, true},
        {"over the end marker", 0, {.time = 0}, 14, 0, 2, true},
        {"of another parent", 16, {.parent = 6, .time = 0}, 14, 0, 2, false},
        {"padding", 16, {.time = 0}, 14, 1, 2, false},
        {"larger than allocated", 16, {.time = 0}, 64, 4097, 8, false},
        {"64 units", 16, {.name = longest, .time = 0}, 14, 0, 2, true},
        {"65 units", 16, {.name = too_long, .time = 0}, 14, 0, 2, false},
        {"65 units by times", 16, {.name = too_long}, 14, 0, 2, true},
        {"times need no test", 16, {.parent = 6}, 14, 1, 2, true},
        {"1985", 16, {.parent = 6, .time = bound_1986 - 1}, 14, 0, 2, false},
        {"1986", 16, {.parent = 6, .time = bound_1986}, 14, 0, 2, true},
        {"2100", 16, {.parent = 6, .time = bound_2100}, 14, 0, 2, true},
        {"later", 16, {.parent = 6, .time = bound_2100 + 1}, 14, 0, 2, false},
        {"no last stamp", 16, {.parent = 6}, 48, 0, 8, true},
        {"no first stamp", 16, {.parent = 6}, 24, 0, 8, true},
        {"cut by the end", 4072 - 40 - 80, {}, 14, 0, 2, false},
        {"name ends with the block", 4072 - 40 - 88, {.name = u"abc"}, 14, 0, 2, true},
    };
    for (const slack_case &one : cases) {
        byte_vector stale = index_entry_bytes(one.item);
        put_number(stale, one.poke, one.value, one.width);
        byte_vector index = index_bytes({});
        if (one.at == 0) stale.erase(stale.begin(), stale.begin() + 16);
        put_bytes(index, one.at == 0 ? 56 : 40 + one.at, stale);
        index.resize(4072);
        const listing found(index, slack_mode::recover, 5);
        EXPECT_EQ(found.slack.size(), one.found ? 1u : 0u) << one.what;
        for (const auto &[parent, entry] : found.slack) {
            EXPECT_EQ(parent, one.item.parent) << one.what;
            EXPECT_EQ(entry.position, 1000u + 40 + one.at) << one.what;
        }
        EXPECT_TRUE(listing(index, slack_mode::skip, 5).slack.empty()) << one.what;
    }
}

TEST(ParseIndexEntries, KeepsSlackEntriesApart)
{
    // Two believable heads 40 bytes apart: the first one is taken.
    byte_vector index = index_bytes(abc);
    put_bytes(index, 320, index_entry_bytes({70, u"inner", 5, 0}));
    put_number(index, 320 + 64, 0, 8); // the second one leaves little allocated
    byte_vector head = index_entry_bytes({71, u"", 5, 0});
    head.resize(24);
    put_bytes(index, 360, head);
    put_number(index, 360 + 80, 1, 1);
    put_number(index, 360 + 82, u'y', 2);
    EXPECT_EQ(listing(index).names(), "a b c | inner");
    // Whatever is in use, the whole block is slack then.
    put_number(index, 4, 0, 4);
    EXPECT_EQ(listing(index, slack_mode::recover, 5).names(), "| a b c inner");
}

TEST(ReadIndexNames, WalksStrictlyOrNot)
{
    struct names_case {
        std::size_t at; // a field and what it becomes
        u64 value;
        std::set<u64> strict, tolerant;
    };
    const std::set<u64> all = {64, 65, 66};
    const std::vector<names_case> cases = {
        {8, 0, all, all},
        {128, 0, {64}, {64, 66}},    // no reference
        {128 + 10, 89, {64}, all},   // content longer than its entry
        {128 + 10, 321, {64}, {64}}, // content longer than all entries
        {128 + 8, 0, {64}, {64}},    // no length
        {4, 0, {}, {}},              // bytes in use
        {4, 4096, {}, {}},
        {0, 4072, {}, {}}, // first entry
    };
    for (const names_case &one : cases) {
        byte_vector index = index_bytes(abc);
        put_number(index, one.at, one.value, 2);
        for (const name_walk mode : {name_walk::strict, name_walk::tolerant}) {
            const auto &wanted = mode == name_walk::strict ? one.strict : one.tolerant;
            std::set<u64> children;
            EXPECT_EQ(read_index_names(children, byte_view{index}, mode),
                      !wanted.empty());
            EXPECT_EQ(children, wanted) << one.at << " " << one.value;
        }
    }
}

// The names of one index allocation, live ones by block.
void list_file(const std::string &path, std::vector<std::size_t> &counts,
               std::set<std::string> &live, std::set<std::string> &slack)
{
    std::ifstream in(path, std::ios::binary);
    byte_vector bytes{std::istreambuf_iterator<char>(in), {}};
    ASSERT_EQ(bytes.size(), 5u * 4096);
    for (std::size_t at = 0; at < bytes.size(); at += 4096) {
        const std::span block = std::span(bytes).subspan(at, 4096);
        EXPECT_TRUE(apply_fixup(block, 512));
        const listing found(byte_vector(block.begin() + 24, block.end()));
        counts.push_back(found.live.size());
        for (const auto &[key, entry] : found.live) live.insert(entry.name);
        for (const auto &[key, entry] : found.slack) slack.insert(entry.name);
    }
}

TEST(ListDirectory, RealIndexKeepsWhatWasDeleted)
{
    const char *root = std::getenv("VESKIT_FIXTURES");
    if (root == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    const std::string folder = root + std::string("/i30/");
    std::vector<std::size_t> counts;
    std::set<std::string> before, after, slack, ignored;
    list_file(folder + "Start.I30", counts, before, ignored);
    list_file(folder + "FirstDelete.I30", counts, after, slack);
    EXPECT_EQ(counts, (std::vector<std::size_t>{9, 20, 0, 19, 2, 3, 8, 0, 7, 2}));
    // Of 30 names that vanished, 14 were overwritten by their neighbours moving up; the
    // bytes of these still stand in the second file.
    for (const std::string name :
         {"Folder5", "Folder5a", "SOE7F0~1.TXT", "SOMEFI~1.TXT", "SOMEFI~2.TXT",
          "SOMEFI~3.TXT", "SOMEFI~4.TXT", "SomeFile12.txt", "SomeFile2.txt",
          "SomeFile3.txt", "SomeFile4.txt", "SomeFile5.txt", "SomeFile6.txt",
          "SomeFile7.txt", "SomeFile8.txt", "SomeFile9.txt"})
        EXPECT_TRUE(before.contains(name) && !after.contains(name) &&
                    slack.contains(name))
            << name;
}

} // namespace

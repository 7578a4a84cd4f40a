#include "evidence/carve.h"

#include "evidence/slack.h"
#include "samples/ntfs_structures.h"
#include "samples/record_builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

namespace hv {
namespace {

using namespace test_support;
using namespace test_support::ntfs_structures;

using findings = std::vector<std::string>;

std::string narrow(std::u16string_view text)
{
    return {text.begin(), text.end()};
}

// Writes down what is reported: a word, the place, and what tells one from another.
class recorder : public carve_sink {
public:
    void found_record(const carved_block &record) override
    {
        note_block("record", record);
    }
    void found_index_block(const carved_block &block) override
    {
        note_block("index", block);
    }
    void found_metadata(u64 at, const deleted_file &file) override
    {
        note(narrow(file.path), at, file.path_is_whole ? "" : "...");
    }
    void found_journal_record(u64 at, const journal_record &record) override
    {
        note("journal", at, narrow(record.name));
    }
    void found_name(u64 at, const slack_name &name) override
    {
        note(narrow(name.name), at,
             std::to_string(name.parent.value_or(entry_id{}).entry) + " " +
                 std::to_string(name.entry.value_or(entry_id{}).entry));
    }

    findings sorted()
    {
        std::ranges::sort(m_findings);
        return std::move(m_findings);
    }

private:
    void note_block(const std::string &what, const carved_block &block)
    {
        // The low byte of the check value of all samples.
        const bool is_undone = block.bytes.read_padded<u8>(510) != 0x07;
        note(what, block.position,
             std::to_string(block.bytes.size()) + (block.is_torn ? " torn" : "") +
                 (is_undone ? "" : " as stored"));
    }
    void note(const std::string &what, u64 at, const std::string &more)
    {
        m_findings.push_back(what + " @" + std::to_string(at) +
                             (more.empty() ? "" : " " + more));
    }

    findings m_findings;
};

// What is found in bytes that are handed over in stretches of `step` bytes.
findings carved(const byte_vector &bytes, u64 step = ~u64{0}, u64 position = 0)
{
    recorder found;
    carver search(found);
    for (u64 at = 0; at < bytes.size();) {
        const byte_view stretch = byte_view{bytes}.clip(at, step);
        search.carve(stretch, position + at);
        at += stretch.size();
    }
    search.finish();
    return found.sorted();
}

byte_vector record_of(const record_layout &layout = {}, byte_vector attributes = {})
{
    attributes.resize(std::max<std::size_t>(attributes.size(), 300));
    return encode_record(layout, {.entry = 40}, attributes);
}

// Without an update sequence, as a search of the slack gets it.
byte_vector index_block_of(const byte_vector &entries, const byte_vector &slack = {})
{
    byte_vector block(64);
    append(block, entries);
    put_text(block, 0, "INDX");
    put_layout(block, {{24, 4, 40}, {28, 4, block.size() - 24}, {32, 4, 4072}});
    append(block, slack);
    block.resize(4096);
    return block;
}

byte_vector stored_index_block()
{
    byte_vector block = index_block_of({});
    protect(block, 40);
    return block;
}

byte_vector with_text(byte_vector bytes, std::size_t at, const std::string &text)
{
    put_text(bytes, at, text);
    return bytes;
}

TEST(Carver, FindsBlocksOfAllSizes)
{
    const std::tuple<const char *, byte_vector, findings> cases[] = {
        {"1024 bytes", record_of(), {"record @0 1024"}},
        {"4096 bytes", record_of({4096}), {"record @0 4096"}},
        {"512 bytes, array at 42", record_of({512, 42}), {"record @0 512"}},
        {"torn", with_text(record_of(), 1022, "??"), {"record @0 1024 torn"}},
        {"torn before its end",
         with_text(record_of(), 510, "\x07?"),
         {"record @0 1024 torn as stored"}},
        {"marked as torn", with_text(record_of(), 0, "BAAD"), {"record @0 1024 torn"}},
        {"cut", cut(record_of(), 0, 512), {"record @0 512 torn"}},
        {"another begins in it",
         joined({cut(record_of(), 0, 512), record_of()}),
         {"record @0 512 torn", "record @512 1024"}},
        {"no size", with_text(record_of(), 28, "??"), {}},
        {"array elsewhere", with_text(record_of(), 4, "2"), {}},
        {"only the word", bytes_of("FILE" + std::string(1020, ' ')), {}},
        {"index", stored_index_block(), {"index @0 4096"}},
        {"torn index",
         with_text(stored_index_block(), 4094, "??"),
         {"index @0 4096 torn"}},
        {"only that word", bytes_of("INDX" + std::string(4092, ' ')), {}},
    };
    for (const auto &[name, bytes, expected] : cases)
        EXPECT_EQ(carved(bytes), expected) << name;
}

// A record, contents at sectors, a list without its head, lines of a journal: found
// once each, wherever the stretches end.
TEST(Carver, FindsTheSameInStretchesOfAnyLength)
{
    byte_vector bytes(512);
    append(bytes, record_of());
    append(bytes, metadata(u"C:\\one"));
    bytes.resize(2048);
    append(bytes, metadata(u"C:\\" + std::u16string(400, u'x')));
    bytes.resize(4096 - 24 - 800);
    append(bytes, info2_record({.ansi_path = "C:\\a", .path = u"C:\\a"}));
    append(bytes, info2_record({.ansi_path = "C:\\b", .path = u"C:\\b"}));
    append(bytes, info2_record({.ansi_path = "C:\\c", .path = u"C:\\c"}));
    bytes.resize(8192);
    append(bytes, journal_line_bytes({.name = u"first"}));
    bytes.resize(8192 + 480);
    append(bytes, journal_line_bytes({.usn = 480, .name = u"second"}));
    bytes.resize(140 * 512);
    append(bytes, metadata(u"C:\\last"));
    bytes.resize(385 * 512);
    // Where stretches that are gathered are first searched and dropped.
    append(bytes, record_of());
    append(bytes, metadata(u"C:\\" + std::u16string(400, u'y')));
    bytes.resize(600 * 512);
    append(bytes, metadata(u"C:\\end"));
    findings expected = {"C:\\" + std::string(400, 'x') + " @2048",
                         "C:\\" + std::string(400, 'y') + " @198144",
                         "C:\\a @3272",
                         "C:\\b @4072",
                         "C:\\c @4872",
                         "C:\\end @307200",
                         "C:\\last @71680",
                         "C:\\one @1536",
                         "journal @8192 first",
                         "journal @8672 second",
                         "record @197120 1024",
                         "record @512 1024"};
    std::ranges::sort(expected);
    for (const u64 step : {512u, 1024u, 4096u, 65536u, 140u * 512, 1u << 20})
        EXPECT_EQ(carved(bytes, step), expected) << step;
}

TEST(Carver, CutsStructuresWhereAStretchEnds)
{
    const byte_vector long_one = metadata(u"C:\\" + std::u16string(400, u'x'));
    recorder found;
    carver search(found);
    search.carve(byte_view{long_one}.clip(0, 512), 4096);
    // The next stretch is elsewhere.
    search.carve(byte_view{long_one}.from(512), 8192);
    search.finish();
    EXPECT_EQ(found.sorted(),
              findings{"C:\\" + std::string((512 - 28) / 2 - 3, 'x') + " @4096 ..."});
}

TEST(Carver, FindsListsWithAndWithoutTheirHeads)
{
    const std::string struck("\0:\\b", 4);
    const byte_vector plain = info2_record({.ansi_path = "C:\\a", .path = u"C:\\a"});
    const byte_vector server =
        info2_record({.ansi_path = "\\\\s\\b", .path = u"\\\\s\\b", .drive = 26});
    const byte_vector wide_only = info2_record({.ansi_path = "", .path = u"C:\\w"});
    const byte_vector brief = info2_record({.ansi_path = "C:\\a"}, 280);
    const std::tuple<const char *, byte_vector, findings> cases[] = {
        {"head and records",
         joined({info2_header(), plain, server}),
         {"C:\\a @20", "\\\\s\\b @820"}},
        {"no 8-bit path, after a head",
         joined({info2_header(), wide_only}),
         {"C:\\w @20"}},
        {"no 8-bit path, after a record",
         joined({byte_vector(7), plain, wide_only}),
         {"C:\\a @7", "C:\\w @807"}},
        {"no 8-bit path, after nothing", wide_only, {}},
        {"a server's path alone", joined({byte_vector(3), server}), {"\\\\s\\b @3"}},
        {"280 bytes",
         joined({info2_header(4, 280), brief, brief}),
         {"C:\\a @20", "C:\\a @300"}},
        {"280 bytes, struck",
         joined({byte_vector(5), info2_record({.ansi_path = struck}, 280)}),
         {"C:\\b @5"}},
        {"cut in its path", cut(plain, 0, 286), {"C:\\a @0"}},
        {"in a whole record", record_of({4096}, plain), {"record @0 4096"}},
        {"in a torn record",
         with_text(record_of({4096}, plain), 4094, "??"),
         {"C:\\a @72", "record @0 4096 torn"}},
    };
    for (const auto &[name, bytes, expected] : cases)
        EXPECT_EQ(carved(bytes), expected) << name;
}

byte_vector name_value(const std::u16string &name)
{
    byte_vector value(66);
    put_layout(value, {{0, 8, 64 | u64{3} << 48U},
                       {8, 8, sample_filetime},
                       {16, 8, sample_filetime},
                       {24, 8, sample_filetime},
                       {32, 8, sample_filetime},
                       {48, 8, 100},
                       {64, 1, name.size()}});
    put_utf16(value, 66, name);
    return value;
}

byte_vector entry_of(const std::u16string &name)
{
    return encode_index_entry(70 | u64{2} << 48U, name_value(name));
}

// The slack of a block without live entries begins at 80, after the end marker.
TEST(Slack, OfAnIndexHoldsOldNames)
{
    const byte_vector old = entry_of(u"old");
    const std::u16string long_name(255, u'n');
    const auto without = [&](std::size_t bytes) { // written over by the end marker
        return cut(old, bytes, old.size() - bytes);
    };
    byte_vector bad_parent = old;
    put_number(bad_parent, 16, 64, 8);
    byte_vector no_change_time = old;
    put_number(no_change_time, 40, 0, 8);
    const std::tuple<const char *, byte_vector, findings> cases[] = {
        {"whole", old, {"old @96 64 70"}},
        {"two",
         joined({old, entry_of(long_name)}),
         {narrow(long_name) + " @184 64 70", "old @96 64 70"}},
        {"reference written over", without(16), {"old @80 64 0"}},
        {"half of it written over", without(8), {"old @88 64 0"}},
        {"parent written over", without(24), {"old @72 0 0"}},
        {"parent and times written over", without(40), {"old @56 0 0"}},
        {"more written over", without(48), {}},
        {"no sequence of the parent", bad_parent, {}},
        {"no time of a change", no_change_time, {}},
        {"no name of a file", entry_of(u"a/b"), {}},
        {"zeros", {}, {}},
    };
    for (const auto &[name, slack, expected] : cases) {
        const byte_vector block = index_block_of(encode_node({}), slack);
        recorder found;
        search_index_slack(byte_view{block}, found);
        EXPECT_EQ(found.sorted(), expected) << name;
    }
}

TEST(Slack, OfAnIndexBeginsAfterTheLastLiveEntry)
{
    tree_node node;
    node.entries.push_back({u"live", entry_of(u"live")});
    byte_vector block = index_block_of(encode_node(node), entry_of(u"old"));
    const auto names = [&block] {
        recorder found;
        search_index_slack(byte_view{block}, found);
        return found.sorted();
    };
    const findings expected = {"old @192 64 70"};
    EXPECT_EQ(names(), expected);
    put_number(block, 28, 5000, 4); // bytes in use
    EXPECT_EQ(names(), expected);
}

TEST(Slack, OfARecordHoldsMetadataAndNames)
{
    byte_vector record(4096);
    put_text(record, 0, "FILE");
    put_layout(record, {{24, 4, 200}, {28, 4, 4096}});
    put_bytes(record, 96, metadata(u"C:\\live"));
    put_bytes(record, 256, metadata(u"C:\\old"));
    put_bytes(record, 400, name_value(u"$IAB12CD"));
    put_bytes(record, 600, info2_record({.ansi_path = "C:\\list"}, 280));
    put_bytes(record, 2004, metadata(u"C:\\odd place"));
    const auto found_with = [&record](u64 used) {
        put_number(record, 24, used, 4);
        recorder found;
        search_record_slack(byte_view{record}, found);
        return found.sorted();
    };
    EXPECT_EQ(found_with(200),
              (findings{"$IAB12CD @400 64 0", "C:\\list @600", "C:\\old @256"}));
    EXPECT_EQ(found_with(4096), findings{});
    EXPECT_EQ(found_with(5000), findings{});
}

} // namespace
} // namespace hv

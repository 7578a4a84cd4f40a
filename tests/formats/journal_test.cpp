#include "formats/journal.h"

#include "samples/record_builders.h"

#include <gtest/gtest.h>

#include <tuple>

namespace hv {
namespace {

using namespace test_support;

TEST(Journal, ReadsBothVersions)
{
    for (const u64 version : {2u, 3u}) {
        const byte_vector bytes =
            journal_line_bytes({.version = version, .usn = 0x12345678});
        journal_record read;
        ASSERT_TRUE(parse_journal_record(read, byte_view{bytes}));
        EXPECT_EQ(
            std::tuple(u64{read.version}, read.length, read.reference, read.parent,
                       read.usn, read.time, read.reason, read.attributes),
            std::tuple(version, bytes.size(), 0x3'0000'0000'0040U, 0x5'0000'0000'0005U,
                       0x12345678U, sample_filetime, 0x1000U, 0x20U));
        EXPECT_EQ(read.name, u"$RAB12CD.txt");
    }
}

TEST(Journal, IsSureOnlyWithEveryFieldRight)
{
    const auto with = [](std::size_t at, u64 value, std::size_t width) {
        byte_vector bytes = journal_line_bytes({.usn = 4608});
        put_number(bytes, at, value, width);
        return bytes;
    };
    const byte_vector last = journal_line_bytes({.usn = 4096 - 88});
    // Bytes, where they are on the medium, whether they are read where a record has to
    // be, and whether they are sure anywhere.
    const std::tuple<const char *, byte_vector, u64, bool, bool> cases[] = {
        {"plain", journal_line_bytes({.usn = 4608}), 1024, true, true},
        {"version 3", journal_line_bytes({.version = 3, .usn = 40}), 552, true, true},
        {"another place in its sector", journal_line_bytes({.usn = 4608}), 1032, true,
         false},
        {"the last of a page", last, 4008, true, true},
        {"across a page", journal_line_bytes({.usn = 4096 - 80}), 4016, true, false},
        {"a byte short", cut(last, 0, last.size() - 1), 4008, false, false},
        {"minor version", with(6, 1, 2), 0, true, false},
        {"a length of no multiple", with(0, 84, 4), 0, false, false},
        {"too short for its name", with(0, 80, 4), 0, false, false},
        {"longer than its name", joined({with(0, 96, 4), byte_vector(8)}), 0, true,
         false},
        {"name in the head", with(58, 56, 2), 0, false, false},
        {"odd bytes of name", with(56, 23, 2), 0, false, false},
        {"no name", with(56, 0, 2), 0, false, false},
        {"no name of a file", journal_line_bytes({.name = u"a\\b"}), 0, true, false},
        {"no file", journal_line_bytes({.reference = 0}), 0, true, false},
        {"no folder", journal_line_bytes({.parent = 0}), 0, true, false},
        {"no reason", journal_line_bytes({.reason = 0}), 0, true, false},
        {"no time", journal_line_bytes({.time = 0}), 0, true, false},
        {"version 4", with(4, 4, 2), 0, false, false},
        {"empty", {}, 0, false, false},
    };
    for (const auto &[name, bytes, position, is_read, is_sure] : cases) {
        journal_record record;
        EXPECT_EQ(parse_journal_record(record, byte_view{bytes}), is_read) << name;
        EXPECT_EQ(recognize_journal_record(record, byte_view{bytes}, position), is_sure)
            << name;
    }
}

TEST(Journal, WalksAPageWithDamage)
{
    byte_vector extents(64);
    put_layout(extents, {{0, 4, 64}, {4, 2, 4}});
    byte_vector page = journal_line_bytes({.name = u"first"});
    append(page, extents);
    append(page,
           journal_line_bytes({.version = 3, .usn = page.size(), .name = u"second"}));
    page.resize(page.size() + 24); // zeros
    append(page, byte_vector(40, 0xAA));
    append(page, journal_line_bytes({.usn = page.size(), .name = u"third"}));
    append(page, byte_vector(16, 0xAA));
    append(page, journal_line_bytes({.usn = 8, .name = u"elsewhere"}));
    page.resize(4096);
    std::u16string names;
    for_each_journal_record(byte_view{page}, [&](u64 at, const journal_record &record) {
        names += record.name + u" ";
        EXPECT_EQ(record.usn, at);
    });
    EXPECT_EQ(names, u"first second third ");
}

} // namespace
} // namespace hv

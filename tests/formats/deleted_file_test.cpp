#include "formats/deleted_file.h"

#include "base/hv_fileio.h"
#include "samples/record_builders.h"
#include "support/fixtures.h"

#include <gtest/gtest.h>

#include <tuple>

namespace hv {
namespace {

using namespace test_support;

constexpr parse_rules complete = parse_rules::complete();
constexpr parse_rules fixed = parse_rules::fixed();

// The path, with a "|" after it if it is whole; "-" if the bytes are refused.
std::u16string path_of(const byte_vector &file, const parse_rules &rules)
{
    deleted_file out;
    if (!parse_dollar_i(out, byte_view{file}, rules)) return u"-";
    return out.path + (out.path_is_whole ? u"|" : u"");
}

dollar_i_builder version(u64 number)
{
    return dollar_i_builder().version(number);
}

TEST(DollarI, ReadsAsMuchAsTheRulesLetIt)
{
    const std::u16string full(260, u'x');
    const std::tuple<const char *, byte_vector, std::u16string, std::u16string>
        cases[] = {
            {"1", version(1).bytes(), u"C:\\Temp\\a.txt|", u"C:\\Temp\\a.txt|"},
            {"1, full", version(1).path(full).bytes(), full.substr(2) + u"|",
             full + u"|"},
            {"1, no path", version(1).path(u"").bytes(), u"-", u"|"},
            {"1, no time", version(1).time(0).bytes(), u"-", u"C:\\Temp\\a.txt|"},
            {"1, after the path", version(1).bytes(543), u"-", u"C:\\Temp\\a.txt|"},
            {"1, cut", version(1).bytes(34), u"-", u"C:\\Te"},
            {"1, before the path", version(1).bytes(24), u"-", u""},
            {"1, before the time's end", version(1).bytes(23), u"-", u"-"},
            {"2", version(2).bytes(), u"C:\\Temp\\a.txt|", u"C:\\Temp\\a.txt|"},
            {"2, cut", version(2).bytes(38), u"C:\\Te", u"C:\\Te"},
            {"2, in the length", version(2).bytes(26), u"-", u""},
            {"2, no units", version(2).path(u"").bytes(), u"-", u"|"},
            {"2, wrapping units", version(2).path_units(0xFFFFFFFF).bytes(), u"-",
             u"C:\\Temp\\a.txt|"},
            {"3", version(3).bytes(), u"-", u"-"},
            {"empty", {}, u"-", u"-"},
        };
    for (const auto &[name, file, by_fixed, by_complete] : cases) {
        EXPECT_EQ(path_of(file, fixed), by_fixed) << name;
        EXPECT_EQ(path_of(file, complete), by_complete) << name;
    }
}

TEST(DollarI, IsRecognizedOnlyWithEveryFieldRight)
{
    const auto path = [](std::u16string text) {
        return version(2).path(std::move(text)).bytes();
    };
    const std::tuple<const char *, byte_vector, bool> cases[] = {
        {"version 1", version(1).bytes(), true},
        {"version 2", version(2).bytes(), true},
        {"upper half of the version", version(0x100000002).bytes(), false},
        {"the first second of 1980", version(2).time(filetime(315532800, 0)).bytes(),
         true},
        {"before 1980", version(2).time(filetime(315532799, 999)).bytes(), false},
        {"2108", version(2).time(filetime(4354819200, 0)).bytes(), false},
        {"no size that a file has", version(2).size(u64{1} << 56).bytes(), false},
        {"a longer path stated", version(2).path_units(15).bytes(), false},
        {"a shorter path stated", version(2).path_units(13).bytes(), false},
        {"no ending zero", version(1).path(u"C:\\" + std::u16string(257, u'x')).bytes(),
         false},
        {"a path cut by the end", version(2).bytes(40), true},
        {"nothing of the path's name", version(2).bytes(34), false},
        {"a server", path(u"\\\\server\\a"), true},
        {"half a surrogate pair", path(u"C:\\\xD83D"), true},
        {"no drive", path(u"a.txt"), false},
        {"no folder", path(u"C:a.txt"), false},
        {"a line break", path(u"C:\\a\nb"), false},
    };
    for (const auto &[name, file, expected] : cases) {
        deleted_file out;
        EXPECT_EQ(recognize_dollar_i(out, byte_view{file}), expected) << name;
    }
}

// The paths of a list, one after another, with "|" after the whole ones.
std::u16string paths_of(const byte_vector &list, const parse_rules &rules)
{
    std::vector<listed_file> files;
    parse_list(files, byte_view{list}, rules);
    std::u16string all;
    for (const listed_file &listed : files)
        all += listed.file.path + (listed.file.path_is_whole ? u"|" : u"");
    return all;
}

byte_vector list_of(const info2_item &item, std::size_t size = 800)
{
    return joined({info2_header(size == 800 ? 5 : 4, size), info2_record(item, size)});
}

TEST(List, ReadsAsMuchAsTheRulesLetIt)
{
    const std::string struck("\0:\\b.txt", 8);
    const byte_vector two = info2_file({{}, {}});
    const byte_vector short_names =
        list_of({.ansi_path = "C:\\DOCUME~1", .path = u"C:\\Documents and Settings"});
    const byte_vector full =
        list_of({.path = std::u16string(u"C:") + std::u16string(258, u'x')});
    const std::tuple<const char *, byte_vector, std::u16string, std::u16string>
        cases[] = {
            {"header alone", info2_header(), u"", u""},
            {"zeros", joined({info2_header(), byte_vector(800)}), u"", u""},
            {"drive A", list_of({.ansi_path = "A:\\b", .path = u"A:\\b", .drive = 0}),
             u"", u"A:\\b|"},
            {"server",
             list_of({.ansi_path = "\\\\s\\b", .path = u"\\\\s\\b", .drive = 26}), u"",
             u"\\\\s\\b|"},
            {"no such drive", list_of({.drive = 27}), u"C:\\a.txt|", u""},
            {"no time", list_of({.time = 0}), u"", u"C:\\a.txt|"},
            {"struck", list_of({.ansi_path = struck, .path = u"C:\\b.txt"}),
             u"C:\\b.txt|", u"C:\\b.txt|"},
            {"280", list_of({.ansi_path = "C:\\\x80\xE9"}, 280), u"",
             u"C:\\\u20ac\u00e9|"},
            {"280, struck", list_of({.ansi_path = struck}, 280), u"", u"C:\\b.txt|"},
            {"280, struck, server",
             list_of({.ansi_path = std::string("\0\\s\\b", 5), .drive = 26}, 280), u"",
             u"\\\\s\\b|"},
            {"UTF-16 path written over", list_of({.path = u"\x0101\x0202\x0303"}), u"",
             u"C:\\a.txt|"},
            {"cut after two units", cut(two, 0, 1105), u"C:\\a.txt|C:",
             u"C:\\a.txt|C:\\a.txt|"},
            {"cut, 8-bit path not spelled out", cut(short_names, 0, 332), u"",
             u"C:\\Documents and"},
            {"cut before it", cut(short_names, 0, 302), u"", u"C:\\DOCUME~1"},
            {"cut before the UTF-16 path", cut(two, 0, 1100), u"C:\\a.txt|",
             u"C:\\a.txt|C:\\a.txt|"},
            {"cut before that", cut(two, 0, 1099), u"C:\\a.txt|", u"C:\\a.txt|"},
            {"no header, and a bad record",
             joined({byte_vector(20), info2_record({}), info2_record({.time = 0}),
                     info2_record({})}),
             u"", u"C:\\a.txt|C:\\a.txt|"},
        };
    for (const auto &[name, file, by_fixed, by_complete] : cases) {
        EXPECT_EQ(paths_of(file, fixed), by_fixed) << name;
        EXPECT_EQ(paths_of(file, complete), by_complete) << name;
    }
    EXPECT_EQ(paths_of(full, fixed).size(), 258u + 1);
    EXPECT_EQ(paths_of(full, complete).size(), 260u + 1);
}

TEST(List, IsRecognizedByItsHead)
{
    using enum metadata_format;
    const std::tuple<u32, std::size_t, std::optional<metadata_format>> cases[] = {
        {0, 280, info_280},  {2, 800, info_800}, {4, 280, info2_280},
        {5, 800, info2_800}, {5, 280, {}},       {4, 800, {}},
        {5, 512, {}}};
    for (const auto &[version, size, expected] : cases) {
        metadata_format format{};
        const byte_vector head = info2_header(version, size);
        EXPECT_EQ(recognize_list_header(format, byte_view{head}), expected.has_value());
        EXPECT_EQ(format, expected.value_or(metadata_format{})) << version;
    }
}

TEST(List, RecordsAreRecognizedOnlyWithEveryFieldRight)
{
    using enum metadata_format;
    const auto record = [](const info2_item &item, std::size_t size = 800) {
        return info2_record(item, size);
    };
    const info2_item plain;
    const std::string struck("\0:\\a.txt", 8);
    const std::u16string no_end = u"C:\\" + std::u16string(257, u'x');
    // Format and length; none if the record isn't sure.
    using result = std::optional<std::pair<metadata_format, u64>>;
    const result whole = {{info2_800, 800}};
    const result front = {{info2_280, 280}};
    const std::tuple<const char *, byte_vector, std::optional<metadata_format>, result>
        cases[] = {
            {"whole", record(plain), {}, whole},
            {"of an INFO", record(plain), info_800, {{info_800, 800}}},
            {"struck", record({.ansi_path = struck}), {}, whole},
            {"8-bit path of no use", record({.ansi_path = "\x01"}), {}, whole},
            {"cut in the UTF-16 path", record(plain, 300), {}, {{info2_800, 300}}},
            {"cut before it", record(plain, 280), {}, {{info2_800, 280}}},
            {"of a list of 280", record(plain, 280), info_280, {{info_280, 280}}},
            {"of 280 and others after it", joined({record(plain, 280), {1, 2, 3}}),
             info2_280, front},
            {"of 280 and zeros after it",
             joined({record(plain, 280), byte_vector(9)}),
             {},
             front},
            {"cut in the size", cut(record(plain), 0, 279), {}, {}},
            {"another drive", record({.drive = 3}), {}, {}},
            {"no drive that there is", record({.drive = 27}), {}, {}},
            {"no believable number", record({.number = 1U << 24U}), {}, {}},
            {"no believable time", record({.time = 1}), {}, {}},
            {"a line break", record({.ansi_path = "C:\\a\nb", .path = u""}), {}, {}},
            {"no path's name", record({.ansi_path = "C:\\", .path = u"C:\\"}), {}, {}},
            {"UTF-16 path without an end", record({.path = no_end}), {}, front},
        };
    for (const auto &[name, bytes, list, expected] : cases) {
        deleted_file out;
        result found;
        if (recognize_list_record(out, byte_view{bytes}, list))
            found = {out.format, out.length};
        EXPECT_EQ(found, expected) << name;
    }
}

byte_vector read_fixture(const std::string &name)
{
    byte_vector bytes;
    uni::fileio file;
    EXPECT_TRUE(file.open(fixture_or_skip(name), uni::open_mode::read)) << name;
    file.read_vector(bytes, 1U << 20U, 0);
    return bytes;
}

// Real lists: what their place lets one read is also sure without it.
TEST(List, RealRecordsAreSure)
{
    const std::tuple<const char *, std::size_t, std::size_t> lists[] = {
        {"info2/INFO2", 4, 0},
        {"info2/INFO2-sample1", 16, 1},
        {"info2/INFO2-sample2", 7, 2}};
    for (const auto &[name, records, struck] : lists) {
        const byte_vector bytes = read_fixture(name);
        std::vector<listed_file> files;
        parse_list(files, byte_view{bytes}, complete);
        EXPECT_EQ(files.size(), records) << name;
        std::size_t sure = 0;
        std::size_t marked = 0;
        for (const auto &[offset, file] : files) {
            deleted_file out;
            sure += recognize_list_record(out, byte_view{bytes}.from(offset), {});
            EXPECT_EQ(out.path, file.path) << name;
            marked += file.is_struck;
        }
        EXPECT_EQ(std::tuple(sure, marked), std::tuple(records, struck)) << name;
    }
}

TEST(DollarI, RealFilesAreSure)
{
    const std::tuple<const char *, std::u16string, u64> files[] = {
        {"i_v1/$I6SODDB", u"C:\\Windows\\System32\\dllhost", 102742},
        {"i_v1/$I0JGHX7", u"C:\\Users\\student\\Desktop\\New Folder 1", 0},
        {"i_v2/$IHO61YT", u"C:\\Temp\\largesparsefile", 12884901888}};
    for (const auto &[name, path, size] : files) {
        const byte_vector bytes = read_fixture(name);
        deleted_file out;
        EXPECT_TRUE(recognize_dollar_i(out, byte_view{bytes})) << name;
        EXPECT_EQ(std::tuple(out.path, out.size), std::tuple(path, size));
    }
}

} // namespace
} // namespace hv

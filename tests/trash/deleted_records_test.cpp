#include "trash/deleted_records.h"

#include "samples/record_builders.h"

#include <gtest/gtest.h>

#include <tuple>

namespace hv {
namespace {

using namespace test_support;

// FILETIMEs of 1900-01-01 and 3001-01-01, 00:00:00 UTC.
constexpr u64 year_1900 = 94354848000000000;
constexpr u64 year_3001 = 441796896000000000;

std::vector<trash_entry> parse(const byte_vector &file)
{
    std::vector<trash_entry> parsed;
    const metadata_source source{7, "$IAB12CD.txt", "label", 4096};
    const bool found = parse_metadata(parsed, byte_view{file}, source);
    EXPECT_EQ(found, !parsed.empty());
    return parsed;
}

TEST(DollarI, HoldsTheLimitsOfBothVersions)
{
    const auto built = [] { return dollar_i_builder(); };
    const std::tuple<const char *, byte_vector, bool> cases[] = {
        {"version 1, a byte short", built().version(1).bytes(543), false},
        {"version 1, high half set", built().version(0x700000001).bytes(), true},
        {"version 1, empty path", built().version(1).path(u"").bytes(), false},
        {"version 2, smallest", built().path_units(2048).bytes(30), true},
        {"version 2, a byte short", built().bytes(29), false},
        {"version 2, one unit", built().path_units(1).bytes(), false},
        {"version 2, two units", built().path_units(2).bytes(), true},
        {"version 2, too many units", built().path_units(2049).bytes(), false},
        {"version 2, wrapping units", built().path_units(0xFFFFFFFF).bytes(), false},
        {"version 3", built().version(3).bytes(), false},
        {"no time", built().time(0).bytes(), false},
        {"negative time", built().time(u64{1} << 63).bytes(), false},
        {"first valid time", built().time(year_1900).bytes(), true},
        {"just before it", built().time(year_1900 - 1).bytes(), false},
        {"first time too late", built().time(year_3001).bytes(), false},
        {"last valid time", built().time(year_3001 - 1).bytes(), true},
        {"empty file", {}, false},
    };
    for (const auto &[name, file, is_plausible] : cases)
        EXPECT_EQ(!parse(file).empty(), is_plausible) << name;
}

TEST(DollarI, FillsTheEntry)
{
    const auto parsed = parse(dollar_i_builder()
                                  .version(0x900000002)
                                  .size(0x1234567890)
                                  .path(u"C:\\T\u00e4\xD83D\xDE00.txt")
                                  .bytes());
    ASSERT_EQ(parsed.size(), 1u);
    const trash_entry &entry = parsed[0];
    EXPECT_EQ(entry.version, 2u);
    EXPECT_EQ(entry.file_size, 0x1234567890u);
    EXPECT_EQ(entry.deleted_time, sample_filetime);
    EXPECT_EQ(entry.deleted_path, "C:\\T\xC3\xA4\xF0\x9F\x98\x80.txt");
    EXPECT_EQ(entry.metadata_name, "$IAB12CD.txt");
    EXPECT_EQ(entry.other_info, "label");
    EXPECT_EQ(entry.source_offset, 4096u);
    EXPECT_EQ(entry.meta_record, 7u);
    EXPECT_FALSE(entry.carved);
}

TEST(DollarI, TakesWhatThereIsOfThePath)
{
    // 259 units fill the field of version 1 but for the ending zero; 258 are read.
    const std::u16string full = u"C:\\" + std::u16string(256, u'x');
    EXPECT_EQ(parse(dollar_i_builder().version(1).path(full).bytes())[0].deleted_path,
              "C:\\" + std::string(255, 'x'));
    // A file cut inside its path, at half a unit.
    const byte_vector cut = dollar_i_builder().path(u"C:\\Temp\\a.txt").bytes(28 + 13);
    EXPECT_EQ(parse(cut)[0].deleted_path, "C:\\Tem");
    // A surrogate without its partner costs no character around it.
    EXPECT_EQ(parse(dollar_i_builder().path(u"a\xD83Dz").bytes())[0].deleted_path,
              "a\xED\xA0\xBDz");
}

TEST(Info2, ABadRecordCostsOnlyItself)
{
    // The record between 1 and 3, and the numbers of those that are read.
    const std::tuple<const char *, info2_item, std::vector<u32>> cases[] = {
        {"drive A", {.number = 2, .drive = 0}, {1, 3}},
        {"network path", {.path = u"\\\\server\\a.txt", .number = 2}, {1, 3}},
        {"no letter", {.path = u"1:\\a.txt", .number = 2}, {1, 3}},
        {"letter of another script", {.path = u"\u0161:\\a.txt", .number = 2}, {1, 3}},
        {"no colon", {.path = u"C\\a.txt", .number = 2}, {1, 3}},
        {"no path", {.ansi_path = "", .path = u"", .number = 2}, {1, 3}},
        {"only the 8-bit path", {.path = u"", .number = 2}, {1, 3}},
        {"restored: 8-bit path zeroed", {.ansi_path = "", .number = 2}, {1, 2, 3}},
        {"no time", {.number = 2, .time = 0}, {1, 3}},
    };
    for (const auto &[name, middle, expected] : cases) {
        std::vector<u32> numbers;
        for (const trash_entry &entry :
             parse(info2_file({{.number = 1}, middle, {.number = 3}})))
            numbers.push_back(entry.record_number);
        EXPECT_EQ(numbers, expected) << name;
    }
}

TEST(Info2, FillsTheEntry)
{
    const auto parsed = parse(info2_file(
        {{.path = u"d:\\\u6709.lnk", .number = 71, .drive = 3, .size = 0xFFFFFFFF}}));
    ASSERT_EQ(parsed.size(), 1u);
    EXPECT_EQ(parsed[0].version, 0u);
    EXPECT_EQ(parsed[0].deleted_path, "d:\\\xE6\x9C\x89.lnk");
    EXPECT_EQ(parsed[0].record_number, 71u);
    EXPECT_EQ(parsed[0].drive_number, 3u);
    EXPECT_EQ(parsed[0].file_size, 0xFFFFFFFFu);
    EXPECT_EQ(parsed[0].deleted_time, sample_filetime);
}

TEST(Info2, KeepsATornRecordThatConvinces)
{
    // The size of a file of three records, how many are read, and the last path.
    const std::tuple<std::size_t, std::size_t, const char *> cases[] = {
        {20 + 1600 + 284, 2, "C:\\a.txt"}, // 289 bytes are needed from the cursor on
        {20 + 1600 + 285, 3, "C:"},        // two units and half a third
        {20 + 1600 + 286, 3, "C:\\"},
        {20 + 1600 + 795, 3, "C:\\torn.txt"},
        {20 + 1600 + 796, 3, "C:\\torn.txt"}, // counts as whole
        {20 + 1600, 2, "C:\\a.txt"},
        {816, 1, "C:\\a.txt"}, // four bytes short: still read
        {815, 0, ""},
    };
    byte_vector whole = info2_file({{}, {}, {.path = u"C:\\torn.txt"}});
    for (const auto &[size, records, last_path] : cases) {
        byte_vector file = whole;
        file.resize(size);
        const auto parsed = parse(file);
        ASSERT_EQ(parsed.size(), records) << size;
        EXPECT_EQ(parsed.empty() ? "" : parsed.back().deleted_path, last_path) << size;
    }
    // A convincing tail after nothing but bad records isn't believed.
    byte_vector doubtful = info2_file({{.drive = 0}, {}});
    doubtful.resize(20 + 800 + 400);
    EXPECT_TRUE(parse(doubtful).empty());
    // Another record size is another format.
    put_number(whole, 12, 280, 4);
    EXPECT_TRUE(parse(whole).empty());
}

} // namespace
} // namespace hv

// What other programs read from the forms that are made for them.

#include "recyclebin/forms/form.h"
#include "samples/bins.h"
#include "support/memory_source.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace hv;
using namespace test_support;

// Paths that harm a reader of some form, or that some reader takes for something else.
std::vector<std::u16string> hostile_paths()
{
    const std::u16string high_half(1, 0xd83d);
    const std::u16string low_half(1, 0xde00);
    const std::u16string joined =
        // separators, quotes, line breaks, and what begins a comment
        u"C:\\offer, final.docx/C:\\a \"b\"/\"C:\\a\"/\"\",\"\"/C:\\a|0|0/C:\\a\tb/"
        u"C:\\a\nC:\\forged/C:\\a\r\nC:\\forged/C:\\a\rb/C:\\a\u2028b\u0085c/#a/"
        // formulas, also after what ends cells elsewhere; numbers; no data
        u"=1+41/+1+41/-1+41/@SUM(1)/\t=1+41/'=1+41/'/C:\\a;=1+41/C:\\a\";\"=1/\uff1d1/"
        u"-/-5/1e5/007/NA/ C:\\a /\\/C:\\a\\/${x}/C:\\%s%n/<script>/"
        // what a terminal obeys, turns or hides, halves of pairs, and texts like marks
        u"C:\\\x1b[2J/C:\\gpj\u202eexe/C:\\K\u00f6ln \u65e5\U0001f600/\ufeffC:\\a/"
        u"C:\\\U000e0041/C:\\<U+0041>/<U+/<U+003C>U+/C:\\a (sent to the Recycle Bin, "
        u"x)/" +
        high_half + u"/" + low_half + u"/" + low_half + high_half + u"/" + high_half +
        u"<U+DE00>/";
    // The longest that a system takes.
    std::vector<std::u16string> paths{u"C:\\" + std::u16string(32764, u'\u65e5')};
    for (std::size_t at = 0, end = 0; at < joined.size(); at = end + 1) {
        end = joined.find(u'/', at);
        paths.push_back(joined.substr(at, end - at));
    }
    return paths;
}

// As `read_form` prints a path.
std::string printed(const std::u16string &path)
{
    std::string line;
    for (const char16_t unit : path) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", unsigned{unit});
        line += unit >= 32 && unit < 127 ? std::string(1, static_cast<char>(unit))
                                         : std::string(escape);
    }
    return line;
}

struct reader {
    const char *name; ///< in `read_form`
    const char *form;
    std::vector<std::string> options;
};

const reader readers[] = {{"python_csv", "csv", {"--bom"}},
                          {"pandas", "csv", {}},
                          {"sqlite", "csv", {}},
                          {"libreoffice", "csv", {"--formula-safe"}},
                          {"mactime", "body", {}},
                          {"jq", "timesketch-jsonl", {}},
                          {"timesketch_csv", "timesketch-csv", {"--formula-safe"}},
                          {"timesketch_json", "timesketch-jsonl", {}},
                          {"log_collector", "l2tcsv", {}}};

class Forms : public testing::TestWithParam<reader> {};

TEST_P(Forms, GiveEachPathBackExactly)
{
    const auto &[name, form_name, options] = GetParam();
    const std::vector<std::u16string> paths = hostile_paths();
    ntfs_volume_builder volume = empty_bin();
    std::vector<std::string> expected;
    for (u64 at = 0; at < paths.size(); ++at) {
        expected.push_back(printed(paths[at]));
        volume.file(
            bin_metadata(66 + at, "$I" + std::to_string(100000 + at), paths[at]));
    }
    const temp_dir dir;
    const std::string file = dir / "rows.csv";
    std::vector<std::string> args = {"list",
                                     dir.write_file("medium", text(volume.build())),
                                     "--output", std::string(form_name) + ":" + file};
    args.insert(args.end(), options.begin(), options.end());
    ASSERT_EQ(run_program(RECYCLEBIN_BINARY, args).status, 0);

    const run_result read =
        run_program("/usr/bin/python3", {RECYCLEBIN_READ_FORM, name, file});
    if (read.status == 77) GTEST_SKIP() << "needs " << name;
    EXPECT_EQ(read.status, 0) << read.err;
    std::vector<std::string> lines = read.lines();
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_EQ(lines, expected);
}

INSTANTIATE_TEST_SUITE_P(Readers, Forms, testing::ValuesIn(readers),
                         [](const auto &param) { return param.param.name; });

// What each form tells of a deletion with all its facts, of one whose times RFC 3339
// can't write, and of an item without metadata.
TEST(Timelines, TellFactsByTheirNames)
{
    constexpr u64 day = 864000000000;
    deletion whole;
    whole.id = "000000000001";
    whole.user = u"S-1-5-21-7";
    whole.metadata_name = u"$IAB12CD.txt";
    whole.data_name = u"$RAB12CD.txt";
    whole.deleted = sample_filetime;
    whole.logged = sample_filetime + 1;
    whole.path = u"C:\\a, b.txt";
    whole.stated_size = 14;
    whole.found_size = 15;
    whole.data_entry = entry_id{68, 1};
    whole.times = {sample_filetime - day, sample_filetime - day, sample_filetime,
                   sample_filetime - day};
    deletion odd;
    odd.id = "000000000002";
    odd.path = u"C:\\odd";
    odd.deleted = ~u64{0};
    deletion orphan;
    orphan.id = "000000000003";
    orphan.data_name = u"$RORPHAN";
    orphan.state = deletion_state::data_only;
    orphan.is_directory = true;
    orphan.times.record_changed = sample_filetime + day;
    orphan.record_changed = sample_filetime + day;
    examination found;
    found.regions.push_back({.is_volume = true});
    found.regions[0].user_names[u"S-1-5-21-7"] = u"ada";
    const memory_source medium({});
    const listing told{found, {&whole, &odd, &orphan}, medium, "m"};
    const auto written = [&](const char *form_name) {
        std::ostringstream out;
        form_called(form_name)->write(out, told, {});
        return out.str();
    };

    const std::string id = ", $IAB12CD.txt, $RAB12CD.txt, S-1-5-21-7, id 000000000001)";
    EXPECT_EQ(
        written("body"),
        "0|C:\\a, b.txt (sent to the Recycle Bin" + id +
            "|68|r/----------|0|0|14|1428168249|1428168249|1428168249|1428168249\n"
            "0|C:\\a, b.txt (seen entering the Recycle Bin by the change journal" +
            id +
            "|68|r/----------|0|0|14|1428168249|1428168249|1428168249|1428168249\n"
            "0|C:\\a, b.txt (own times of the deleted item" +
            id +
            "|68|r/----------|0|0|14|1428081849|1428081849|1428168249|1428081849\n"
            "0|$RORPHAN (record of the deleted item changed, $RORPHAN, id 000000000003)"
            "|0|d/----------|0|0|0|1428254649|1428254649|1428254649|1428254649\n");

    std::string lines;
    for (const std::string &line : split_at(written("l2tcsv"), '\n')) {
        const std::vector<std::string> cells = split_at(line, ',');
        if (cells.size() != 17) continue;
        for (const std::size_t at : {0, 1, 3, 5, 6, 7, 12}) lines += cells[at] + ",";
        lines += '\n';
    }
    const std::string path = "S-1-5-21-7,C:\\a<U+002C> b.txt,\n";
    EXPECT_EQ(
        lines,
        "date,time,MACB,sourcetype,type,user,filename,\n"
        "04/03/2015,17:24:09,MA.B,NTFS file record,Creation Time; Content "
        "Modification Time; Last Access Time," +
            path + "04/04/2015,17:24:09,..C.,Recycle Bin,Content Deletion Time," +
            path +
            "04/04/2015,17:24:09,..C.,NTFS file record,Metadata Modification Time," +
            path +
            "04/04/2015,17:24:09,....,NTFS change journal,Recycle Bin Entry Logged," +
            path +
            "04/05/2015,17:24:09,..C.,NTFS file record,Metadata Modification Time,-,"
            "$RORPHAN,\n");

    EXPECT_NE(
        written("csv").find(
            "\r\n2015-04-04T17:24:09.6140000Z,\"C:\\a, b.txt\",14,S-1-5-21-7,ada,"),
        std::string::npos)
        << written("csv");
    EXPECT_NE(written("csv").find("\r\n,C:\\odd,,"), std::string::npos);
    EXPECT_NE(written("csv").find(",18446744073709551615,"), std::string::npos);
}

} // namespace

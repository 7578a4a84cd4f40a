// What other programs read from the forms that are made for them.

#include "base/hv_text_convert.h"
#include "recyclebin/forms/form.h"
#include "samples/bins.h"
#include "support/memory_source.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

#include <regex>
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
    std::vector<std::u16string> paths;
    for (std::size_t at = 0, end = 0; at < joined.size(); at = end + 1) {
        end = joined.find(u'/', at);
        paths.push_back(joined.substr(at, end - at));
    }
    return paths;
}

// The text that a cell stands for, by the rule that docs/forms.md tells readers.
std::u16string text_of_cell(const std::string &cell)
{
    static const std::regex mark("<U\\+([0-9A-F]{4,6})>");
    std::wstring text;
    const auto end = std::sregex_iterator();
    auto plain = cell.begin();
    for (std::sregex_iterator at(cell.begin(), cell.end(), mark); at != end; ++at) {
        text += uni::to_wide(std::string(plain, (*at)[0].first));
        text += static_cast<wchar_t>(std::stoul((*at)[1], nullptr, 16));
        plain = (*at)[0].second;
    }
    text += uni::to_wide(std::string(plain, cell.end()));
    std::u16string units;
    for (const wchar_t c : text)
        if (c < 0x10000)
            units += static_cast<char16_t>(c);
        else
            units.append({static_cast<char16_t>(0xd7c0 + (c >> 10)),
                          static_cast<char16_t>(0xdc00 + (c & 0x3ff))});
    return units;
}

// A program that reads a file of one form, and prints the path of each deletion on a
// line of its own. "FILE" and "DIR" stand for the file and for a folder of the run's
// own.
struct consumer {
    const char *name;
    const char *test; ///< fails where the program isn't installed
    const char *form;
    std::vector<std::string> options;
    const char *command;
};

#define PYTHON "PYTHONUTF8=1 /usr/bin/python3 -c \"\nimport csv, json, sys\n"

const consumer consumers[] = {
    {"PythonCsv",
     "/usr/bin/python3 -c 'import csv'",
     "csv",
     {"--bom"},
     PYTHON "rows = csv.DictReader(open('FILE', encoding='utf-8-sig', newline=''))\n"
            "for row in rows: assert len(row) == 37; print(row['path'])\""},
    {"Pandas",
     "/usr/bin/python3 -c 'import pandas'",
     "csv",
     {},
     PYTHON "import pandas\n"
            "t = pandas.read_csv('FILE', keep_default_na=False,\n"
            "                    parse_dates=['deleted'])\n"
            "assert t['size'].sum() == 14 * len(t)\n"
            "assert set(t['deleted'].dt.microsecond) == {614000}\n"
            "for path in t['path']: print(path)\""},
    {"Sqlite",
     "command -v sqlite3",
     "csv",
     {},
     "sqlite3 :memory: '.import --csv FILE rows' "
     "\"SELECT path FROM rows WHERE size = '14' AND id <> ''\""},
    {"LibreOffice",
     "command -v soffice",
     "csv",
     {"--formula-safe"},
     "soffice -env:UserInstallation=file://DIR/profile --headless "
     "--infilter=CSV:44,34,76,1 --convert-to "
     "'csv:Text - txt - csv (StarCalc):44,34,76,1,,0,false,true' --outdir DIR/out FILE "
     "1>&2 && " PYTHON "for row in csv.DictReader(open('DIR/out/rows.csv', "
     "encoding='utf-8', newline='')):\n"
     "    print(row['path'][row['path'].startswith(chr(39)):])\""},
    {"Mactime",
     "command -v mactime",
     "body",
     {},
     "mactime -b FILE -d -y -z UTC | " PYTHON "for row in csv.DictReader(sys.stdin):\n"
     "    assert row['Date'] == '2015-04-04T17:24:09Z' and row['Type'] == 'macb'\n"
     "    print(row['File Name'].rpartition(' (sent to the Recycle Bin')[0])\""},
    {"Jq",
     "command -v jq",
     "timesketch-jsonl",
     {},
     "jq -r 'select(.timestamp_desc == \"Content Deletion Time\") | "
     ".original_filename' FILE"},
    // The first three fields are mandatory, and dates have to be understood.
    {"TimesketchCsv",
     "/usr/bin/python3 -c 'import pandas'",
     "timesketch-csv",
     {"--formula-safe"},
     PYTHON
     "import pandas\n"
     "t = pandas.read_csv('FILE', dtype=object, keep_default_na=False)\n"
     "assert list(t)[:3] == ['message', 'datetime', 'timestamp_desc']\n"
     "times = pandas.to_datetime(t['datetime'], utc=True, errors='raise')\n"
     "assert times.is_monotonic_increasing\n"
     "assert list(times.astype('int64') // 1000) == list(map(int, t['timestamp']))\n"
     "for path in t['original_filename']: print(path[path.startswith(chr(39)):])\""},
    {"TimesketchJson",
     "/usr/bin/python3 -c 'import dateutil'",
     "timesketch-jsonl",
     {},
     PYTHON "from dateutil import parser\n"
            "for line in open('FILE', encoding='utf-8', newline='\\\\n'):\n"
            "    event = json.loads(line)\n"
            "    assert list(event)[:3] == ['message', 'datetime', 'timestamp_desc']\n"
            "    seconds = parser.parse(event['datetime']).timestamp()\n"
            "    assert round(seconds * 10**6) == event['timestamp']\n"
            "    print(event['original_filename'])\""},
    // Some collectors split at each comma, and take dates of one form only.
    {"LogCollector",
     "/usr/bin/python3 -c 'import csv'",
     "l2tcsv",
     {},
     PYTHON
     "from datetime import datetime\n"
     "last = datetime.min\n"
     "lines = open('FILE', encoding='utf-8', newline='\\\\n').read().split('\\\\n')\n"
     "names = lines[0].split(',')\n"
     "for line in lines[1:-1]:\n"
     "    cells = line.split(',')\n"
     "    assert len(cells) == 17 and '' not in cells\n"
     "    assert next(csv.reader([line])) == cells\n"
     "    row = dict(zip(names, cells))\n"
     "    when = datetime.strptime(row['date'] + row['time'],\n"
     "                             '%m/%d/%Y%H:%M:%S')\n"
     "    assert when >= last and row['timezone'] == 'UTC'\n"
     "    last = when\n"
     "    print(row['filename'])\""},
};

class Consumer : public testing::TestWithParam<consumer> {};

std::string replaced(std::string text, const std::string &what, const std::string &by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos;)
        text.replace(at, what.size(), by);
    return text;
}

TEST_P(Consumer, GetsEachPathExactly)
{
    const consumer &reader = GetParam();
    const auto shell = [](const std::string &command) {
        return run_program("/bin/sh", {"-c", command});
    };
    if (shell(reader.test).status != 0) GTEST_SKIP() << reader.test;
    std::vector<std::u16string> expected = hostile_paths();
    ntfs_volume_builder volume = empty_bin();
    for (std::size_t at = 0; at < expected.size(); ++at)
        volume.file(
            bin_metadata(66 + at, "$I" + std::to_string(100000 + at), expected[at]));
    const temp_dir dir;
    const std::string medium = dir.write_file("medium", text(volume.build()));
    std::vector<std::string> args = {"list", medium, "--output",
                                     std::string(reader.form) + ":" +
                                         (dir / "rows.csv")};
    args.insert(args.end(), reader.options.begin(), reader.options.end());
    ASSERT_EQ(run_program(RECYCLEBIN_BINARY, args).status, 0);

    const run_result read = shell(
        replaced(replaced(reader.command, "FILE", dir / "rows.csv"), "DIR", dir.path));
    EXPECT_EQ(read.status, 0) << read.err;
    std::vector<std::u16string> paths;
    for (const std::string &cell : read.lines()) paths.push_back(text_of_cell(cell));
    std::ranges::sort(paths);
    std::ranges::sort(expected);
    EXPECT_EQ(paths, expected) << read.out;
}

INSTANTIATE_TEST_SUITE_P(Forms, Consumer, testing::ValuesIn(consumers),
                         [](const auto &param) { return param.param.name; });

// What each form tells of a deletion with all its facts, of one whose times RFC 3339
// can't write, and of an item without metadata.
TEST(Forms, TellTheFactsByTheirNames)
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

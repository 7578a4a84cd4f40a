// The database and the report, as the programs read them that they are made for.

#include "samples/bins.h"
#include "support/fixtures.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

std::string shell(const std::string &command, int status = 0)
{
    const run_result result = run_program("/bin/sh", {"-c", command});
    EXPECT_EQ(result.status, status) << command << '\n' << result.err;
    return result.out;
}

void skip_without(const std::string &program)
{
    const run_result found =
        run_program("/bin/sh", {"-c", "command -v " + program + " >/dev/null"});
    if (found.status != 0) skip_test("needs " + program);
}

// Ends what a careless page or query would put it into.
const std::u16string markup =
    u"C:\\</bdi></td><script>x()</script>&amp;\"'--><img src=x";
// Half a pair, a turn of the direction of writing, and an escape of a terminal.
const std::u16string unprintable = u"C:\\\u202ea\x1b\n" + std::u16string(1, 0xd83d);

// A bin with paths that harm, and with numbers that no honest file states.
ntfs_volume_builder hostile_bin()
{
    const auto huge = dollar_i_builder().path(u"C:\\huge").size(~u64{0}).bytes();
    const auto late = dollar_i_builder().path(u"C:\\late").time(u64{1} << 63).bytes();
    return recent_bin()
        .file(bin_metadata(80, "$IMARKUP", markup))
        .file(bin_metadata(81, "$IHIDDEN", unprintable))
        .file(bin_metadata(86, "$IHEBREW", u"C:\\\u05d0\\\u05d1.exe"))
        .file(bin_item(82, "$IHUGE12", text(huge)))
        .file(bin_item(83, "$ILATE12", text(late)))
        .directory({.entry = 84, .parent = bin_entry, .name = "S-1-5-<i>&'\""})
        .file(bin_metadata(85, "$IOTHER1", u"C:\\other", 84));
}

class RichForms : public testing::Test {
protected:
    // Lists the medium into a file, whose ending names the form.
    std::string list(const std::string &from, const std::string &file) const
    {
        const run_result result =
            run_program(RECYCLEBIN_BINARY, {"list", from, "--output", dir / file});
        EXPECT_EQ(result.status, 0) << result.err;
        return dir / file;
    }
    std::string sql(const std::string &file, const std::string &query) const
    {
        return shell("sqlite3 " + file + " <<'END'\n" + query + "\nEND");
    }

    const temp_dir dir;
    const std::string medium = dir.write_file("a <b> 'c'", text(hostile_bin().build()));
};

TEST_F(RichForms, FillADatabase)
{
    skip_without("sqlite3");
    const std::string file = list(medium, "rows.sqlite");
    EXPECT_EQ(file_bytes(file), file_bytes(list(medium, "again.db")));
    const struct {
        const char *query;
        const char *answer;
    } cases[] = {
        {"PRAGMA integrity_check; PRAGMA foreign_key_check; PRAGMA user_version;",
         "ok\n1\n"},
        {"SELECT volume, deleted, size, user, ifnull(data, '-'), seen_in, path "
         "FROM deletions WHERE path < 'C:\\h' AND user = 'S-1-5-21-7' "
         "AND path NOT LIKE '%U+%' AND path NOT LIKE '%bdi%' ORDER BY path;",
         "1||1|S-1-5-21-7|whole|live|<$RORPHAN.pdf>\n"
         "1|2015-04-04T17:24:09.6140000Z|14|S-1-5-21-7|whole|live|C:\\a.txt\n"
         "1|2015-04-04T17:24:09.6140000Z|14|S-1-5-21-7|folder|live|C:\\dir\\\n"
         "1|2015-04-04T17:24:09.6140000Z|14|S-1-5-21-7|-|live|C:\\gone\n"},
        {"SELECT path, hex(path_utf16) FROM deletion WHERE metadata_file = '$IHIDDEN';",
         "C:\\<U+202E>a<U+001B><U+000A><U+D83D>|43003A005C002E2061001B000A003DD8\n"},
        {"SELECT path FROM deletion WHERE path LIKE '%bdi%';",
         "C:\\</bdi></td><script>x()</script>&amp;\"'--><img src=x\n"},
        {"SELECT count(*) FROM timeline WHERE what = 'Content Deletion Time';", "9\n"},
        {"SELECT stated_size, printf('%llu', stated_size) FROM deletion "
         "WHERE path = 'C:\\huge';",
         "-1|18446744073709551615\n"},
        {"SELECT deleted IS NULL, printf('%llu', deleted_filetime) FROM deletion "
         "WHERE path = 'C:\\late';",
         "1|9223372036854775808\n"},
        {"SELECT user, deletions, in_bin, data_only FROM by_user ORDER BY user;",
         "S-1-5-21-7|10|2|1\nS-1-5-<i>&'\"|1|0|0\n"},
        {"SELECT m.path FROM member m JOIN deletions d ON d.id = m.deletion "
         "WHERE d.path = 'C:\\dir\\' ORDER BY 1;",
         "s\u00fcb\\deep.txt\n"},
    };
    for (const auto &[query, answer] : cases)
        EXPECT_EQ(sql(file, query), answer) << query;
    // The bytes that are named are those of the sum.
    const std::string proof = sql(
        file, "SELECT offset, length, sha256 FROM byte_range r JOIN sighting s USING "
              "(medium, deletion) WHERE s.number = r.sighting AND what = 'proof' "
              "AND s.path = 'C:\\huge';");
    const string_list parts = split_at(proof.substr(0, proof.size() - 1), '|');
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(shell("dd bs=1 skip=" + parts[0] + " count=" + parts[1] + " if='" +
                    dir.path + "/a <b> '\\''c'\\''' 2>/dev/null | sha256sum"),
              parts[2] + "  -\n");
}

// Two media in one database, as docs/forms.md tells it.
TEST_F(RichForms, MergeMedia)
{
    skip_without("sqlite3");
    const std::string file = list(medium, "rows.db");
    const std::string other =
        list(dir.write_file("other", text(recent_bin().build())), "other.db");
    std::string merge = "ATTACH '" + other + "' AS other; BEGIN;\n";
    for (const char *table :
         {"medium", "volume", "snapshot", "user", "deletion", "sighting",
          "sighting_view", "byte_range", "data_range", "member", "conflict"})
        merge += std::string("INSERT INTO main.") + table + " SELECT * FROM other." +
                 table + ";\n";
    const char *counts = "SELECT count(*) FROM deletion; SELECT count(*) FROM sighting "
                         "JOIN deletion d USING (medium) WHERE d.id = deletion;";
    const auto numbers = [&](const std::string &of) {
        const string_list lines = split_at(sql(of, counts), '\n');
        return std::pair(std::stoi(lines[0]), std::stoi(lines[1]));
    };
    const auto [rows, sightings] = numbers(file);
    const auto [other_rows, other_sightings] = numbers(other);
    EXPECT_EQ(sql(file, merge + "COMMIT; PRAGMA foreign_key_check;"), "");
    EXPECT_EQ(numbers(file), std::pair(rows + other_rows, sightings + other_sightings));
    const std::string renamed =
        "PRAGMA foreign_keys = ON; UPDATE medium SET name = 'pc7' "
        "WHERE name LIKE '%/other'; SELECT count(*) FROM "
        "deletions WHERE medium = 'pc7'; ";
    EXPECT_EQ(sql(file, renamed + "DELETE FROM medium WHERE name = 'pc7';"), "5\n");
    EXPECT_EQ(numbers(file), std::pair(rows, sightings));
}

// Reads the page with a parser that knows nothing of its maker: prints its elements,
// each once, its texts of evidence, and what no page of ours may have.
const char *const page_reader = R"END(
import base64, hashlib, html.parser, re, sys
void = {"meta", "input"}
class reader(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.open, self.names, self.evidence, self.policy = [], set(), [], ""
    def handle_starttag(self, name, attributes):
        self.names.add(name)
        if name == "bdi" and "bdi" not in self.open: self.evidence.append("")
        if name not in void: self.open.append(name)
        for key, value in attributes:
            if key.startswith("on") or key in ("src", "href", "style"):
                print("attribute", key)
            if value and value.startswith("default-src"): self.policy = value
    def handle_endtag(self, name):
        if self.open.pop() != name: print("not balanced at", name)
    def handle_data(self, data):
        if "bdi" in self.open: self.evidence[-1] += data
        if self.open and self.open[-1] in ("style", "script"):
            digest = hashlib.sha256(data.encode()).digest()
            allowed = "-src 'sha256-" + base64.b64encode(digest).decode() + "'"
            if self.open[-1] + allowed not in self.policy: print("refused", self.open[-1])
page = open(sys.argv[1], encoding="utf-8").read()
read = reader()
read.feed(page)
print(sorted(read.names & {"img", "i", "b", "iframe", "link", "object", "base"}))
print(read.open, page.count("<script"), "default-src 'none'" in read.policy)
for text in sys.argv[2:]: print(read.evidence.count(text) > 0)
print(re.findall("[\u202a-\u202e\u2066-\u2069\x1b]", page))
)END";

TEST_F(RichForms, KeepEvidenceOutOfTheMarkup)
{
    skip_without("python3");
    const std::string page = list(medium, "page.html");
    EXPECT_EQ(file_bytes(page), file_bytes(list(medium, "again.htm")));
    const run_result read = run_program(
        "/usr/bin/env",
        {"python3", "-X", "utf8", dir.write_file("read", page_reader), page,
         "C:\\</bdi></td><script>x()</script>&amp;\"'--><img src=x",
         "C:\\\\u202ea\\x1b\\x0a\\ud83d", "S-1-5-<i>&'\"", medium, "<$RORPHAN.pdf>"});
    EXPECT_EQ(read.out, "[]\n[] 1 True\nTrue\nTrue\nTrue\nTrue\nTrue\n[]\n")
        << read.err;
    const std::string bytes = file_bytes(page);
    // The day of all times that can be written, and the counts by hand.
    for (const char *part :
         {"<title>2015-04-04, 7: 8 deletions</title>", "<title>2015-04-04, &lt;i&gt;",
          "\\<bdi dir=\"ltr\">\u05d0</bdi>\\<bdi dir=\"ltr\">\u05d1.exe</bdi></bdi>",
          "2 deletions have no known time", "<td>all</td><td class=\"number\">11</td>",
          "<code><bdi>recyclebin explain &#39;"})
        EXPECT_NE(bytes.find(part), std::string::npos) << part;
}

TEST_F(RichForms, SortAndFilterInABrowser)
{
    skip_without("chromium");
    const std::string page =
        list(dir.write_file("recent", text(recent_bin().build())), "page.html");
    const struct {
        const char *view;
        string_list paths; // in their order
    } cases[] = {
        {"#sort=path",
         {"&lt;$RORPHAN.pdf&gt;", "C:\\a.txt", "C:\\dir\\", "C:\\gone", "C:\\lost"}},
        {"#sort=size", {"&lt;$RORPHAN.pdf&gt;"}},
        {"#sort=path,descending&user=7&filter=C:", {"C:\\lost", "C:\\gone"}},
        {"#filter=A.TXT", {"C:\\a.txt"}},
        {"#state=emptied", {"C:\\gone"}},
        {"#filter=nothing", {}},
    };
    for (const auto &[view, paths] : cases) {
        const std::string dom = shell("cd '" + dir.path +
                                      "' && timeout 50 chromium "
                                      "--headless --no-sandbox --disable-gpu "
                                      "--user-data-dir=profile --dump-dom 'file://" +
                                      page + view + "' 2>/dev/null");
        EXPECT_NE(dom.find(" of 5 rows shown"), std::string::npos) << dom;
        string_list shown;
        for (const std::string &line : split_at(dom, '\n'))
            if (const auto at = line.find("<summary><bdi>");
                at != std::string::npos && line.find("<tr hidden") == std::string::npos)
                shown.push_back(
                    line.substr(at + 14, line.find("</bdi>", at) - at - 14));
        shown.resize(std::min(shown.size(), std::max<std::size_t>(paths.size(), 1)));
        EXPECT_EQ(shown, paths) << view;
    }
}

} // namespace

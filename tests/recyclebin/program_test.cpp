// The whole program, as a user runs it.

#include "samples/bins.h"
#include "support/fixtures.h"
#include "support/run_program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;
using json = nlohmann::ordered_json;

class Recyclebin : public testing::Test {
protected:
    static run_result run(const string_list &args, const run_streams &streams = {})
    {
        return run_program(RECYCLEBIN_BINARY, args, streams);
    }

    std::string write(const std::string &bytes)
    {
        return dir.write_file("medium", bytes);
    }
    std::string write(const ntfs_volume_builder &volume)
    {
        return write(text(volume.build()));
    }

    // The rows of `list` with these options, each without the blanks between its cells.
    static string_list rows(string_list args)
    {
        args.insert(args.begin(), "list");
        string_list lines = run(args).lines(1);
        for (std::string &line : lines)
            for (std::size_t at = 0; (at = line.find("  ", at)) != std::string::npos;) {
                line.replace(at, line.find_first_not_of(' ', at) - at, "|");
            }
        return lines;
    }

    const temp_dir dir;
};

const string_list recent_rows = {
    "1|2015-04-04 17:24:09.614|14|7|-|live|C:\\gone",
    "1|2015-04-04 17:24:09.614|14|7|-|live|C:\\lost",
    "1|2015-04-04 17:24:09.614|14|7|folder|live|C:\\dir\\",
    "1|2015-04-04 17:24:09.614|14|7|whole|live|C:\\a.txt",
    "1|-|1|7|whole|live|<$RORPHAN.pdf>",
};

TEST_F(Recyclebin, ListsWhatIsAskedFor)
{
    const std::string medium = write(recent_bin());
    string_list all = rows({medium});
    std::sort(all.begin(), all.end());
    string_list expected = recent_rows;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(all, expected);

    struct selecting {
        string_list options;
        std::size_t count;
    };
    for (const auto &[options, count] : std::vector<selecting>{
             {{"--state", "emptied"}, 1},
             {{"--state", "in-bin", "--state", "data-only"}, 3},
             {{"--deleted-since", "2015-04-04", "--deleted-until", "2015-04-04"}, 4},
             {{"--deleted-since", "2015-04-05"}, 0},
             {{"--deleted-until", "2015-04-04T17:24:09Z"}, 0},
             {{"--path", "c:/A*"}, 1},
             {{"--user", "s-1-5-21-7"}, 5},
             {{"--user", "21"}, 0},
             {{"--at", "now"}, 4},
             {{"--at", "1"}, 0},
             {{"--seen-in", "snapshot"}, 0},
             {{"--seen-in", "live"}, 5},
             {{"--volume", "2"}, 0}}) {
        string_list args = options;
        args.push_back(medium);
        EXPECT_EQ(rows(args).size(), count) << testing::PrintToString(options);
    }
}

TEST_F(Recyclebin, EndsWithItsStatus)
{
    const std::string medium = write(recent_bin());
    const std::string empty = dir.write_file("empty", text(empty_bin().build()));
    const std::string noise = dir.write_file("noise", std::string(1 << 20, 'x'));
    struct ending {
        string_list args;
        int status;
        const char *err; // a part of it
    };
    for (const auto &[args, status, err] : std::vector<ending>{
             {{"list", medium},
              0,
              "5 rows of 1 user: 2 in the bin, 1 emptied from the bin, 1 in the bin, "
              "without its data, 1 in the bin, without its metadata; nothing "
              "unreadable\n"},
             {{"list", empty}, 1, "0 rows; nothing unreadable\n"},
             {{"list", medium, "--no-such"}, 2, "--no-such"},
             {{"list", medium, "--offset", "1x"}, 2, "--offset"},
             {{"list", medium, "--at", "0"}, 2, "--at"},
             {{}, 2, "--help"},
             {{"diff", medium, "1", "now"}, 2, "there is no snapshot 1"},
             {{"list", dir / "none"}, 3, "no such file"},
             {{"list", "/dev/null/none"}, 3, "no such file"},
             {{"list", noise}, 3, "noise: "},
             {{"check", noise}, 3, "noise"},
             {{"list", medium, "--output", medium, "--force"},
              5,
              "is what is to be read"},
             {{"explain", medium, "$INONE"}, 1, "no deletion is called $INONE"}}) {
        const run_result result = run(args);
        EXPECT_EQ(result.status, status) << testing::PrintToString(args);
        EXPECT_NE(result.err.find(err), std::string::npos) << result.err;
    }
    EXPECT_EQ(run({"list", medium}, {.out = "/dev/full"}).status, 5);
    EXPECT_EQ(run({"list", medium}, {.out_closed = true}).status, 5);
    EXPECT_EQ(file_bytes(medium), text(recent_bin().build())) << "it was written to";
}

TEST_F(Recyclebin, NeverReplacesAFileUnasked)
{
    const std::string medium = write(recent_bin());
    const std::string old = dir.write_file("old", "kept");
    EXPECT_EQ(run({"list", medium, "--output", old}).status, 5);
    EXPECT_EQ(run({"list", dir / "none", "--output", old, "--force"}).status, 3);
    EXPECT_EQ(file_bytes(old), "kept");
    EXPECT_EQ(run({"list", medium, "--output", old, "--force"}).status, 0);
    EXPECT_EQ(file_bytes(old), run({"list", medium}).out);
    EXPECT_EQ(run({"list", dir / "none", "--output", dir / "new"}).status, 3);
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

TEST_F(Recyclebin, WritesRowsThatFollowTheSchema)
{
    std::u16string hostile = u"C:\\\u202ea\x1b";
    hostile += char16_t{0xd83d};
    const std::string medium =
        write(recent_bin().file(bin_metadata(80, "$IHOSTIL", hostile)));
    const run_result result = run({"list", medium, "--format", "jsonl"});
    EXPECT_NE(result.out.find(R"("path":"C:\\\u202ea\u001b\ud83d")"), std::string::npos)
        << result.out;
    const std::string rows_file = dir.write_file("rows", result.out);
    if (std::system("python3 -c 'import jsonschema' 2>/dev/null") != 0)
        GTEST_SKIP() << "needs python3-jsonschema";
    const std::string check =
        "python3 -c \"\nimport json, jsonschema, sys\n"
        "check = jsonschema.Draft202012Validator(json.load(open(sys.argv[1])))\n"
        "lines = [json.loads(line) for line in open(sys.argv[2], encoding='utf-8')]\n"
        "for line in lines: check.validate(line)\n"
        "lines[0]['recyclebin']['stat'] = lines[0]['recyclebin'].pop('state')\n"
        "sys.exit(len(lines) != 6 or check.is_valid(lines[0]))\n\" ";
    EXPECT_EQ(std::system((check + RECYCLEBIN_SCHEMA + " " + rows_file).c_str()), 0);
}

// Each change of the medium or of the row is found, and nothing else.
TEST_F(Recyclebin, RechecksEachStatement)
{
    // Its path goes over the end of a sector, where the update sequence is.
    const std::u16string path = u"C:\\" + std::u16string(120, u'p') + u".txt";
    const std::string bytes =
        text(empty_bin().file(bin_metadata(67, "$IAB12CD.txt", path)).build());
    const std::string medium = write(bytes);
    const std::string row = run({"list", medium, "--format", "jsonl"}).out;
    const auto recheck = [&](const std::string &rows, const std::string &on) {
        return run({"recheck", dir.write_file("rows", rows), dir.write_file("on", on)});
    };
    EXPECT_EQ(recheck(row, bytes).status, 0);
    EXPECT_EQ(recheck("{}\n", bytes).status, 3);
    // Nested too deep for any reader that calls itself.
    const std::string begin = "\"recyclebin\":{", deep(200'000, '[');
    std::string nested = row;
    nested.insert(nested.find(begin) + begin.size(),
                  "\"a\":" + deep + std::string(deep.size(), ']') + ",");
    EXPECT_EQ(recheck(nested, bytes).status, 3);
    EXPECT_EQ(run({"recheck", dir.path, dir / "on"}).status, 3);

    const json parsed = json::parse(row);
    const json &range = parsed["recyclebin"]["sightings"][0]["ranges"][0];
    struct change {
        u64 at; // of the $I content
        const char *failure;
    };
    for (const auto &[at, failure] :
         {change{8, "metadata.size"}, change{16, "metadata.deleted"},
          change{40, "metadata.path"}}) {
        std::string changed = bytes;
        changed[range[0].get<u64>() + at] ^= 1;
        const run_result result = recheck(row, changed);
        EXPECT_EQ(result.status, 1) << at;
        EXPECT_NE(result.out.find(failure), std::string::npos) << result.out;
        EXPECT_NE(result.out.find("another SHA-256"), std::string::npos) << result.out;
    }
    // The volume knows how large its records are, whatever this one says.
    std::string unsized = bytes;
    unsized.replace(range[0].get<u64>() / 1024 * 1024 + 28, 4, 4, '\0');
    const std::string same = run({"list", write(unsized), "--format", "jsonl"}).out;
    EXPECT_EQ(json::parse(same)["file"]["path"], parsed["file"]["path"]);
    EXPECT_EQ(recheck(same, unsized).status, 0);
    // What follows from the medium as a whole; each forgery is the only failure.
    struct forgery {
        const char *member; // of the line, as a JSON pointer
        json value;
        const char *failure;
    };
    for (const auto &[member, value, failure] : std::vector<forgery>{
             {"/file/path", "C:\\f.txt", "  file.path C:\\f.txt; now C:\\ppp"},
             {"/recyclebin/state", "emptied",
              "  recyclebin.state emptied; now metadata-only"},
             {"/user/id", "S-1-5-21-9", "  user.id S-1-5-21-9; now S-1-5-21-7"},
             {"/event/id", "0123456789ab", "  event.id 0123456789ab; now "},
             {"/recyclebin/conflicts",
              {"a", "b"},
              "  recyclebin.conflicts [a, b]; now nothing"},
             {"/recyclebin/sightings/0/in_use", false,
              "  sighting 1: in_use false; now true"}}) {
        json forged = parsed;
        forged[json::json_pointer(member)] = value;
        const run_result result = recheck(forged.dump() + "\n", bytes);
        EXPECT_EQ(result.status, 1) << member;
        EXPECT_NE(result.out.find(failure), std::string::npos) << result.out;
        EXPECT_EQ(result.lines().size(), 2u) << result.out;
    }
    json added = parsed;
    added["tags"] = {"seen"};
    const run_result unchecked = recheck(added.dump() + "\n", bytes);
    EXPECT_EQ(unchecked.status, 4);
    EXPECT_NE(unchecked.out.find("tags isn't a field that is known"), std::string::npos)
        << unchecked.out;
    const run_result gone = recheck(row, text(empty_bin().build()));
    EXPECT_EQ(gone.status, 1);
    EXPECT_NE(gone.out.find("doesn't show this deletion any more"), std::string::npos)
        << gone.out;
}

TEST_F(Recyclebin, ExplainsTheBytes)
{
    const std::string medium = write(recent_bin());
    const std::string out = run({"explain", medium, "$iab12cd.txt"}).out;
    for (const char *part :
         {"     +0    02 00 00 00 00 00 00 00      version 2 (Windows 10 and later)\n",
          "     +24   09 00 00 00                  9 units of path, with the ending "
          "zero\n",
          "     +28   43 00 3a 00 5c 00 61 00 ...  C:\\a.txt\n", "in the bin"})
        EXPECT_NE(out.find(part), std::string::npos) << out;
    // The command that it proposes shows the same bytes as the sum is of.
    const std::size_t begin = out.find("dd if=");
    const std::string dd = out.substr(begin, out.find(" | xxd") - begin);
    const std::string sum = out.substr(out.find("sha256 ") + 7, 64);
    EXPECT_EQ(std::system((dd + " | sha256sum | grep -q " + sum).c_str()), 0) << dd;
}

// Two lists of real machines on a real volume, and a third one in free clusters.
TEST_F(Recyclebin, TellsARealVolume)
{
    const std::string medium = fixture_or_skip("ntfs/graft2.raw.gz");
    const auto count = [&](const std::string &option, const std::string &value) {
        return rows({medium, "--carve", option, value}).size();
    };
    const string_list first = rows({medium, "--user", "1003", "--path", "*lalset*"});
    EXPECT_EQ(first, (string_list{"1|2004-08-25 16:18:25.237|2,160,128|1003|whole|live|"
                                  "C:\\Documents and Settings\\Mr. Evil\\Desktop\\"
                                  "lalsetup250.exe"}));
    EXPECT_EQ(count("--user", "1003"), 4u);
    EXPECT_EQ(count("--user", "1004"), 5u);
    EXPECT_EQ(count("--seen-in", "carved"), 16u);
    EXPECT_EQ(count("--volume", "1"), 25u);
}

TEST_F(Recyclebin, ListsRealSnapshots)
{
    const std::string medium = fixture_or_skip("vss/vsstest.raw.xz");
    const std::string out = run({"snapshots", medium}).out;
    for (const char *time : {"2013-12-03 06:35:09.736", "2013-12-03 06:37:48.919"})
        EXPECT_NE(out.find(time), std::string::npos) << out;
}

} // namespace

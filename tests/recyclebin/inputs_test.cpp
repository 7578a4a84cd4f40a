// What isn't a medium: folders, copies of an $MFT, single files.

#include "samples/bins.h"
#include "support/fixtures.h"
#include "support/run_program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;
using json = nlohmann::ordered_json;

const std::string ada = "S-1-5-21-1", bob = "S-1-5-21-2";

class Inputs : public testing::Test {
protected:
    static run_result run(const string_list &args)
    {
        return run_program(RECYCLEBIN_BINARY, args);
    }

    // Region, size, user, content, state and path of each row, in the program's order.
    static string_list rows(const std::string &input)
    {
        string_list rows;
        for (std::string line : run({"list", input, "--format", "jsonl"}).lines()) {
            // The parser takes no half surrogate pairs.
            for (std::size_t at = 0; (at = line.find("\\udc")) != std::string::npos;)
                line.replace(at, 2, "");
            const json row = json::parse(line);
            const json &own = row["recyclebin"];
            rows.push_back(
                std::to_string(own["volume"]["number"].get<int>()) + '|' +
                (row["file"].contains("size") ? row["file"]["size"].dump() : "") + '|' +
                row.value(json::json_pointer("/user/id"), "") + '|' +
                own["data"].get<std::string>() + '|' + own["state"].get<std::string>() +
                '|' + row["file"].value("path", own.value("data_file", "")));
        }
        return rows;
    }

    std::string put(const std::string &name, std::string_view bytes) const
    {
        return dir.write_file("case/" + name, bytes);
    }

    // The bins of two drives, with what nobody should follow or open.
    std::string make_tree() const
    {
        const std::string bin = "C/$Recycle.Bin/" + ada + "/";
        put(bin + "$IAB12CD.txt", text(metadata(u"C:\\a.txt")));
        put(bin + "$RAB12CD.txt", "what was deleted");
        put(bin + "$IDIR123", text(metadata(u"C:\\dir")));
        put(bin + "$RDIR123/sub/K\xff.txt", "1");
        put(bin + "$RORPHAN.pdf", "1");
        put(bin + "desktop.ini", "x");
        put(bin + "$INOTES9.txt", "no metadata");
        put("D/RECYCLER/" + bob + "/INFO2",
            text(info2_file({{.path = u"C:\\b.txt", .number = 1}})));
        put("D/RECYCLER/" + bob + "/Dc1.txt", "12345");
        put("loose/$ILOOSE1", text(metadata(u"C:\\loose")));
        put("loose/$RNOBODY.txt", "not told: no bin, no metadata");
        std::filesystem::create_symlink(dir / "case/C", dir / "case/link");
        return dir / "case";
    }

    const temp_dir dir;
};

TEST_F(Inputs, FindsTheBinsOfAFolder)
{
    const std::string tree = make_tree();
    const string_list expected = {"1|14|" + ada + "|whole|in-bin|C:\\a.txt",
                                  "1|14|" + ada + "|none|in-bin|C:\\dir",
                                  "1||" + ada + "|none|metadata-only|",
                                  "1|1|" + ada + "|whole|data-only|$RORPHAN.pdf",
                                  "2|4096|" + bob + "|whole|in-bin|C:\\b.txt",
                                  "3|14||none|metadata-only|C:\\loose"};
    EXPECT_EQ(rows(tree), expected);
    // A part of it says the same of that part.
    const string_list first(expected.begin(), expected.begin() + 4);
    EXPECT_EQ(rows(tree + "/C/$Recycle.Bin"), first);
    EXPECT_EQ(rows(tree + "/C/$Recycle.Bin/" + ada + "/"), first);
}

TEST_F(Inputs, NeitherFollowsNorWrites)
{
    const std::string tree = make_tree();
    const std::string user = tree + "/C/$Recycle.Bin/" + ada;
    ASSERT_EQ(mkfifo((user + "/$IFIFO12").c_str(), 0600), 0);
    const run_result result = run({"list", tree});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find(ada + "/$IFIFO12: isn't a regular file"),
              std::string::npos)
        << result.err;
    for (const char *command : {"snapshots", "diff"}) {
        string_list args = {command, tree};
        if (args[0] == "diff") args.insert(args.end(), {"1", "now"});
        EXPECT_EQ(run(args).status, 1);
    }
    EXPECT_EQ(run({"list", tree, "--offset", "0"}).status, 2);
    EXPECT_EQ(run({"list", tree, "--output", tree + "/new"}).status, 5);
    EXPECT_FALSE(std::filesystem::exists(tree + "/new"));
    std::filesystem::create_directory(dir / "none");
    EXPECT_EQ(run({"list", dir / "none"}).status, 1);
}

// The tree may be elsewhere when its rows are held against it; rows lead nowhere else.
TEST_F(Inputs, RechecksAndExplainsFiles)
{
    const std::string tree = make_tree();
    const std::string rows_file = dir / "rows";
    ASSERT_EQ(run({"list", tree, "--format", "jsonl", "--output", rows_file}).status,
              0);
    const std::string rows = file_bytes(rows_file);
    EXPECT_NE(rows.find(R"("members":["sub\\K\udcff.txt"])"), std::string::npos);
    const std::string explained = run({"explain", tree, "$RAB12CD.txt"}).out;
    for (const char *sum : // of "what was deleted", and of its metadata
         {"$RAB12CD.txt' bs=1 skip=$((0x0)) count=16 2>/dev/null | xxd\n",
          "$IAB12CD.txt' bs=1 skip=$((0x0)) count=46 2>/dev/null | xxd\n"})
        EXPECT_NE(explained.find(sum), std::string::npos) << explained;

    std::filesystem::rename(tree, dir / "moved");
    EXPECT_EQ(run({"recheck", rows_file, dir / "moved"}).status, 0);
    dir.write_file("moved/D/RECYCLER/" + bob + "/Dc1.txt", "12346");
    EXPECT_EQ(run({"recheck", rows_file, dir / "moved"}).status, 1);
    dir.write_file("outside", "1");
    std::string escaping = rows;
    const std::string inside = "C/$Recycle.Bin/" + ada + "/$RORPHAN.pdf";
    escaping.replace(escaping.find(inside), inside.size(), "../outside");
    dir.write_file("rows", escaping);
    EXPECT_NE(run({"recheck", rows_file, dir / "moved"}).out.find("can't be read"),
              std::string::npos);
}

TEST_F(Inputs, ReadsSingleFiles)
{
    const std::string item = text(metadata(u"C:\\a.txt"));
    const std::string list = text(info2_file({{.path = u"C:\\b.txt", .number = 1}}));
    put(ada + "/$RAB12CD.txt", "what was deleted");
    struct input {
        std::string name, bytes;
        string_list expected;
    };
    for (const auto &[name, bytes, expected] : std::vector<input>{
             {ada + "/$IAB12CD.txt", item, {"1|14|" + ada + "|whole|in-bin|C:\\a.txt"}},
             {"renamed.bin", item, {"1|14||none|metadata-only|C:\\a.txt"}},
             {"evidence-7", list, {"1|4096||none|metadata-only|C:\\b.txt"}},
             // A stretch of clusters that begins with metadata is a medium.
             {"clusters", item + std::string(4050, '\0'), {}}})
        EXPECT_EQ(rows(put(name, bytes)), expected) << name;
}

TEST_F(Inputs, ReadsCopiesOfAnMft)
{
    const ntfs_volume volume = recent_bin().build_volume();
    std::string copy;
    for (u64 entry = 0; entry < 78; ++entry) copy += text(volume.record(entry));
    const std::string medium = dir.write_file("medium", text(volume.image));
    string_list expected = rows(medium);
    // This one's content is in clusters.
    for (std::string &row : expected)
        if (const auto at = row.find("whole|in-bin|C:\\a.txt"); at != std::string::npos)
            row.replace(at, 5, "unknown");
    const std::string name = dir.write_file("copy", copy);
    EXPECT_EQ(rows(name), expected);
    const run_result cut = run({"list", dir.write_file("cut", copy.substr(0, 70000))});
    EXPECT_EQ(cut.status, 0);
    EXPECT_NE(cut.out.find("C:\\a.txt"), std::string::npos) << cut.out;

    // Lists in clusters, which the copy doesn't have: that of a bin is lost, that of a
    // record's attributes is made up for by the records that name their base.
    ntfs_item list = bin_item(66, "INFO2", text(info2_file({{.path = u"C:\\a"}})));
    list.stored.non_resident = true;
    const ntfs_volume old = empty_bin("RECYCLER")
                                .file(list)
                                .file(bin_metadata(70, "$IFAR123", u"C:\\far"))
                                .move({.entry = 70, .record = 71})
                                .list_in_clusters(70)
                                .build_volume();
    copy.clear();
    for (const u64 entry : {0, 1, 2, 3, 4, 5}) copy += text(old.record(entry));
    copy.resize(64 * 1024);
    for (const u64 entry : {64, 65, 66}) copy += text(old.record(entry));
    copy.resize(70 * 1024);
    for (const u64 entry : {70, 71}) copy += text(old.record(entry));
    const run_result lists = run({"list", dir.write_file("lists", copy)});
    EXPECT_EQ(lists.status, 4);
    EXPECT_NE(lists.err.find("copy of an $MFT doesn't hold: 1"), std::string::npos)
        << lists.err;
    EXPECT_NE(lists.out.find("C:\\far"), std::string::npos) << lists.out;

    copy.replace(28, 4, std::string("\1\0\0\0", 4)); // the size of its first record
    const run_result other = run({"list", dir.write_file("other", copy)});
    EXPECT_NE(other.err.find("first record isn't one of an $MFT"), std::string::npos)
        << other.err;
}

TEST_F(Inputs, WritesBytes)
{
    const std::string medium = dir.write_file("medium", "0123456789");
    struct stretch {
        const char *offset, *length;
        int status;
        const char *bytes;
    };
    for (const auto &[offset, length, status, bytes] : {stretch{"0x2", "3", 0, "234"},
                                                        {"8", "3", 4, "89"},
                                                        {"10", "1", 1, ""},
                                                        {"x", "1", 2, ""}}) {
        const run_result result = run({"bytes", medium, offset, length});
        EXPECT_EQ(std::tuple(result.status, result.out), std::tuple(status, bytes))
            << offset;
    }
}

// The figures are those of the data's publishers.
TEST_F(Inputs, ReadsRealFiles)
{
    const std::string folder = std::filesystem::path(fixture_or_skip("i_v2/$IBBFODN"))
                                   .parent_path()
                                   .parent_path();
    struct input {
        const char *name;
        std::size_t count;
    };
    for (const auto &[name, count] : {input{"i_v1", 10},
                                      {"i_v2", 4},
                                      {"info2", 4},
                                      {"info2/INFO2-sample1", 16},
                                      {"info2/INFO2-empty", 0},
                                      {"mft/DFR-16.MFT", 0}})
        EXPECT_EQ(rows(folder + "/" + name).size(), count) << name;
    EXPECT_EQ(rows(folder + "/i_v2/$IBBFODN"),
              (string_list{"1|7||none|metadata-only|C:\\Temp\\𨳊𨶙閪邨鰂"}));
}

} // namespace

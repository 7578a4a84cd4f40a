// Real metadata from public data sets, whose facts were read from the bytes by hand.

#include "support/fixtures.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

namespace {

using namespace test_support;

// The rows of one file, with "|" between cells and decimal numbers.
std::vector<std::string> rows(const std::string &name)
{
    return run_veskit(
               {"-quiet", "-no_whitespace", "-base10", "-file", fixture_or_skip(name)})
        .rows();
}

struct dollar_i_fact {
    const char *file;
    const char *row; ///< up to the user's folder
};

TEST(Fixtures, DollarIFiles)
{
    const std::vector<dollar_i_fact> facts = {
        {"i_v1/$I0JGHX7", "2007-09-21 06:47:49.064|||||0|Win7 or 8|"
                          "C:\\Users\\student\\Desktop\\New Folder 1|"},
        {"i_v1/$I1IS2OK.txt",
         "2007-09-21 06:48:13.478|||||0|Win7 or 8|"
         "C:\\Users\\student\\Desktop\\New Text Document blah.txt|"},
        {"i_v1/$I6SODDB", "2012-04-06 18:42:04.143|||||102742|Win7 or "
                          "8|C:\\Windows\\System32\\dllhost|"},
        {"i_v1/$I7FV8IY.exe", "2007-09-21 08:23:18.845|||||153478296|Win7 or "
                              "8|C:\\Users\\student\\Downloads\\"
                              "VMware-server-installer-1.0.4-56528.exe|"},
        {"i_v1/$ID5HSV3.exe", "2012-04-06 18:43:07.406|||||3943584|Win7 or 8|"
                              "C:\\Windows\\System32\\hythonize.exe|"},
        {"i_v1/$IEMAANA", "2013-10-21 19:59:21.145|||||1399035|Win7 or 8|"
                          "C:\\Users\\Donald\\SkyDrive\\Documents\\Articles|"},
        {"i_v1/$IG1VEXX.xls", "2013-10-21 18:32:52.532|||||16384|Win7 or 8|"
                              "C:\\Users\\Donald\\SkyDrive\\Documents\\"
                              "WACC Calc Spreadsheet -SECRET.xls|"},
        {"i_v1/$II3DF3L.zip",
         "2012-03-12 20:49:58.633|||||724919|Win7 or 8|"
         "C:\\Users\\nfury\\Documents\\Alloy Research\\StarFury.zip|"},
        {"i_v1/$IUVFB0M.rtf",
         "2007-09-21 06:32:46.732|||||155|Win7 or 8|"
         "C:\\Users\\student\\Desktop\\New Rich Text Document.rtf|"},
        {"i_v1/$IZUFRX4.vmdk",
         "2007-09-21 09:22:25.878|||||10737418240|Win7 or 8|C:\\Virtual Machines\\"
         "Windows XP Professional\\Windows XP Professional-flat.vmdk|"},
        {"i_v2/$I103S5F.jpg", "2016-06-29 21:37:45.618|||||222255|Win10|"
                              "C:\\Users\\random\\Downloads\\bunnies.jpg|"},
        {"i_v2/$I7R52EG.txt",
         "2015-04-04 17:24:09.614|||||14|Win10|C:\\Temp\\foobat.txt.txt|"},
        {"i_v2/$IBBFODN", "2015-04-07 23:19:35.866|||||7|Win10|"
                          "C:"
                          "\\Temp\\\xF0\xA8\xB3\x8A\xF0\xA8\xB6\x99\xE9\x96\xAA\xE9\x82"
                          "\xA8\xE9\xB0\x82|"},
        {"i_v2/$IHO61YT",
         "2015-04-07 23:32:07.135|||||12884901888|Win10|C:\\Temp\\largesparsefile|"},
    };
    for (const dollar_i_fact &fact : facts) {
        const auto found = rows(fact.file);
        ASSERT_EQ(found.size(), 1u) << fact.file;
        EXPECT_TRUE(found[0].starts_with(fact.row)) << found[0];
    }
    // It lost one byte of its size field.
    EXPECT_TRUE(rows("i_v1/$IYAR1YY.exe").empty());
}

TEST(Fixtures, Info2Files)
{
    const std::string desktop =
        "|WinXP|C:\\Documents and Settings\\Mr. Evil\\Desktop\\";
    const std::vector<std::string> facts = {
        "2004-08-25 16:18:25.237|||||2160128" + desktop + "lalsetup250.exe|",
        "2004-08-27 15:12:30.799|||||1325056" + desktop +
            "netstumblerinstaller_0_4_0.exe|",
        "2004-08-27 15:15:26.742|||||442880" + desktop + "WinPcap_3_01_a.exe|",
        "2004-08-27 15:29:58.161|||||8460800" + desktop + "ethereal-setup-0.10.6.exe|",
    };
    const auto found = rows("info2/INFO2");
    ASSERT_EQ(found.size(), facts.size());
    for (std::size_t i = 0; i < facts.size(); ++i) {
        EXPECT_TRUE(found[i].starts_with(facts[i])) << found[i];
        EXPECT_NE(
            found[i].find("\"rec#\":\"" + std::to_string(i + 1) + "\";\"vol#\":\"2\""),
            std::string::npos)
            << found[i];
    }
    EXPECT_TRUE(rows("info2/INFO2-empty").empty());
    EXPECT_TRUE(rows("info2/INFO2-sample2").empty()) << "of an older Windows";
}

// What another reader saw in a list, as "time|size|path|number": its lines are "number,
// tab, time, tab, gone, tab, size, tab, path".
std::vector<std::string> listed_records(const std::string &listing)
{
    std::vector<std::string> records;
    for (std::string line : split_at(listing, '\n')) {
        while (line.ends_with('\r')) line.pop_back();
        const auto parts = split_at(line, '\t');
        if (parts.size() == 5 && parts[0] != "Index")
            records.push_back(parts[1] + "|" + parts[3] + "|" + parts[4] + "|" +
                              parts[0]);
    }
    return records;
}

std::string short_record(const std::string &row)
{
    const auto cells = split_at(row, '|');
    const std::size_t number = row.find("\"rec#\":\"") + 8;
    return cells.at(0).substr(0, 19) + "|" + cells.at(5) + "|" + cells.at(7) + "|" +
           row.substr(number, row.find('"', number) - number);
}

TEST(Fixtures, Info2AsAnotherReaderSawIt)
{
    const auto expected =
        listed_records(file_bytes(fixture_or_skip("info2/INFO2-sample1.txt")));
    ASSERT_EQ(expected.size(), 16u);
    std::vector<std::string> found;
    for (const std::string &row : rows("info2/INFO2-sample1"))
        found.push_back(short_record(row));
    EXPECT_EQ(found, expected);
}

TEST(Fixtures, DataFilesPairWithTheirNamesakes)
{
    const temp_dir dir;
    const std::string user = dir / "S-1-5-21-7";
    std::filesystem::create_directories(user);
    for (const char *name : {"i_v1/$IUVFB0M.rtf", "i_v1/$RUVFB0M.rtf",
                             "i_v2/$I7R52EG.txt", "i_v2/$R7R52EG.txt"})
        std::filesystem::copy(fixture_or_skip(name), user);
    const auto found = run_veskit({"-quiet", "-no_whitespace", "-base10", "-enumdir",
                                   dir.path, "-num_subdirs", "1"})
                           .rows();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_NE(found[0].find("|14|Win10|C:\\Temp\\foobat.txt.txt|"), std::string::npos);
    EXPECT_NE(found[1].find("|152|Win7 or 8|"), std::string::npos) << found[1];
}

TEST(Fixtures, Volumes)
{
    const auto lines = [](const std::string &name,
                          const std::vector<std::string> &more) {
        std::vector<std::string> args = {"-quiet", "-no_whitespace", "-base10",
                                         "-image", fixture_or_skip(name)};
        args.insert(args.end(), more.begin(), more.end());
        return run_veskit(args).body();
    };
    EXPECT_TRUE(lines("ntfs/charlie.dd.bz2", {}).empty()) << "it has no bin";
    EXPECT_EQ(lines("ntfs/ntfs-lastaccess.raw.gz", {"-offset", "65536"}).size(), 1u)
        << "an empty bin: the column line alone";
    for (const std::vector<std::string> &more :
         {std::vector<std::string>{}, {"-no_mirel"}}) {
        const auto found = lines("ntfs/graft2.raw.gz", more);
        ASSERT_EQ(found.size(), 10u);
        const char *sizes[] = {"|1000|", "|2000|", "|3000|", "|4000|"};
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NE(found[i + 1].find(sizes[i]), std::string::npos) << found[i + 1];
            EXPECT_NE(
                found[i + 1].find("|S-1-5-21-2000478354-688789844-1708537768-1003|"),
                std::string::npos);
            EXPECT_NE(
                found[i + 1].find("=[\"inode\":\"" + std::to_string(67 + i) + "\""),
                std::string::npos)
                << found[i + 1];
        }
        EXPECT_TRUE(found[1].starts_with("2004-08-25 16:18:25.237|")) << found[1];
        // The third of the other user's records has its data file, of one byte.
        EXPECT_NE(found[7].find("|1|WinXP|"), std::string::npos) << found[7];
        EXPECT_NE(found[7].find("=[\"inode\":\"73\""), std::string::npos) << found[7];
    }
    // A deleted file was another list: of each such, its first cluster is found.
    const auto expected =
        listed_records(file_bytes(fixture_or_skip("info2/INFO2-sample1.txt")));
    for (const char *pass : {"-include_unalloc_clusters", "-rawscan"}) {
        const auto found = lines("ntfs/graft2.raw.gz", {pass});
        ASSERT_EQ(found.size(), 10u + 5) << pass;
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_EQ(short_record(found[10 + i]), expected[i]) << pass;
    }
}

} // namespace

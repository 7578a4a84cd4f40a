// Real metadata from public data sets, whose facts were read from the bytes by hand.

#include "support/fixtures.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

string_list rows_of(const std::string &name)
{
    return quiet_rows({"-file", fixture_or_skip(name)});
}

// "time|size|version|path" of a row.
std::string deletion(const std::string &row)
{
    const string_list cells = split_at(row, '|');
    return cells.at(0) + "|" + cells.at(5) + "|" + cells.at(6) + "|" + cells.at(7);
}

TEST(Fixtures, DollarIFiles)
{
    // The file, then its deletion.
    const std::string facts = R"(
i_v1/$I0JGHX7|2007-09-21 06:47:49.064|0|Win7 or 8|C:\Users\student\Desktop\New Folder 1
i_v1/$I6SODDB|2012-04-06 18:42:04.143|102742|Win7 or 8|C:\Windows\System32\dllhost
i_v1/$IEMAANA|2013-10-21 19:59:21.145|1399035|Win7 or 8|C:\Users\Donald\SkyDrive\Documents\Articles
i_v1/$II3DF3L.zip|2012-03-12 20:49:58.633|724919|Win7 or 8|C:\Users\nfury\Documents\Alloy Research\StarFury.zip
i_v1/$IUVFB0M.rtf|2007-09-21 06:32:46.732|155|Win7 or 8|C:\Users\student\Desktop\New Rich Text Document.rtf
i_v1/$IZUFRX4.vmdk|2007-09-21 09:22:25.878|10737418240|Win7 or 8|C:\Virtual Machines\Windows XP Professional\Windows XP Professional-flat.vmdk
i_v2/$I103S5F.jpg|2016-06-29 21:37:45.618|222255|Win10|C:\Users\random\Downloads\bunnies.jpg
i_v2/$I7R52EG.txt|2015-04-04 17:24:09.614|14|Win10|C:\Temp\foobat.txt.txt
i_v2/$IBBFODN|2015-04-07 23:19:35.866|7|Win10|C:\Temp\𨳊𨶙閪邨鰂
i_v2/$IHO61YT|2015-04-07 23:32:07.135|12884901888|Win10|C:\Temp\largesparsefile
)";
    for (const std::string &fact : split_at(facts, '\n')) {
        if (fact.empty()) continue;
        const std::string file = fact.substr(0, fact.find('|'));
        const string_list rows = rows_of(file);
        ASSERT_EQ(rows.size(), 1u) << file;
        EXPECT_EQ(file + "|" + deletion(rows[0]), fact);
    }
    // It lost one byte of its size field.
    EXPECT_EQ(rows_of("i_v1/$IYAR1YY.exe"), string_list{});
}

// What the first list names, in the order of its records.
const std::string desktop = "C:\\Documents and Settings\\Mr. Evil\\Desktop\\";
const string_list desktop_files = {"lalsetup250.exe", "netstumblerinstaller_0_4_0.exe",
                                   "WinPcap_3_01_a.exe", "ethereal-setup-0.10.6.exe"};

TEST(Fixtures, Info2Files)
{
    const string_list facts = {"2004-08-25 16:18:25.237|2160128|WinXP|",
                               "2004-08-27 15:12:30.799|1325056|WinXP|",
                               "2004-08-27 15:15:26.742|442880|WinXP|",
                               "2004-08-27 15:29:58.161|8460800|WinXP|"};
    const string_list rows = rows_of("info2/INFO2");
    ASSERT_EQ(rows.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(deletion(rows[i]), facts[i] + desktop + desktop_files[i]);
        const std::string numbers = std::to_string(i + 1) + "\";\"vol#\":\"2\"";
        EXPECT_NE(rows[i].find("\"rec#\":\"" + numbers), std::string::npos) << rows[i];
    }
    EXPECT_EQ(rows_of("info2/INFO2-empty"), string_list{});
    EXPECT_EQ(rows_of("info2/INFO2-sample2"), string_list{}) << "of an older Windows";
}

// What another reader saw in a list, as "time|size|path|number": its lines are "number,
// tab, time, tab, gone, tab, size, tab, path".
string_list listed_records()
{
    string_list records;
    const std::string listing = file_bytes(fixture_or_skip("info2/INFO2-sample1.txt"));
    for (std::string line : split_at(listing, '\n')) {
        while (line.ends_with('\r')) line.pop_back();
        const string_list parts = split_at(line, '\t');
        if (parts.size() == 5 && parts[0] != "Index")
            records.push_back(parts[1] + "|" + parts[3] + "|" + parts[4] + "|" +
                              parts[0]);
    }
    return records;
}

std::string as_listed(const std::string &row)
{
    const string_list cells = split_at(row, '|');
    const std::size_t number = row.find("\"rec#\":\"") + 8;
    return cells.at(0).substr(0, 19) + "|" + cells.at(5) + "|" + cells.at(7) + "|" +
           row.substr(number, row.find('"', number) - number);
}

TEST(Fixtures, Info2AsAnotherReaderSawIt)
{
    string_list found;
    for (const std::string &row : rows_of("info2/INFO2-sample1"))
        found.push_back(as_listed(row));
    EXPECT_EQ(found.size(), 16u);
    EXPECT_EQ(found, listed_records());
}

TEST(Fixtures, VolumeWithTwoUsers)
{
    const std::string image = fixture_or_skip("ntfs/graft2.raw.gz");
    for (const char *option : {"-quiet", "-no_mirel"}) {
        const string_list rows = quiet_rows({"-image", image, option});
        ASSERT_EQ(rows.size(), 9u) << option;
        EXPECT_TRUE(rows[0].starts_with("2004-08-25 16:18:25.237|")) << rows[0];
        const string_list files = {"|1000|67", "|2000|68", "|3000|69", "|4000|70"};
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(short_row(rows[i]), desktop + desktop_files[i] + files[i]);
            EXPECT_TRUE(split_at(rows[i], '|').at(8).ends_with("-1708537768-1003"));
        }
        // The third of the other user's records has its data file, of one byte.
        EXPECT_TRUE(short_row(rows[6]).ends_with("|1|73")) << rows[6];
        EXPECT_TRUE(split_at(rows[6], '|').at(8).ends_with("-1708537768-1004"));
    }
    // A deleted file was another list: the records in its first cluster are found.
    const string_list listed = listed_records();
    for (const char *pass : {"-include_unalloc_clusters", "-rawscan"}) {
        const string_list rows = quiet_rows({"-image", image, pass});
        ASSERT_EQ(rows.size(), 9u + 5) << pass;
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_EQ(as_listed(rows[9 + i]), listed.at(i)) << pass;
    }
}

} // namespace

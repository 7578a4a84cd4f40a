// The whole program, as a user runs it.

#include "samples/record_builders.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

// A bin of one user in a directory of the test's own.
class Cli : public testing::Test {
protected:
    std::string add(const std::string &name, const std::string &bytes)
    {
        return dir.write_file("$Recycle.Bin/S-1-5-21-7/" + name, bytes);
    }

    std::string add_metadata(const std::string &name, std::u16string path)
    {
        return add(name, text(metadata(std::move(path))));
    }

    // The deleted paths that a run over the whole tree reports, in order.
    static string_list paths(string_list args)
    {
        args.insert(args.end(), {"-num_subdirs", "9"});
        string_list result;
        for (const std::string &row : quiet_rows(args))
            result.push_back(split_at(row, '|').at(7));
        return result;
    }

    const temp_dir dir;
};

constexpr const char *column_line =
    "deleted date [UTC]|modify date [UTC]|access date [UTC]|mftchanged date [UTC]|"
    "create date [UTC]|size|ver|deleted_file|user_sid|source_of_data|extra_info";

TEST_F(Cli, ShowsUsageAloneWhenAskedOrWithoutArguments)
{
    for (const string_list &args :
         {string_list{}, {"-HELP"}, {"-file", "x", "-h"}, {"/?"}}) {
        const run_result run = run_veskit(args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(
            run.err.find("\n   veskit -file <file> \n   veskit -image <dd image> "
                         "[-offset <vol offset>] [options] = ***\n\n Basic Options\n"),
            std::string::npos);
    }
}

TEST_F(Cli, WritesTheHeaderBeforeEverything)
{
    const string_list lines =
        run_veskit({"-quiet", "-dateformat", "yyyy", "a b", "-pipe"}).lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(lines[0].starts_with("veskit ver: 0.37")) << lines[0];
    EXPECT_NE(lines[1].find(" UTC; host: "), std::string::npos) << lines[1];
    EXPECT_TRUE(lines[2].starts_with("\"command line: <filelist> ... | /")) << lines[2];
    EXPECT_TRUE(lines[2].ends_with("veskit -quiet -dateformat yyyy 'a b' -pipe\""))
        << lines[2];
    EXPECT_EQ(run_veskit({"-quiet", "-no_such_option"}).lines().size(), 3u);
    // An image that isn't there is a failed parse: header, one more newline, usage.
    const run_result failed = run_veskit({"-image", dir / "none"});
    EXPECT_EQ(failed.status, 0);
    EXPECT_TRUE(failed.out.ends_with("\"\n\n")) << failed.out;
    EXPECT_NE(failed.err.find("Basic Options"), std::string::npos);
    EXPECT_EQ(run_veskit({"-rawscan", "-cluster_size", "1000"}).status, 255);
}

TEST_F(Cli, ReportsOneFile)
{
    const std::string file = add_metadata("$IAB12CD.txt", u"C:\\Temp\\a.txt");
    const auto report = [](const std::string &path) {
        const run_result run = run_veskit({"-quiet", "-no_whitespace", "-file", path});
        EXPECT_EQ(run.err, "");
        return run.body();
    };
    EXPECT_EQ(report(file),
              (string_list{column_line,
                           "2015-04-04 17:24:09.614|||||0x0e|Win10|C:\\Temp\\a.txt|"
                           "S-1-5-21-7|{\"trash_file\":\"" +
                               file + "\";\"src\":\"$IAB12CD.txt\"}|"}));
    // Nothing to report is no failure: only the column line is written.
    for (const std::string &bad :
         {dir / "a/$INONE12.txt", dir.path, add("$IEMPTY1", "")})
        EXPECT_EQ(report(bad), string_list{column_line});
}

TEST_F(Cli, PairsAWholeTreeAndAList)
{
    add_metadata("$IAB12CD.txt", u"C:\\a.txt");
    const std::string data = add("$RAB12CD.txt", "12345");
    add_metadata("$IDIR123", u"C:\\dir");
    add("$RDIR123/sub/deep.txt", "1");
    add("$RLOST12.pdf", "1");
    add("desktop.ini", "x");
    add("$IBROKEN1", "too short");
    dir.write_file("RECYCLER/S-1-5-21-8/INFO2",
                   text(info2_file({{.path = u"C:\\old.txt"}})));
    string_list expected = {"C:\\a.txt", "C:\\dir/sub/deep.txt",
                            "<unk path - $RLOST12.pdf>", "C:\\old.txt"};
    EXPECT_EQ(paths({"-enumdir", dir.path}), expected);
    expected.pop_back();
    EXPECT_EQ(paths({"-enumdir", dir / "$Recycle.Bin/S-1-5-21-7/"}), expected);
    EXPECT_EQ(quiet_rows({"-enumdir", dir.path, "-num_subdirs", "1"}), string_list{});
    EXPECT_EQ(quiet_rows({"-enumdir", dir / "RECYCLER", "-num_subdirs", "1"}).size(),
              1u);

    const std::string list = data + "\r\n\n" +
                             (dir / "$Recycle.Bin/S-1-5-21-7/$IAB12CD.txt") + "\n" +
                             (dir / "$Recycle.Bin/S-1-5-21-7/$INONE12") + "\n";
    const auto rows = quiet_rows({"-pipe"}, {.in = list});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(split_at(rows[0], '|').at(5), "5") << "the size of the data file";
    EXPECT_EQ(split_at(rows[0], '|').at(9),
              "{\"trash_file\":\"" + data + "\";\"src\":\"$IAB12CD.txt\"}");
}

TEST_F(Cli, FiltersWhatItTakesIn)
{
    const std::string file = add_metadata("$IAB12CD.txt", u"C:\\a.txt");
    add("$RAB12CD.txt", "MZ5");
    add_metadata("$IXY12CD.doc", u"C:\\b.doc");
    const auto with = [this](string_list args) {
        args.insert(args.end(), {"-enumdir", dir.path});
        return paths(args);
    };
    const std::string orphan = "<unk path - $RAB12CD.txt>";
    EXPECT_EQ(with({"-filter", "$i*"}), (string_list{"C:\\a.txt", "C:\\b.doc"}));
    EXPECT_EQ(with({"-filter_skip", "*.doc"}), string_list{"C:\\a.txt"});
    EXPECT_EQ(with({"-filter_sig", "4d5a|0"}), string_list{orphan});
    EXPECT_EQ(with({"-filter", "$ixy12cd.doc", "-filter", "$r*"}),
              (string_list{"C:\\b.doc", orphan}));

    // 2033-05-18; the change time is that of this run.
    const timespec times[2] = {{2000000000, 0}, {2000000000, 0}};
    utimensat(AT_FDCWD, file.c_str(), times, 0);
    EXPECT_EQ(with({"-cmd_stop_time", "2033/1/1"}), (string_list{"C:\\b.doc", orphan}));
    EXPECT_EQ(with({"-cmd_start_time", "2033/1/1"}), string_list{"C:\\a.txt"});
}

TEST_F(Cli, LogsWhatItPassesOver)
{
    const std::string log = dir / "log", bad = add("$IBROKEN1", "too short");
    const std::string list = bad + "\n/x/\xFF\xFE\n" + std::string(5000, 'x') + "\n";
    EXPECT_EQ(quiet_rows({"-diags", log, "-pipe", "-filter", "$i*"}, {.in = list}),
              string_list{});
    const std::string lines = file_bytes(log);
    EXPECT_TRUE(lines.starts_with("->" VESKIT_BINARY " -diags ")) << lines;
    for (const char *line :
         {"->skipping pipe: /x/\xFF\xFE", "->prob processing entry $IBROKEN1"})
        EXPECT_NE(lines.find(line), std::string::npos) << line << lines;
    // The long line came as two names, both cut to what a log line holds.
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 7);
}

TEST_F(Cli, WritesItsResultsFileAnew)
{
    const std::string file = add_metadata("$IAB12CD.txt", u"C:\\a.txt");
    const std::string out = dir.write_file("out", std::string(100000, 'x'));
    const run_result run = run_veskit({"-file", file, "-out", out, "-append"});
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(file_bytes(out).starts_with("veskit ver: 0.37"));
    EXPECT_EQ(file_bytes(out).find("xxx"), std::string::npos);

    // A pipe can't take results, and stays.
    const std::string pipe = dir / "fifo";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const run_result refused = run_veskit({"-file", file, "-out", pipe});
    EXPECT_EQ(refused.status, 0);
    EXPECT_TRUE(refused.err.starts_with("prob opening file " + pipe +
                                        " for output, aborting\n"))
        << refused.err;
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST_F(Cli, TellsWhenResultsCannotBeWritten)
{
    const std::string file = add_metadata("$IAB12CD.txt", u"C:\\a.txt");
    const std::string full = "prob writing results: No space left on device\n";
    EXPECT_EQ(run_veskit({"-quiet", "-file", file, "-out", "/dev/full"}).err, full);
    EXPECT_EQ(run_veskit({"-quiet", "-file", file}, {.out = "/dev/full"}).err, full);
    const run_result closed =
        run_veskit({"-quiet", "-file", file}, {.out_closed = true});
    EXPECT_EQ(closed.status, 0);
    EXPECT_EQ(closed.err, "prob writing results: Bad file descriptor\n");
    const std::string reader_gone = "{ sleep 0.2; " VESKIT_BINARY " -quiet -file '" +
                                    file + "'; echo $? >'" + dir / "status" +
                                    "'; } 2>/dev/null | true";
    EXPECT_EQ(std::system(reader_gone.c_str()), 0);
    EXPECT_EQ(file_bytes(dir / "status"), "0\n");
}

TEST_F(Cli, PassesOverEverythingThatIsNoMetadata)
{
    add_metadata("$IGOOD12.txt", u"C:\\good.txt");
    add("$IDIR123/inside.txt", "1");
    add("$I\xFF\xFE.txt", "not a name in UTF-8");
    ASSERT_EQ(mkfifo((dir / "$Recycle.Bin/S-1-5-21-7/$IFIFO12").c_str(), 0600), 0);
    ASSERT_EQ(symlink("/dev/zero", (dir / "$Recycle.Bin/S-1-5-21-7/$IZERO12").c_str()),
              0);
    ASSERT_EQ(symlink(dir.path.c_str(), (dir / "$Recycle.Bin/loop").c_str()), 0);
    // The loop is followed into the tree once.
    EXPECT_EQ(paths({"-enumdir", dir.path}),
              (string_list{"C:\\good.txt", "C:\\good.txt"}));
}

} // namespace

#include "records/trash_options.h"
#include "run/run_modes.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>

namespace hv {
namespace {

using namespace test_support;

struct parsed {
    trash_options options;
    arg_list args;
    parse_result result = parse_result::show_usage;

    explicit parsed(arg_list given) : args(std::move(given))
    {
        args.insert(args.begin(), "dir.d/veskit.exe");
        result = parse_trash_options(options, args, "ver: 1");
    }
    bool good() const { return result == parse_result::good; }
};

TEST(OptionReaders, FindNamesInFullAndInAnyCase)
{
    arg_list args = {"p", "-OUT", "x", "-outfile", "y", "-out"};
    std::string value;
    EXPECT_FALSE(find_value(args, "-ou", value, 0));
    EXPECT_TRUE(find_flag(args, "-out", 2));
    EXPECT_FALSE(find_flag(args, "-out", 99));
    EXPECT_TRUE(take_value(args, "-out", value));
    EXPECT_EQ(value, "x");
    EXPECT_FALSE(take_value(args, "-out", value)) << "the last element has no value";
    EXPECT_EQ(args, (arg_list{"p", "-outfile", "y", "-out"}));
}

// What a command line makes of the options, as text: "separator, forbidden,
// replacement, padding, blank before times".
std::string output_form(const arg_list &args)
{
    const parsed run(args);
    const trash_options &o = run.options;
    const auto shown = [](char c) {
        return c == 0 ? std::string("0") : std::string(1, c);
    };
    return "[" + o.separator_text + "] " + shown(o.forbidden_char) +
           shown(o.replacement_char) + (o.no_padding ? "" : " padded") +
           (o.space_after_separator ? " blank" : "") + (o.csv ? " csv" : "") +
           (o.csvgen ? " csvgen" : "") + (o.csvl2t ? " csvl2t" : "") +
           (o.bodyfile ? " bodyfile" : "") + (o.xml ? " xml" : "") +
           (o.multiline ? " multiline" : "");
}

TEST(Options, ALaterFormWinsWhateverTheOrderOnTheCommandLine)
{
    struct form_case {
        arg_list args;
        const char *form;
    };
    const std::vector<form_case> cases = {
        {{}, "[ | ] |; padded"},
        {{"-csv"}, "[,] ,  padded blank csv"},
        {{"-CSV", "-no_whitespace"}, "[,] ,  csv"},
        {{"-csv", "-pair_datetime"}, "[,] ,  padded blank csv"},
        {{"-csv", "-enable_quoted_csv_fields"}, "[,] 0  padded blank csv"},
        {{"-csvgen"}, "[,] ,  csvgen"},
        {{"-csvl2t", "-csv"}, "[,] ,  csvl2t"},
        {{"-csvgen", "-csvl2t"}, "[,] ,  csvl2t"},
        {{"-bodyfile"}, "[|] |; padded bodyfile"},
        {{"-xml", "-bodyfile"}, "[] 00 padded xml"},
        {{"-multiline", "-xml"}, "[] 00 padded multiline"},
        {{"-csv_separator", " tab"}, "[ tab] 00 padded"},
        {{"-csv_separator", "\\T"}, "[\t] 00 padded"},
        {{"-csv_separator", "Ab|,"}, "[Ab|,] |; padded"},
        {{"-enable_quoted_csv_fields"}, "[|] 0; padded"},
        {{"-no_whitespace"}, "[|] |;"},
    };
    for (const form_case &one : cases)
        EXPECT_EQ(output_form(one.args), one.form) << testing::PrintToString(one.args);
}

TEST(Options, BadTemplatesAreNamedAndLeaveTheDefault)
{
    testing::internal::CaptureStderr();
    const parsed run({"-dateformat", "mmm-dd-yy", "-timeformat", "HH:MM:SS"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "invalid mmm-dd-yy, using default format\n");
    EXPECT_TRUE(run.good());
    EXPECT_EQ(run.options.date_template, "yyyy-mm-dd");
    EXPECT_EQ(run.options.time_template, "hh:mm:ss");
}

TEST(Options, TimeWindowReadsYearMonthDay)
{
    // 2024-01-31 00:00:00 and 23:59:59 UTC; 12:30:00 of the same day.
    constexpr u64 midnight = 133511328000000000;
    testing::internal::CaptureStderr();
    const parsed start({"-cmd_start_time", "2024/1/31 12:30"});
    EXPECT_TRUE(start.good());
    EXPECT_EQ(start.options.window.start, midnight + 45000ull * 10000000);
    EXPECT_EQ(start.options.window.stop, ~u64{0});
    const parsed stop({"-cmd_stop_time", "24-01-31"});
    EXPECT_TRUE(stop.options.window.stop_set);
    EXPECT_FALSE(stop.options.window.start_set);
    EXPECT_EQ(stop.options.window.stop, midnight + 86399ull * 10000000);
    EXPECT_FALSE(parsed({"-cmd_stop_time", "20240131"}).good());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    testing::internal::CaptureStderr();
    const parsed bad({"-cmd_start_time", "2024-13-01", "-cmd_stop_time", "x-y-z"});
    EXPECT_TRUE(bad.good());
    EXPECT_FALSE(bad.options.window.any());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "invalid start time, ignoring\ninvalid stop time, ignoring\n");
}

TEST(Options, WhatTheFamilyKnowsIsConsumedOrRefused)
{
    testing::internal::CaptureStderr();
    const parsed run({"-gzip", "-zlib", "-zlibex", "9", "-threads", "4", "-cpu",
                      "-alias", "a|/b", "-fragment_files", "1", "-unknown", "-sqlite"});
    EXPECT_TRUE(run.good());
    EXPECT_EQ(run.args, (arg_list{"dir.d/veskit.exe", "-unknown", "-sqlite"}));
    EXPECT_EQ(run.options.program_name, "veskit");
    EXPECT_FALSE(parsed({"-sqlite", "db"}).good());
    EXPECT_FALSE(parsed({"-aliaspath", "a|b|c"}).good());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "This option is not offered in this build\n"
              "imbalanced alias to true pathfiles, aborting\n");
}

TEST(Options, ScanOptionsDependOnEachOther)
{
    const temp_dir dir;
    const std::string image = dir.write_file("image", "x");
    struct scan_case {
        arg_list args;
        std::function<bool(const parsed &)> holds;
    };
    const std::vector<scan_case> cases = {
        {{"-rawscan", "-cluster_size", "0x1000"},
         [](const parsed &p) { return p.options.cluster_size == 4096; }},
        {{"-cluster_size", "4096"},
         [](const parsed &p) {
             return p.options.cluster_size == 0 && p.args.size() == 3;
         }},
        {{"-rawscan", "-cluster_size", "1536"},
         [](const parsed &p) { return p.result == parse_result::end_process; }},
        {{"-rawscan", "-cluster_size", "0"},
         [](const parsed &p) { return p.result == parse_result::end_process; }},
        {{"-image", image, "-offset", "x100"},
         [](const parsed &p) {
             return p.options.volume_offset == 256 && p.options.bins_known;
         }},
        {{"-image", image, "-offset", "0x12345678123456789"},
         [](const parsed &p) { return p.good() && p.options.volume_offset == 0; }},
        {{"-offset", "512"}, [](const parsed &p) { return p.args.size() == 3; }},
        {{"-image", dir / "none"}, [](const parsed &p) { return !p.good(); }},
        {{"-image", ""}, [](const parsed &p) { return !p.good(); }},
        {{"-partition", ""}, [](const parsed &p) { return !p.good(); }},
        {{"-partition", "q"}, [](const parsed &p) { return !p.good(); }},
        {{"-mftfile", "m", "-image", image},
         [](const parsed &p) { return p.options.mftscan && !p.options.bins_known; }},
        {{"-no_mirel", "-include_vss_clusters"},
         [](const parsed &p) { return p.options.mftscan && !p.options.bins_known; }},
        {{"-include_unalloc_clusters"},
         [](const parsed &p) { return p.options.mftscan && p.options.bins_known; }},
    };
    testing::internal::CaptureStderr();
    for (const scan_case &one : cases)
        EXPECT_TRUE(one.holds(parsed(one.args))) << testing::PrintToString(one.args);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "invalid size [1536]\ninvalid size [0]\n");
}

TEST(RunModes, TheFirstConditionThatHoldsDecides)
{
    const temp_dir dir;
    const std::string image = dir.write_file("image", "x");
    const auto mode = [](const arg_list &args) {
        parsed run(args);
        std::string file;
        return choose_run_mode(run.options, run.args, file);
    };
    EXPECT_EQ(mode({"-mftfile", "m", "-image", image}), run_mode::mft_file);
    EXPECT_EQ(mode({"-image", image, "-rawscan", "-file", "f"}), run_mode::raw_image);
    EXPECT_EQ(mode({"-image", image, "-file", "f"}), run_mode::volume_image);
    EXPECT_EQ(mode({"-rawscan", "-file", "f", "-pipe"}), run_mode::single_file);
    EXPECT_EQ(mode({"-include_vss_clusters", "-enumdir", "d"}), run_mode::file_list);
    EXPECT_EQ(mode({"-file"}), run_mode::nothing);
}

} // namespace
} // namespace hv

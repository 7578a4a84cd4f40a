#include "options/run_options.h"

#include "options/output_path.h"
#include "run/run_modes.h"
#include "support/temp_dir.h"
#include "trash/bin_names.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

namespace hv {
namespace {

using namespace test_support;

struct parsed {
    run_options options;
    arg_list args;
    parse_result result = parse_result::show_usage;

    explicit parsed(arg_list given) : args(std::move(given))
    {
        args.insert(args.begin(), "dir.d/veskit.exe");
        result = parse_trash_options(options, args, "ver: 1", is_evidence_name);
    }
    bool good() const { return result == parse_result::good; }
};

// What a command line makes of the form: "[separator] forbidden and replacement
// character, padding, blank before times, form".
std::string form_of(const arg_list &args)
{
    const parsed run(args);
    const output_form &form = run.options.form;
    const auto shown = [](char c) {
        return c == 0 ? std::string("0") : std::string(1, c);
    };
    constexpr std::array<const char *, 7> kinds = {
        "table", "csv", "csvgen", "csvl2t", "bodyfile", "multiline", "xml"};
    return "[" + form.separator_text + "] " + shown(form.forbidden_char) +
           shown(form.replacement_char) + (form.no_padding ? "" : " padded") +
           (form.space_after_separator ? " blank " : " ") +
           kinds.at(static_cast<std::size_t>(form.kind));
}

TEST(Options, ALaterFormWinsWhateverTheOrderOnTheCommandLine)
{
    const std::pair<arg_list, const char *> cases[] = {
        {{}, "[ | ] |; padded table"},
        {{"-csv"}, "[,] ,  padded blank csv"},
        // The flag counts also where another option takes it.
        {{"-CSV", "-hostname", "-no_whitespace"}, "[,] ,  csv"},
        {{"-csv", "-pair_datetime"}, "[,] ,  padded blank csv"},
        {{"-csv", "-enable_quoted_csv_fields"}, "[,] 0  padded blank csv"},
        {{"-csvgen"}, "[,] ,  csvgen"},
        {{"-csvl2t", "-csvgen", "-csv"}, "[,] ,  csvl2t"},
        {{"-bodyfile"}, "[|] |; padded bodyfile"},
        {{"-xml", "-bodyfile"}, "[] 00 padded xml"},
        {{"-multiline", "-xml"}, "[] 00 padded multiline"},
        {{"-csv_separator", " tab"}, "[ tab] 00 padded table"},
        {{"-csv_separator", "\\T"}, "[\t] 00 padded table"},
        {{"-csv_separator", "Ab|,"}, "[Ab|,] |; padded table"},
        {{"-enable_quoted_csv_fields"}, "[|] 0; padded table"},
        {{"-no_whitespace"}, "[|] |; table"},
    };
    for (const auto &[args, form] : cases)
        EXPECT_EQ(form_of(args), form) << testing::PrintToString(args);
}

TEST(Options, BadTemplatesAreNamedAndLeaveTheDefault)
{
    testing::internal::CaptureStderr();
    const parsed run({"-dateformat", "mmm-dd-yy", "-timeformat", "HH:MM:SS"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "invalid mmm-dd-yy, using default format\n");
    EXPECT_TRUE(run.good());
    EXPECT_EQ(run.options.form.date_template, "yyyy-mm-dd");
    EXPECT_EQ(run.options.form.time_template, "hh:mm:ss");
}

TEST(Options, TimeWindowReadsYearMonthDay)
{
    // 2024-01-31 00:00:00 and 23:59:59 UTC; 12:30:00 of the same day.
    constexpr u64 midnight = 133511328000000000;
    testing::internal::CaptureStderr();
    const parsed start({"-cmd_start_time", "2024/1/31 0:30pm"});
    EXPECT_TRUE(start.good());
    EXPECT_EQ(start.options.window.start, midnight + 45000ull * 10000000);
    EXPECT_EQ(start.options.window.stop, ~u64{0});
    const parsed stop({"-cmd_stop_time", "24-01-31"});
    EXPECT_TRUE(stop.options.window.stop_set);
    EXPECT_FALSE(stop.options.window.start_set);
    EXPECT_EQ(stop.options.window.stop, midnight + 86399ull * 10000000);
    EXPECT_FALSE(parsed({"-cmd_stop_time", "20240131"}).good());
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
    EXPECT_EQ(run.options.form.program_name, "veskit");
    EXPECT_FALSE(parsed({"-sqlite", "db"}).good());
    EXPECT_FALSE(parsed({"-aliaspath", "a|b|c"}).good());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "This option is not offered in this build\n"
              "imbalanced alias to true pathfiles, aborting\n");
}

// What the scan options come to: the result, or the values that differ from nothing.
std::string scan_of(const arg_list &args)
{
    const parsed run(args);
    if (run.result == parse_result::end_process) return "ends";
    if (!run.good()) return "usage";
    const run_options &options = run.options;
    std::string text = options.look_up_bins ? "looks bins up" : "";
    if (options.mftscan) text += " $MFT";
    if (options.volume_offset != 0) text += " " + std::to_string(options.volume_offset);
    if (options.cluster_size != 0) text += " " + std::to_string(options.cluster_size);
    return text + " " + std::to_string(run.args.size() - 1) + " left";
}

TEST(Options, ScanOptionsDependOnEachOther)
{
    const temp_dir dir;
    const std::string image = dir.write_file("image", "x");
    const std::pair<arg_list, const char *> cases[] = {
        {{"-rawscan", "-cluster_size", "0x1000"}, " 4096 0 left"},
        {{"-cluster_size", "4096"}, " 2 left"},
        {{"-rawscan", "-cluster_size", "1536"}, "ends"},
        {{"-rawscan", "-cluster_size", "0"}, "ends"},
        {{"-image", image, "-offset", "x100"}, "looks bins up 256 0 left"},
        // More digits than 64 bits can need are no number.
        {{"-image", image, "-offset", "0x12345678123456789"}, "looks bins up 0 left"},
        {{"-offset", "512"}, " 2 left"},
        {{"-image", dir / "none"}, "usage"},
        {{"-image", ""}, "usage"},
        {{"-partition", ""}, "usage"},
        {{"-mftfile", "m", "-image", image}, " $MFT 0 left"},
        {{"-no_mirel", "-include_vss_clusters"}, " $MFT 0 left"},
        {{"-include_unalloc_clusters"}, "looks bins up $MFT 0 left"},
        {{"-partition", "q", "-mftscan"}, "looks bins up $MFT 0 left"},
    };
    testing::internal::CaptureStderr();
    for (const auto &[args, outcome] : cases)
        EXPECT_EQ(scan_of(args), outcome) << testing::PrintToString(args);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "invalid size [1536]\ninvalid size [0]\n");
}

// What becomes of a path that results are to go to, and of what is there already.
TEST(OutputPath, MakesRoomButNeverInTheEvidence)
{
    const temp_dir dir;
    const std::string bin = dir / "$RECYCLE.BIN";
    std::filesystem::create_directories(bin + "/S-1-5-21-1");
    std::filesystem::create_directory(dir / "folder");
    for (const char *name : {"old", "target", "source", "$IAB12CD.txt", "my INFO2.bak",
                             "recycler.txt", "$RECYCLE.BIN/S-1-5-21-1/$RAB12CD.txt"})
        dir.write_file(name, "content");
    const auto link = [&dir](const char *name, const char *target) {
        std::filesystem::create_symlink(target, dir / name);
    };
    link("to file", "target");
    link("to nothing", "far end");
    link("to no folder", "none/far end");
    link("in a circle", "in a circle");
    link("bin", "$RECYCLE.BIN/S-1-5-21-1");
    // The path, whether it passes, and whether it is there afterwards.
    const std::tuple<const char *, bool, bool> cases[] = {
        {"old", true, false},
        {"to file", true, false},
        {"to nothing", true, false},
        {"to no folder", false, true},
        {"in a circle", false, true},
        {"folder", false, true},
        {"source", false, true},
        {"recycler.txt", true, false},
        {"$IAB12CD.txt", false, true},
        {"my INFO2.bak", false, true},
        {"$INEW123.txt", true, false},
        {"$RECYCLE.BIN/S-1-5-21-1/$RAB12CD.txt", false, true},
        {"bin/$RAB12CD.txt", false, true},
        {"$RECYCLE.BIN/S-1-5-21-1/rows", true, false},
    };
    const arg_list args = {"p", "-image", dir / "source"};
    for (const auto &[path, passes, is_there] : cases) {
        EXPECT_EQ(prepare_output_path(args, dir / path, is_evidence_name), passes)
            << path;
        const auto left = std::filesystem::symlink_status(dir / path);
        EXPECT_EQ(std::filesystem::exists(left), is_there) << path;
    }
    EXPECT_EQ(file_bytes(dir / "target"), "content");
    std::filesystem::create_symlink("$IAB12CD.txt", dir / "log");
    EXPECT_TRUE(appends_to_evidence(args, dir / "log", is_evidence_name));
    EXPECT_FALSE(std::filesystem::exists(dir / "far end"));
    EXPECT_EQ(file_bytes(bin + "/S-1-5-21-1/$RAB12CD.txt"), "content");
}

TEST(RunModes, TheFirstConditionThatHoldsDecides)
{
    const temp_dir dir;
    const std::string image = dir.write_file("image", "x");
    const auto mode = [](const arg_list &args) {
        parsed run(args);
        run_input input;
        return choose_run_mode(run.options, run.args, input);
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

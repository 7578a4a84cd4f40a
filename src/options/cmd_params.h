#pragma once

#include "base/hv_filter.h"
#include "base/hv_log.h"
#include "base/hv_time_text.h"
#include "base/hv_types.h"
#include "options/option_readers.h"

#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// The generic options of a run: output form, log, filters. Filled once by
/// `generic_parse` and only read after that.
class cmd_params {
public:
    cmd_params() = default;
    virtual ~cmd_params() = default;
    cmd_params(const cmd_params &) = delete;
    cmd_params &operator=(const cmd_params &) = delete;

    /// The diagnostic log, or nowhere without an open one.
    log_handle log() const { return log_handle(log_stream.get()); }

    /// Takes the text between columns. A form with "|" or "," also chooses the
    /// character that may not stand inside a cell; "tab" and "\t" stand for one tab.
    void set_separator(std::string_view text);

    /// The number as `-base10` and `-base16` want it.
    std::string number(u64 value) const;

    // What the run was called with
    std::string command_line; ///< joined by blanks, elements with blanks in quotes
    std::string program_name; ///< without directory and extension
    std::string version_text;
    std::string tool_tag; ///< short name of the source in a timeline

    // Where results go
    std::string out_path; ///< empty for standard output
    std::string out_dir;
    std::string username;
    bool username_set = false;
    std::string hostname;
    bool hostname_set = false;

    // Output form; at most one of the flags is set
    bool xml = false;
    bool csv = false;
    bool csvl2t = false;
    bool csvgen = false;
    bool bodyfile = false;
    bool multiline = false;
    std::string separator_text = " | ";
    char forbidden_char = '|';   ///< may not stand inside a cell; 0 for none
    char replacement_char = ';'; ///< what takes its place
    bool no_padding = false;
    bool space_after_separator = true; ///< one blank before each time of a table
    bool no_whitespace = false;        ///< `-no_whitespace` itself was given
    bool quoted_csv = false;
    bool split_pathfile = false;
    bool hex_numbers = true;
    std::string date_template{default_date_template};
    std::string time_template{default_time_template};
    bool pair_date_time = false;
    date_time_format format;    ///< made from the two templates
    bool header_pending = true; ///< the column line is still to be written

    // What the run says
    bool verbose = true;
    bool progress = true; ///< progress text on standard error
    bool profile = false;
    std::string signal_name;
    i32 log_level = 0;
    std::string log_path; ///< empty unless the log could be opened
    std::unique_ptr<std::ostream> log_stream;

    // What a list or a walk takes in
    bool read_file_content = false; ///< a parser may read a metadata file by its path
    std::vector<filter_item> filter_list;
    std::vector<filter_item> skip_list;
    bool pipe = false;
    bool enumdir = false;
    std::string enumdir_path;
    u32 num_subdirs = 0;
    time_window window;
};

/// Reads the generic options out of `args` and removes them, in a fixed order that
/// decides precedence. Unknown options stay and are ignored. False, behind a message of
/// its own where there is something to say, if the run can't go on.
bool generic_parse(cmd_params &params, arg_list &args);

/// Times a run and erases the progress line behind it.
class cmdline_ctx {
public:
    using signal_function = void (*)(const std::string &name);

    cmdline_ctx() = default;
    virtual ~cmdline_ctx();
    cmdline_ctx(const cmdline_ctx &) = delete;
    cmdline_ctx &operator=(const cmdline_ctx &) = delete;

    /// Takes over what the end of the run needs and starts its timing, if `-profile` or
    /// `-diags` asked for one.
    void attach(const cmd_params &params, signal_function handler);

private:
    using steady_time = std::chrono::steady_clock::time_point;

    void report_timing() const;

    bool m_show_progress = false;
    bool m_profile = false;
    std::string m_log_path;
    bool m_timing = false;
    steady_time m_start;
    std::string m_signal_name;
    signal_function m_signal_handler = nullptr;
};

} // namespace hv

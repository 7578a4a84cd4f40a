#pragma once

#include "base/hv_filter.h"
#include "base/hv_log.h"
#include "base/hv_types.h"
#include "options/option_readers.h"
#include "options/output_form.h"

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

    // What the run was called with
    std::string command_line; ///< joined by blanks, elements with blanks in quotes
    std::string out_path;     ///< results file; empty for standard output
    output_form form;

    // What the run says
    bool progress = true; ///< progress text on standard error
    bool profile = false;
    std::string signal_name;
    std::string log_path; ///< empty unless the log could be opened
    std::unique_ptr<std::ostream> log_stream;

    // What a list or a walk takes in
    std::vector<filter_item> filter_list;
    std::vector<filter_item> skip_list;
    bool pipe = false;
    bool enumdir = false;
    std::string enumdir_path;
    u32 num_subdirs = 0;
    time_window window;

    // Kept for callers: read from the command line, but no part of this program asks.
    std::string version_text;
    std::string out_dir;
    bool username_set = false;
    bool hostname_set = false;
    bool split_pathfile = false;
    bool verbose = true;
    i32 log_level = 0; ///< 2 for `-l2`, 3 for `-l3`
};

/// True for the path of a file that the run may be about to read. Results never go
/// there. The formats' names are no matter of the options, so the caller brings the
/// test.
using evidence_test = bool (*)(std::string_view path);

/// Reads the generic options out of `args` and removes them, in a fixed order that
/// decides precedence. Unknown options stay and are ignored. False if the run can't go
/// on, after a message where there is something to say.
bool generic_parse(cmd_params &params, arg_list &args, evidence_test is_evidence);

} // namespace hv

#pragma once

#include "options/cmd_params.h"

#include <string>
#include <string_view>

namespace hv {

/// All options of a run. Nothing changes them once they are parsed: what opening a
/// volume tells is no option, and lies elsewhere.
class run_options : public cmd_params {
public:
    std::string partition_root; ///< root of `-partition`, with a backslash at its end
    bool partition = false;
    std::string image_path; ///< `-image`
    bool image = false;
    u64 volume_offset = 0; ///< `-offset`: bytes from the start of the image
    std::string mft_file;  ///< `-mftfile`
    bool rawscan = false;
    u32 cluster_size = 0; ///< `-cluster_size` of a raw scan, in bytes; 0 if not given
    bool cluster_size_set = false;
    bool mftscan = false;
    bool include_unalloc = false;
    bool include_vss = false;
    /// The bin is looked up by its path before the pass over the `$MFT`.
    bool look_up_bins = false;
};

enum class parse_result {
    good,
    show_usage, ///< the run can't go on; the user gets the header and the usage text
    end_process ///< the process ends at once, with status -1
};

/// Reads all options out of `args` and removes them. What only a run mode asks for
/// (`-file`) stays.
parse_result parse_trash_options(run_options &options, arg_list &args,
                                 std::string_view version_text,
                                 evidence_test is_evidence);

} // namespace hv

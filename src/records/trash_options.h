#pragma once

#include "options/cmd_params.h"
#include "records/trash_inodes.h"

#include <string>
#include <string_view>

namespace hv {

/// The one object that carries a run: its options and its whole collection. Every scan
/// gets it as its context.
class trash_options : public cmd_params, public _trash_inodes {
public:
    std::string partition_root; ///< root of `-partition`, with a backslash at its end
    bool partition = false;
    std::string recycle_dir; ///< the bin under `partition_root`
    bool xp_layout = false;  ///< `recycle_dir` is of the "RECYCLER" form
    std::string image_path;
    bool image = false;
    u64 volume_offset = 0; ///< bytes from the start of the image
    bool rawscan = false;
    bool mftscan = false;
    bool include_unalloc = false;
    bool include_vss = false;
};

enum class parse_result {
    good,
    show_usage, ///< the run can't go on; the user gets the header and the usage text
    end_process ///< the process ends at once, with status -1
};

/// Reads all options out of `args` and removes them.
parse_result parse_trash_options(trash_options &options, arg_list &args,
                                 std::string_view version_text);

} // namespace hv

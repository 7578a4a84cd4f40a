#pragma once

#include "records/trash_options.h"

namespace hv {

/// The run modes in the order in which their conditions are tested.
enum class run_mode {
    mft_file = 1,     ///< an `$MFT` that was copied to a file
    raw_image,        ///< every cluster of an image
    mounted_bin,      ///< the bin of a partition, through the file system
    volume_partition, ///< the volume of a partition
    volume_image,     ///< the volume in an image
    single_file,
    file_list,
    nothing,
};

/// The first mode whose condition holds. For a single file, `file` takes its path out
/// of `args`, which no mode before it has looked at.
run_mode choose_run_mode(const trash_options &options, arg_list &args,
                         std::string &file);

/// Runs a mode and writes its results to the options' stream.
void execute_run_mode(run_mode mode, const std::string &file, trash_options &options);

} // namespace hv

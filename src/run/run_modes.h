#pragma once

#include "options/run_options.h"
#include "run/mounted_bin.h"

#include <ostream>
#include <string>

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

/// What a run reads, beyond what the options say.
struct run_input {
    mounted_bin bin;  ///< of `-partition`
    std::string file; ///< of `-file`
};

/// The first mode whose condition holds. For a single file, its path is taken out of
/// `args` into `input`; no mode before it has looked there.
run_mode choose_run_mode(const run_options &options, arg_list &args, run_input &input);

/// Runs a mode and writes its results to `results`.
void execute_run_mode(run_mode mode, const run_input &input, const run_options &options,
                      std::ostream &results);

} // namespace hv

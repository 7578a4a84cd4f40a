#pragma once

#include "options/run_options.h"

#include <ostream>

/// The run modes that take their records from an `$MFT` or a volume. Each writes its
/// results to `results`.
namespace hv {

/// A copy of an `$MFT`.
void run_mft_file(const run_options &options, std::ostream &results);

/// All clusters of an image, whatever file system it has or had.
void run_raw_image(const run_options &options, std::ostream &results);

/// Where the options say that the volume is.
enum class volume_origin {
    partition, ///< at the root of `-partition`
    image,     ///< in `-image`, at `-offset`
};

/// A volume. One that doesn't validate ends the mode; only the log says why.
void run_volume(volume_origin origin, const run_options &options,
                std::ostream &results);

} // namespace hv

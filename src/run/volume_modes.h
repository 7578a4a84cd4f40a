#pragma once

#include "records/trash_options.h"

/// The run modes that take their records from an `$MFT` or a volume. Each writes its
/// results to the options' stream.
namespace hv {

/// A copy of an `$MFT`.
void run_mft_file(trash_options &options);

/// All clusters of an image, whatever file system it has or had.
void run_raw_image(trash_options &options);

/// The volume of a partition, or in an image at the `-offset`. A volume that doesn't
/// validate ends the mode without a word.
void run_volume(trash_options &options, bool is_image);

} // namespace hv

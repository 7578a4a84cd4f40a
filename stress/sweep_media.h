#pragma once

#include "stress/properties.h"

/// The media that a sweep damages.
namespace stress {

struct sweep_medium {
    std::string name;
    std::vector<u8> bytes;
    baseline before;
    u64 stored = 0; ///< bytes of its sectors that aren't zeros
    /// Each bit of its structures is turned once; only of one.
    bool takes_bits = false;
};

/// Those of `small_media`.
std::vector<sweep_medium> sample_media();

/// A medium from a file; of one that is too large for many runs, the first part. Throws
/// std::runtime_error if it can't be read.
sweep_medium medium_of_file(const std::string &path);

/// Runs over the undamaged medium, for all of `medium` but its name and bytes.
void learn(sweep_medium &medium);

} // namespace stress

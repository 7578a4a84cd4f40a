#pragma once

#include "ntfs/ntfs.h"

namespace hv {

class trash_options;

/// Looks up the bin of a volume by its path and walks its index, stale entries
/// included, so that the pass over the `$MFT` knows ahead what belongs to it. Only the
/// first of the two bins is walked, and its root isn't itself in
/// `known_bin_directories`. True, with `bins_known` set, if at least one directory is
/// known.
bool find_recycle_bins(trash_options &options, CNtfs &volume);

} // namespace hv

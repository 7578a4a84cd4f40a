#pragma once

#include "base/hv_log.h"
#include "ntfs/ntfs.h"
#include "records/trash_inodes.h"

namespace hv {

/// Looks up the bin of a volume by its path and walks its index, stale entries
/// included, so that the pass over the `$MFT` knows from the start what belongs to it.
/// Only the first of the two bins is walked, and its root isn't itself in
/// `known_bin_directories`. True, with `bins_known` set, if at least one directory is
/// known.
bool find_recycle_bins(_trash_inodes &collection, CNtfs &volume, log_handle log);

} // namespace hv

#pragma once

#include "records/trash_inodes.h"

namespace hv {

/// Adds every directory record under the bin to `bin_directories`. Returns how many
/// there are.
std::size_t mark_bin_dirs(_trash_inodes &collection);

/// Sorts each record into `metadata_index` or `m_r_indexes`, or into neither. Has to
/// run once only, after the last pass. Without a known bin, only names count, and the
/// data files stay unknown.
void classify_records(_trash_inodes &collection);

} // namespace hv

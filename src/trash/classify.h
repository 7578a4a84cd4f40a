#pragma once

#include "records/trash_inodes.h"

namespace hv {

/// Adds every directory record under the bin to `bin_directories`. Returns how many
/// there are.
std::size_t mark_bin_dirs(_trash_inodes &collection);

/// Sorts each record into `metadata_index` or `m_r_indexes`. Meant to run once, when
/// the collecting is over. Without a known bin, only names are looked at, and the data
/// files stay unknown.
void classify_records(_trash_inodes &collection);

/// Files one record. False if it is neither a metadata file nor a data item of the bin.
bool classify_record(_trash_inodes &collection, u64 index);

} // namespace hv

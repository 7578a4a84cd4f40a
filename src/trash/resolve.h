#pragma once

#include "base/hv_log.h"
#include "records/trash_inodes.h"

#include <string>
#include <string_view>

/// The way from metadata and data files to rows: each record of a metadata file is
/// paired with its data file, by the names of the two.
namespace hv {

/// What the resolution needs to know of the run.
struct resolve_request {
    log_handle log;
    u64 volume_offset = 0; ///< bytes from the start of the medium
    u32 cluster_size = 0;  ///< bytes; 0 where there are no clusters
    /// A metadata file whose record brought no content may be read by its path.
    bool read_file_content = false;
};

/// Makes all rows of the run: of metadata files, of carved `INFO2` data, and of data
/// files that no metadata is left for. They are added to `results`.
void resolve_records(_trash_inodes &collection, const resolve_request &request);

/// The names under which the data file of an entry may be filed.
struct data_file_keys {
    std::string key;
    std::string second_key; ///< without the extension; empty for a `$I` entry
};

/// The keys for an entry of the metadata file named `metadata_name`; an empty name
/// means a carved `INFO2`.
data_file_keys data_file_key(const trash_entry &entry, std::string_view metadata_name);

/// Parses one metadata record of the store and turns what it holds into rows. False if
/// there is nothing in it.
bool parse_metadata_record(_trash_inodes &collection, u64 index,
                           const resolve_request &request);

/// Pairs each entry of `parsed` with its data file and makes rows of it; a deleted
/// folder has one for each file in it. Empties `parsed`. False if no row was made.
bool resolve_entries(_trash_inodes &collection, u64 index);

/// The same for one entry of a carved `INFO2`, which has no path of its own. True if it
/// became a row without a data file.
bool resolve_carved_entry(_trash_inodes &collection, trash_entry entry);

} // namespace hv

#pragma once

#include "records/trash_options.h"

#include <string>
#include <string_view>

namespace hv {

/// The names under which the data file of an entry may be filed.
struct data_file_keys {
    std::string key;
    std::string second_key; ///< without the extension; empty for a `$I` entry
};
data_file_keys data_file_key(const trash_entry &entry, std::string_view metadata_name);

/// Parses one metadata record of the store and turns what it holds into rows. False if
/// there is nothing in it.
bool parse_metadata_record(trash_options &options, u64 index);

/// Pairs each entry of `parsed` with its data file and makes rows of it; a deleted
/// folder gives one for each file in it. Empties `parsed`. False if no row was made.
bool resolve_entries(trash_options &options, u64 index);

/// The same for one entry of a carved `INFO2`, which has no path of its own. True if it
/// became a row without a data file.
bool resolve_carved_entry(trash_options &options, trash_entry entry);

/// Makes all rows of the run: of metadata files, of carved `INFO2` data, and of data
/// files that no metadata is left for. `volume_offset` is in bytes.
void resolve_records(trash_options &options, u64 volume_offset);

} // namespace hv

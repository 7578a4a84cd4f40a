#pragma once

#include "records/inode_store.h"
#include "records/trash_entry.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// The collection of a run: the store, the indexes into it, and the rows made from it.
/// Indexes hold store indexes, never pointers.
class _trash_inodes : public _inode_collection {
public:
    /// Files a data item under its name: `$R...` or `D...`, in any case.
    void index_data_file(std::string_view name, u64 store_index);

    /// Metadata files: entry number (all ones for one known by its path) to store
    /// index.
    std::multimap<u64, u64> metadata_index;
    /// Directories at or below the bin: entry number to store index.
    std::map<u64, u64> bin_directories;
    /// Lower-case name of a data item to the store indexes of it and of all below it. A
    /// name is removed when it is paired; what is left at the end has no metadata.
    std::map<std::string, std::vector<u64>, std::less<>> m_r_indexes;
    u64 bin_root_index = no_index;

    std::vector<trash_entry> carved_entries; ///< carved `INFO2` data, not parsed yet
    std::vector<trash_entry> parsed;         ///< working list of the parsers
    result_list results;

    std::string scan_label; ///< where the records come from, for rows that say it
    /// What is being read: a file of a list, or a carved cluster. Kept for callers.
    std::string current_source;

    // What the index of the bin says, as found by its path before the pass over the
    // `$MFT`.
    bool bins_known = false;
    std::set<u64> known_bin_directories; ///< entry numbers
    std::set<u64> known_bin_files;       ///< entry numbers; kept for callers

    /// Where in a path the name of the registered bin ends.
    u32 bin_tail_position = 0;
};

} // namespace hv

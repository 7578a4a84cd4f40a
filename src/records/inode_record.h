#pragma once

#include "base/hv_text_arena.h"
#include "base/hv_types.h"
#include "ntfs/hv_data_run.h"

#include <string>
#include <vector>

namespace hv {

/// "No store index", and "no parent".
inline constexpr u64 no_index = ~u64{0};

/// One record of the store: an `$MFT` record as a scan keeps it, or a file that is
/// known only by its path. There is one for each file of a volume, so it is small and
/// of fixed size; its texts lie in the store's arena, and what few records have in
/// `record_extras`.
struct inode_record {
    u64 entry = 0;               ///< entry number; 0 for a record made from a path
    u64 first_parent = no_index; ///< entry number of the directory above
    u64 si_modified = 0;         ///< FILETIMEs from here on
    u64 si_accessed = 0;
    u64 si_mft_changed = 0;
    u64 si_created = 0;
    u64 real_size = 0;    ///< bytes of the file's data
    u64 position = 0;     ///< byte position of the record or of the carved cluster
    text_ref name{};      ///< "." for a directory registered by its path
    text_ref path{};      ///< what is known of it
    u32 extras = ~u32{0}; ///< place in the store's side table; all ones for none
    u16 sequence = 0;
    bool is_directory = false;
    bool in_use = false;
    bool path_resolved = false;
    bool path_complete = false;

    bool has_parents() const { return first_parent != no_index; }
};

/// What only some records have.
struct record_extras {
    std::vector<u8> data;      ///< content of a metadata file: what a parser can use
    std::vector<u8> zone_data; ///< content of the "zone.identifier" stream
    std::vector<flat_run> data_runs; ///< clusters of a metadata file
    std::string target_name;         ///< label that the scans copy into a record
};

} // namespace hv

#pragma once

#include "ntfs/hv_data_run.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace hv {

/// What the engine keeps of one $MFT entry for itself. The rest is kept for callers of
/// the library. Sizes are in bytes.
struct INODE_STATS {
    std::string owner;              ///< empty without an owner lookup
    std::string name;               ///< that of a named $FILE_NAME attribute, in UTF-8
    std::array<u8, 68> file_name{}; ///< the fixed part of the $FILE_NAME content
    u64 data_size = 0;              ///< bytes of the unnamed $DATA
    data_run_list bitmap_runs;
    data_run_list data_runs;
    std::vector<data_run_list> index_runs; ///< one list for each $INDEX_ALLOCATION
    std::map<u64, u64> run_map;            ///< start VCN to the index in `data_runs`
    u64 bitmap_size = 0;
    std::vector<std::string> index_names; ///< one for each of `index_runs`
};

} // namespace hv

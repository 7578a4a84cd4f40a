#pragma once

#include <string>

namespace hv {

/// The bin of a partition that the system has mounted.
struct mounted_bin {
    std::string recycle_dir; ///< its folder; empty if there is none
    bool xp_layout = false;  ///< it is of the "RECYCLER" form; kept for callers
};

/// Looks for the bin under the root of a partition, which ends with a backslash.
mounted_bin find_mounted_bin(const std::string &partition_root);

} // namespace hv

#pragma once

#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"

namespace hv {

/// Where the records of a scan are read from.
struct scan_source {
    const RAW_DISK_IO &disk;
    bool mapped = false;  ///< positions are inside the file whose runs are attached
    u64 total_size = 0;   ///< bytes to scan
    u64 base_offset = 0;  ///< added to each position
    u32 cluster_size = 0; ///< bytes; 0 if there are none
    u32 record_size = 0;  ///< bytes, if the first record doesn't say; 0 for 1024
};

} // namespace hv

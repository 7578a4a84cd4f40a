#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"

#include <functional>

namespace hv {

class CNtfs;
struct trash_options;

/// What a scan hands to its callback, the same for records and for clusters.
struct scan_item {
    const CNtfs *volume = nullptr; ///< null for a scan of a medium without a volume
    trash_options *context = nullptr;
    byte_view data;
    u64 offset = 0; ///< byte position of `data` in the scanned medium
    u64 number = 0; ///< number of the entry or of the cluster
    /// The scan itself comes to every record in `data`, so a carver need not.
    bool scans_records = false;
};
using scan_callback = std::function<void(const scan_item &item)>;

} // namespace hv

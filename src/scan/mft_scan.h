#pragma once

#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"
#include "scan/scan_item.h"

#include <string_view>

/// The passes over an `$MFT` that fill the collection with what belongs to a recycle
/// bin.
namespace hv {

class run_options;
class _trash_inodes;

/// The pass over a copy of an `$MFT`. False if it can't be scanned, or if no bin was
/// seen.
bool pull_mft_data(_trash_inodes &collection, std::string_view path,
                   const run_options &options);

/// The `$MFT` of a volume, for a pass over it.
struct mft_on_volume {
    const RAW_DISK_IO &disk; ///< has the runs of the `$MFT` attached
    u64 size = 0;            ///< bytes
    u32 record_size = 0;     ///< the volume's, for a first record that doesn't say
    u32 cluster_size = 0;    ///< bytes
};

/// The pass over the `$MFT` of a volume. False as above.
bool scan_mft_store(_trash_inodes &collection, const mft_on_volume &mft,
                    const run_options &options);

/// The pass that reads one entry after the other through the volume and hands each to
/// `callback`: `count` of them from `first_entry` on, or all that follow if `count` is
/// 0. False if the size of the `$MFT` isn't known. Kept for callers: on a volume the
/// run modes use the pass above, which reads the same records in larger pieces.
bool scan_mft_entries(const CNtfs &volume, const scan_callback &callback,
                      u64 first_entry, u64 count, trash_options &context);

} // namespace hv

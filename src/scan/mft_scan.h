#pragma once

#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"
#include "scan/mft_walk.h"
#include "scan/scan_item.h"

#include <string_view>

/// The pass over an `$MFT` that fills the collection with what belongs to a recycle
/// bin.
namespace hv {

class trash_options;

/// Decides what of a volume the program looks at: directories, what lies under a bin,
/// and files named `INFO2`, whose content it loads. Without a bin known ahead of the
/// pass, every record with a name is kept. `disk` may be null, then nothing is loaded;
/// `load_budget` is how many bytes may still be loaded, and shrinks.
filter_answer filter_record(trash_options &options, parsed_record &record,
                            u64 store_index, const RAW_DISK_IO *disk, u64 &load_budget);

/// The pass over a copy of an `$MFT`. False if it can't be scanned, or if no bin was
/// seen.
bool pull_mft_data(trash_options &options, std::string_view path);

/// The pass over the `$MFT` of a volume, through a disk that has its runs attached.
/// `mft_size` is in bytes; `record_size` is the volume's, for an `$MFT` whose first
/// record doesn't say. False as above.
bool scan_mft_store(trash_options &options, const RAW_DISK_IO &disk, u64 mft_size,
                    u32 record_size);

/// The pass that reads one entry after the other through the volume and hands each to
/// `callback`: `count` of them from `first_entry` on, all that follow with 0. False if
/// the size of the `$MFT` isn't known.
bool scan_mft_entries(const CNtfs &volume, const scan_callback &callback,
                      u64 first_entry, u64 count, trash_options &context);

/// Parses one record, of whatever origin, and adds it to the store if the filter keeps
/// it. Each entry and sequence number is stored once.
void process_mft_record(const scan_item &item);

} // namespace hv

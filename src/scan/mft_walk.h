#pragma once

#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"
#include "records/inode_store.h"
#include "scan/record_parse.h"

#include <functional>

/// The walk over all records of an `$MFT`, from a file or through a disk that has its
/// run list attached.
namespace hv {

/// What a filter says of a parsed record.
enum class filter_answer { keep, refuse };

/// Looks at a record ahead of its place in the store, and may load its content.
using record_filter =
    std::function<filter_answer(parsed_record &record, u64 store_index)>;

/// Where the records of a scan lie.
struct store_source {
    const RAW_DISK_IO &disk;
    bool mapped = false;  ///< positions are inside the file whose runs are attached
    u64 total_size = 0;   ///< bytes to scan
    u64 base_offset = 0;  ///< added to each position
    u32 cluster_size = 0; ///< bytes; 0 if there are none
    u32 record_size = 0;  ///< bytes, if the first record doesn't say; 0 for 1024
};

/// When a directory takes the place of another one of the same entry number.
enum class directory_claim {
    if_in_use,          ///< if it is in use itself: the walk over one source
    if_known_is_unused, ///< if the known one isn't, besides: a pass behind the first
};

/// Adds a parsed record to the store, and a directory to `directories`. `position` is
/// where the record stands.
void keep_record(_inode_collection &collection, const parsed_record &parsed,
                 u64 position, directory_claim claim);

/// Parses every record and adds those that the filter keeps to the store; then gives
/// each directory its path. `directories` is made anew. False if the source is too
/// short, if its first record fails the record test, or if no directory was found.
bool scan_records(_inode_collection &collection, const store_source &source,
                  const parse_options &options, const record_filter &filter,
                  bool show_progress);

/// Gives each directory of the store that has no path yet one: the names from the root
/// down, each with a "\" behind it. What hangs in the air begins with
/// "[unk_inode_0x...]". `max_text` bounds the bytes of all paths together.
void build_directory_paths(_inode_collection &collection, u64 max_text);

} // namespace hv

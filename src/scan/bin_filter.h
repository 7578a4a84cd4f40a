#pragma once

#include "disk/hv_raw_disk_io.h"
#include "records/trash_inodes.h"
#include "scan/record_parse.h"

/// What of a volume a run looks at: the folders, what is below a bin, and files named
/// `INFO2`.
namespace hv {

enum class filter_answer { keep, refuse };

/// What the filter says of a record. It only looks: `keep_record` carries it out.
struct filter_decision {
    filter_answer answer = filter_answer::refuse;
    bool is_bin_root = false; ///< a folder in the root that has a bin's name
    bool in_bin = false;      ///< a folder that is a bin or below one
};

/// Decides whether to keep a record. If the folders of the bin aren't known before the
/// pass, every record with a name is kept.
filter_decision filter_record(const _trash_inodes &collection,
                              const parsed_record &record);

/// Where the clusters of an `INFO2` are read from.
struct content_source {
    const RAW_DISK_IO *disk = nullptr; ///< null: no content is read
    u32 cluster_size = 0;              ///< bytes
};

/// Completes the decision for an `INFO2`: reads its content from the source into the
/// record, and keeps the record unless the source refuses to deliver. Other records and
/// other decisions stay as they are. `budget` is how many bytes may still be read, and
/// shrinks.
void load_info2(filter_decision &decision, parsed_record &record,
                const content_source &source, u64 &budget);

/// Whose claim counts if the store knows a directory of the same entry number, or a
/// root of the bin.
enum class directory_claim {
    of_first_pass, ///< the new one's, if it is in use
    of_later_pass, ///< the new one's only if the known one isn't in use either
};

/// Adds a kept record to the store, and a directory to the maps that the decision
/// names. `position` is the byte position of the record.
void keep_record(_trash_inodes &collection, const parsed_record &parsed, u64 position,
                 const filter_decision &decision, directory_claim claim);

} // namespace hv

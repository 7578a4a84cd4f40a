#pragma once

#include "base/hv_byte_view.h"
#include "ntfs/hv_data_run.h"
#include "ntfs/hv_file_record.h"
#include "records/inode_record.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

/// The parse of a "FILE" record as the scans need it: who it is, where it hangs, its
/// times, and the content of a metadata file.
namespace hv {

/// What a parse gathers.
struct parse_options {
    bool named_streams = false; ///< "zone.identifier" is kept
    bool runs = false;          ///< runs of a non-resident $DATA are decoded
    /// While the record's own name isn't known, runs are decoded only if this is empty.
    std::string target_name;
};

/// The fixed part of a parsed record.
struct record_facts {
    u64 entry = 0; ///< entry number from the record itself, 32 bits wide in fact
    u16 sequence = 0;
    u16 flags = 0;
    u64 base_reference = 0;
    u64 first_parent = no_index; ///< the least of the parents' entry numbers
    u64 si_modified = 0;         ///< FILETIMEs
    u64 si_accessed = 0;
    u64 si_mft_changed = 0;
    u64 si_created = 0;
    u64 real_size = 0; ///< the first that isn't zero, from $FILE_NAME or $DATA

    bool is_directory() const { return (flags & file_record::flag_directory) != 0; }
    bool in_use() const { return (flags & file_record::flag_in_use) != 0; }
    bool has_parents() const { return first_parent != no_index; }
};

/// One parsed record. It is used again for each record of a scan, so that its buffers
/// are made only once.
struct parsed_record : record_facts {
    std::string name; ///< the last one that isn't of the DOS namespace
    std::vector<flat_run> data_runs;
    std::vector<u8> data; ///< resident content, or what a filter loaded
    std::vector<u8> zone_data;
    bool has_related = false; ///< names a base record, or extensions were read into it

    void clear();
};

/// How a parse reaches other records and clusters, to follow an attribute list.
struct record_source {
    /// Reads the record of an entry number into `record`; false if it can't.
    std::function<bool(u64 entry, std::vector<u8> &record)> read_record;
    /// Reads the clusters of a non-resident list, up to a bound of its own.
    std::function<std::vector<u8>(const std::vector<flat_run> &runs)> read_clusters;
};

/// Parses one record in place: its sector tails are put back first. False if it fails
/// the record test, or belongs nowhere: no parent and no base record.
bool parse_record(parsed_record &result, std::span<u8> record,
                  const parse_options &options, const record_source &source);

} // namespace hv

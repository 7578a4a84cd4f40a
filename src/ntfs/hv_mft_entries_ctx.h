#pragma once

#include "base/hv_log.h"
#include "ntfs/hv_attrib_info.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_file_record.h"

#include <map>
#include <string_view>
#include <vector>

/// The analysis of a whole `$MFT` entry: every attribute, wherever an attribute list
/// has put it.
namespace hv {

class CNtfs;

/// One attribute of an entry. Its own name stands in `info.stream_name`.
struct attribute_view {
    attrib_info info;
    std::string_view label; ///< what reports call it; "unk" for an unknown type
    u64 first_vcn = 0;      ///< of a non-resident attribute, else 0
    data_run_list runs;     ///< the same extents as `info.cluster_runs`, in full form
};

/// Appends the runs of a further piece of an attribute. The sizes come from the piece
/// that begins the stream: the headers of the others don't hold them. Nothing happens
/// if either of the two is resident.
void merge_runs(attribute_view &into, attribute_view &&piece);

/// The result of the analysis of one entry.
struct mft_entry {
    u64 entry = 0;
    u16 sequence = 0;
    bool has_attribute_list = false;
    bool list_non_resident = false;
    bool has_base = false;  ///< this record is an extension of another one
    u64 base_reference = 0; ///< of that other one
    /// Times, names and the attribute list itself aren't kept here. Two attributes of
    /// one type and id: the first stays.
    std::map<attribute_key, attribute_view> attributes;
};

/// Reads and analyses the entries of one volume, which has to outlive it.
class mft_entries_ctx {
public:
    explicit mft_entries_ctx(const CNtfs &volume, log_handle log = {});

    /// False if the volume wasn't validated; nothing can be read then.
    bool is_open() const;

    /// Reads an entry and puts its sector tails back. `out_record` gets what was
    /// delivered, at most one record. "INDX" passes as "FILE" does. A "BAAD" record
    /// succeeds as it was read, with `out_bad` set. False for any other signature and
    /// for an entry that can't be read.
    bool read_entry(std::vector<u8> &out_record, bool &out_bad, u64 entry) const;

    /// Takes an entry apart and follows its attribute lists. A record that a list names
    /// and that can't be used is passed over. False if the entry itself can't be read
    /// or is bad.
    bool analyze_entry(mft_entry &out_result, u64 entry) const;

    /// Keeps only $INDEX_ROOT and $INDEX_ALLOCATION, and reads no record of a list for
    /// anything else.
    bool index_attributes_only = false;

private:
    const CNtfs &m_volume;
    log_handle m_log;
};

/// The attributes of an entry in the order of type and id. With `directory_mode` only
/// $INDEX_ROOT and $INDEX_ALLOCATION, of any name. False, with an empty list, if the
/// entry can't be analysed.
bool get_attribute_list(const CNtfs &volume, u64 entry,
                        std::vector<attrib_info> &out_list, bool directory_mode);

} // namespace hv

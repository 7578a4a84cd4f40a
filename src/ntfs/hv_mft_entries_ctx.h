#pragma once

#include "base/hv_log.h"
#include "ntfs/hv_attrib_info.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_file_record.h"

#include <map>
#include <string_view>
#include <vector>

/// The analysis of a whole $MFT entry: all attributes of its "FILE" record and of the
/// records that its attribute list names.
namespace hv {

class CNtfs;

/// One attribute of an entry. Its own name is `info.stream_name`.
struct attribute_view {
    attrib_info info;
    std::string_view label; ///< what reports call it; "unk" for an unknown type
    u64 first_vcn = 0;      ///< of a non-resident attribute, else 0
    data_run_list runs;     ///< the same extents as `info.cluster_runs`, in full form
};

/// Appends the runs of another piece of the same attribute. The sizes are taken from
/// the piece that begins the stream: the headers of the others don't hold them. Nothing
/// happens if either piece is resident.
void merge_runs(attribute_view &into, attribute_view &&piece);

/// The result of the analysis of one entry.
struct mft_entry {
    u64 entry = 0;
    u16 sequence = 0;
    bool has_attribute_list = false;
    bool list_non_resident = false;
    bool has_base = false;  ///< the record extends another one
    u64 base_reference = 0; ///< of that other one
    /// By type and id, without times, names and the attribute list. Of two with the
    /// same type and id, the first stays.
    std::map<attribute_key, attribute_view> attributes;
};

/// The attributes that an analysis keeps.
enum class attribute_scope {
    all,            ///< but for times, names and the attribute list
    directory_index ///< $INDEX_ROOT and $INDEX_ALLOCATION, of any name
};

/// Reads and analyses the entries of one volume, which has to outlive it.
class mft_entries_ctx {
public:
    explicit mft_entries_ctx(const CNtfs &volume, log_handle log = {});

    /// False if the volume wasn't validated; nothing can be read then.
    bool is_open() const;

    /// Reads an entry and applies its update sequence. `out_record` gets what was
    /// delivered, at most one record. An "INDX" block passes as well. A "BAAD" record
    /// is returned as it was read, with `out_bad` set. False for any other signature
    /// and for an entry that can't be read.
    bool read_entry(std::vector<u8> &out_record, bool &out_bad, u64 entry) const;

    /// Analyses an entry and follows its attribute lists. Records of a list that can't
    /// be used are skipped. False if the entry itself can't be read or is "BAAD".
    bool analyze_entry(mft_entry &out_result, u64 entry) const;

    /// Which attributes are kept. Records of a list are read only for these.
    attribute_scope scope = attribute_scope::all;

private:
    const CNtfs &m_volume;
    log_handle m_log;
};

/// The attributes of an entry, ordered by type and id. False, with an empty list, if
/// the entry can't be analysed.
bool get_attribute_list(const CNtfs &volume, u64 entry,
                        std::vector<attrib_info> &out_list, attribute_scope scope);

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_parse_rules.h"
#include "evidence/sighting.h"
#include "ntfs/hv_data_run.h"
#include "ntfs/hv_ntfs_layout.h"

#include <optional>
#include <string>
#include <vector>

/// What one FILE record says of its file, with the place of each fact in the record.
namespace hv {

/// The header of an $MFT record, and its bytes with the update sequence undone.
struct record_bytes {
    std::vector<u8> bytes;
    /// As far as the bytes are of one write; after it the update sequence doesn't
    /// match, or another record begins.
    std::size_t sound = 0;
    std::size_t used = 0; ///< as the header states, cut to the record

    byte_view view() const { return byte_view{bytes}; }
    bool is_torn() const { return sound < bytes.size(); }
};

/// Undoes the update sequence of a FILE record. Tails of sectors that don't have the
/// check value stay as they are; those of another record that begins within it get what
/// that one keeps for them. False, with `out` undefined, for anything else.
bool read_record(record_bytes &out, byte_view raw, const parse_rules &rules);

/// One $FILE_NAME.
struct file_name_fact {
    entry_id parent;
    std::u16string name;
    u8 name_space = 0;
    u64 place = 0;  ///< of the value, in the record
    u64 length = 0; ///< of the value
};

/// A stream, or one piece of it.
struct stream_fact {
    u32 type = 0;
    std::u16string name;
    bool is_resident = true;
    bool is_compressed = false;
    bool is_encrypted = false;
    u64 place = 0;  ///< of resident content, in the record
    u64 length = 0; ///< of resident content, or the stream's size
    u64 valid = 0;  ///< initialised bytes of a non-resident stream
    u64 first_vcn = 0;
    u32 unit_clusters = 0; ///< of a compressed stream
    std::vector<flat_run> runs;
    std::vector<u8> content; ///< resident
};

/// A record of a file or folder, or one that extends another.
struct file_facts {
    entry_id id; ///< the entry as the record states it, or as it was asked for
    bool knows_entry = false;
    bool in_use = false;
    bool is_directory = false;
    std::optional<entry_id> base; ///< of which it is an extension
    record_times times;
    u32 security_id = 0; ///< of its descriptor in $Secure; 0 for none
    std::vector<file_name_fact> names;
    std::vector<stream_fact> streams; ///< all attributes that hold or map bytes

    /// The name that users see: the first that isn't a short one; null if there is
    /// none.
    const file_name_fact *name() const;
    /// The first unnamed piece of a type; null if there is none.
    const stream_fact *stream(attribute_type type, std::u16string_view name = {}) const;
};

/// Reads a record. `entry` is the number it is known by, if its bytes don't state one.
file_facts read_facts(const record_bytes &record, std::optional<u64> entry);

/// The sequence number that the file of a record has: that of a freed record has been
/// counted up by one already.
inline u16 sequence_of_file(const file_facts &facts)
{
    return static_cast<u16>(facts.id.sequence - (facts.in_use ? 0 : 1));
}

/// UTF-16 as it is on disk; all units are kept.
std::u16string units_of(byte_view text);

} // namespace hv

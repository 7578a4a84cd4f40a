#pragma once

#include "base/hv_types.h"
#include "formats/deleted_file.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

/// What the sources report: each piece of evidence with the bytes that prove it.
namespace hv {

/// Bytes on the medium.
struct byte_range {
    u64 offset = 0;
    u64 length = 0;

    // The generated comparison reads as one with a null pointer to the lints.
    auto
    operator<=>(const byte_range &) const = default; // NOLINT(modernize-use-nullptr)
};

/// What was seen.
enum class sighting_kind {
    metadata,     ///< a `$I` file, or a record of a list (`INFO2`, `INFO`)
    data_item,    ///< the record of a `$R...` or `D...` file or folder
    index_name,   ///< a name of either in an index block or an index root
    journal_line, ///< a line of the change journal about either
    restored_item ///< the record of a data item that lives outside of the bin again
};

/// Where it was seen.
enum class evidence_source {
    live,         ///< reached through the volume's own $MFT, in use or freed
    snapshot,     ///< the same through the $MFT that a snapshot saw
    shadow_store, ///< in a store of shadow copies, by no snapshot's $MFT
    free_cluster,
    record_slack,
    index_slack,
    file_slack,
    journal,
    raw ///< outside of all volumes
};

/// Times of a record, FILETIMEs; 0 for none.
struct record_times {
    u64 created = 0;
    u64 modified = 0;
    u64 record_changed = 0;
    u64 accessed = 0;
};

/// How much of the data is left.
enum class data_state {
    none,   ///< there is no data item, or a folder
    whole,  ///< in use by the item, or free and by no sign written over
    partly, ///< some of its clusters are in use by others
    gone,   ///< all of them are
    unknown ///< what was read holds no content, or it couldn't be read
};

/// An MFT entry and its sequence number.
struct entry_id {
    u64 entry = 0;
    u16 sequence = 0;

    auto operator<=>(const entry_id &) const = default; // NOLINT(modernize-use-nullptr)
};

/// One piece of evidence.
struct sighting {
    sighting_kind kind = sighting_kind::metadata;
    u32 volume = 0; ///< number of the region, from 0; a gap between volumes is one too
    evidence_source source = evidence_source::live;
    /// The views through which it is reached: 0 is the volume now, 1 and up snapshots.
    /// Empty for what no view leads to.
    std::set<u32> views;
    std::vector<byte_range> ranges; ///< of the bytes that prove it, in their order
    std::string file;               ///< whose bytes these are; empty: the medium's
    std::optional<entry_id> entry;  ///< of the file or folder that it is about
    /// That record is in use; of a name in the index of its folder: the record can't be
    /// read.
    bool in_use = false;
    bool is_torn = false; ///< an update sequence doesn't match
    std::u16string name;  ///< "$IAB12CD.txt", "Dc1.txt", "INFO2"; may be empty
    std::optional<entry_id> parent; ///< of the folder that it is in
    std::u16string user;            ///< name of the user's folder; empty if not known
    bool is_in_bin = false;         ///< its folder, or the folder above it, is a bin

    std::optional<deleted_file> metadata;

    // Of data items
    bool is_directory = false;
    u64 data_size = 0;
    record_times times;
    std::vector<byte_range> data; ///< where the content is
    data_state content = data_state::none;
    std::vector<std::u16string> members; ///< of a folder: paths below it, with "\"
    std::u16string outside_path;         ///< of a restored item: where it is now
    std::string owner; ///< SID of whom it belongs to; empty if not known

    // Of journal lines
    u64 logged = 0; ///< FILETIME
    u32 reason = 0; ///< USN_REASON_ bits
};

} // namespace hv

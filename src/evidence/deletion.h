#pragma once

#include "evidence/sighting.h"
#include "evidence/source_bytes.h"

#include <map>
#include <string>
#include <vector>

/// What was deleted, each once, however often it was seen.
namespace hv {

/// What became of an item that was sent to the bin.
enum class deletion_state {
    in_bin,        ///< metadata and data item are in the bin
    emptied,       ///< purged from the bin
    restored,      ///< the same entry and sequence lives outside of the bin
    metadata_only, ///< in the bin, but its data item isn't
    data_only,     ///< in the bin, but its metadata isn't
    journal_only   ///< only the change journal remembers it
};

/// A name for a SID, and what states it: "\Windows\System32\config\SAM of the volume at
/// byte 0x100000". Both are empty if nothing does.
struct found_name {
    std::u16string name;
    std::string from;
};

/// One file or folder that was sent to the bin. Facts come from the sightings; what no
/// sighting states stays empty.
struct deletion {
    std::string id; ///< stable: follows from what identifies the deletion
    u32 volume = 0;
    std::u16string user; ///< name of the user's folder; empty if not known
    found_name user_name;
    std::u16string metadata_name;
    std::u16string data_name;
    std::optional<metadata_format> format;
    std::optional<u64> deleted; ///< FILETIME, as the metadata states it
    std::optional<std::u16string> path;
    bool path_is_whole = true;
    std::optional<u64> stated_size; ///< by the metadata
    std::optional<u64> found_size;  ///< of the data item
    std::optional<entry_id> metadata_entry;
    std::optional<entry_id> data_entry;
    /// Without metadata: when the record of the data item was last changed. A lead, not
    /// the time of the deletion.
    std::optional<u64> record_changed;
    std::optional<u64> logged; ///< when the journal saw it enter the bin
    bool is_directory = false;
    deletion_state state = deletion_state::in_bin;
    data_state content = data_state::none;
    record_times times; ///< of the data item
    std::vector<byte_range> data;
    std::vector<std::u16string> members;
    std::u16string outside_path;
    /// SID of whom the data belongs to by the volume's $Secure, "S-1-5-21-..."; empty
    /// if not known. A lead where it differs from the bin's user.
    std::string owner;
    found_name owner_name;
    std::vector<std::string> conflicts; ///< what sightings disagree about, in words
    std::vector<sighting> sightings;
};

/// A volume, or a stretch of the medium outside of all volumes. Where no medium was
/// examined: a folder, a file, or a copy of an $MFT.
struct examined_region {
    u64 offset = 0;
    u64 size = 0;
    bool is_volume = false; ///< true as well where no medium was examined
    /// Of a volume: 1 and up, in the order of their offsets on the medium, whether all
    /// are examined or one. 0 for a stretch outside of them.
    u32 number = 0;
    /// "MBR", "GPT", "copy of the GPT", "boot sector", ..., or "folder", "file", "copy
    /// of an $MFT"
    std::string found_by = {};
    std::string label = {}; ///< of a folder: its path
    u64 serial = 0;
    u32 cluster_size = 0;
    u32 record_size = 0;
    u32 sector_size = 0;
    bool boot_from_copy = false;
    bool mft_from_mirror = false;
    std::vector<u64> snapshots =
        {}; ///< FILETIMEs of creation; number n is element n - 1
    /// Names of users by the name of their folder in the bin, from the hives of all
    /// volumes of the medium.
    std::map<std::u16string, std::u16string> user_names = {};
    std::string trouble = {}; ///< why (part of) it can't be read; empty: nothing
    /// What has to be replaced on the medium to open the volume; see `patch_source`.
    std::vector<source_patch> patches = {};
};

/// What an examination found.
struct examination {
    std::vector<examined_region> regions;
    std::vector<deletion> deletions;
    /// The folder that was examined, or that holds the only file that was; the files
    /// of sightings are in it. Empty for a medium.
    std::string folder = {};
    std::map<std::string, found_name> users =
        {};                         ///< of those who are named here, by SID
    std::string names_trouble = {}; ///< why users may have no name; empty: nothing
    u64 unreadable_bytes = 0;
    bool is_cut_short = false; ///< it was asked to stop before it was through
};

} // namespace hv

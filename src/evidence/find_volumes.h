#pragma once

#include "evidence/mft_head.h"
#include "evidence/partition_slots.h"
#include "evidence/sighting.h"

#include <functional>

/// Finds the NTFS volumes of a medium, whatever is left of its tables.
namespace hv {

/// How a volume was found.
enum class found_by { mbr, gpt, gpt_copy, boot_sector, boot_sector_copy };
/// In words for a reader, such as "copy of the boot sector".
const char *found_by_text(found_by how);

/// An NTFS volume.
struct found_volume {
    u64 offset = 0; ///< bytes
    u64 size = 0;   ///< bytes that are on the medium, with the boot sector's copy
    ntfs_geometry geometry;
    found_by how = found_by::boot_sector;
    bool boot_from_copy = false;
    mft_state mft = mft_state::missing;
    /// With `mft_state::rebuilt`: how many records the stand-in for entry 0 leads to.
    u64 rebuilt_records = 0;
    /// What has to be replaced on the medium to open the volume; see `patch_source`.
    std::vector<source_patch> patches;
    /// In words: what of the volume is missing; empty for nothing.
    std::string trouble;
};

/// How much of a medium is read to find volumes.
enum class volume_search {
    usual_places, ///< tables, and where volumes usually begin or end
    lost_tables,  ///< every sector as well where no table says what is there
    every_sector  ///< every sector that isn't in a volume
};

/// What a medium is made of.
struct medium_layout {
    std::vector<partition_slot> slots; ///< what its tables say
    std::vector<found_volume> volumes; ///< by offset
    std::vector<byte_range> gaps;      ///< outside of all volumes, by offset
};

/// Gets bytes of a medium that are in no volume found so far, with their position.
/// False ends the search.
using bytes_between_volumes = std::function<bool(u64 position, byte_view bytes)>;

/// Finds the volumes of a medium. Boot sectors inside a volume are those of files and
/// make no volume. A volume whose boot sector is destroyed is found by the copy after
/// its last cluster, and opens with the patches. What tables state is only believed
/// where a boot sector or its copy agrees.
/// What a search of sectors reads is passed to `seen`, in order and without holes.
medium_layout find_volumes(const byte_source &medium, volume_search search,
                           const bytes_between_volumes &seen = {});

} // namespace hv

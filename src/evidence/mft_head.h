#pragma once

#include "evidence/ntfs_geometry.h"
#include "evidence/source_bytes.h"

namespace hv {

/// What is left of the first records of an $MFT, without which no volume can be opened.
enum class mft_state {
    whole,       ///< entry 0 is where the boot sector says
    from_mirror, ///< $MFTMirr has what is missing
    rebuilt,     ///< both are gone, but later records are there
    missing      ///< there is no record
};

struct mft_head {
    mft_state state = mft_state::missing;
    std::vector<source_patch> patches; ///< on the medium
    /// With `rebuilt`: how many records lie in one stretch from the first cluster of
    /// the $MFT on, with those that are gone.
    u64 records = 0;
};

/// How many records are looked at where entry 0 and its copy are gone.
enum class record_search : u64 {
    none = 0,
    glance = 512, ///< enough to see that it is an $MFT
    all = ~u64{0}
};

/// Looks for the first records of the $MFT of the volume at `volume_offset`. Entry 0
/// counts only if it says itself that the $MFT begins there.
mft_head find_mft_head(const byte_source &medium, u64 volume_offset,
                       const ntfs_geometry &geometry, record_search search);

} // namespace hv

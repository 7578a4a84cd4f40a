#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_checked_math.h"

namespace hv {

/// What the boot sector of an NTFS volume states. Sizes are bytes.
struct ntfs_geometry {
    u32 sector_size = 0;
    u32 cluster_size = 0;
    u32 record_size = 0;
    u64 sectors = 0; ///< of the volume, without the one after them that holds a copy
    u64 hidden_sectors = 0; ///< before the volume on its disk
    u64 mft_lcn = 0;
    u64 mirror_lcn = 0; ///< of $MFTMirr
    u64 serial = 0;

    /// The bytes from the start of the volume to the end of the boot sector's copy.
    u64 volume_size() const
    {
        return saturating_product(saturating_sum(sectors, 1), sector_size);
    }
    /// Whether the volume lies where its boot sector says it does. In a file that holds
    /// a virtual disk, no boot sector is at its stated place.
    bool states_place(u64 offset) const
    {
        return hidden_sectors != 0 && hidden_sectors * sector_size == offset;
    }
    bool operator==(const ntfs_geometry &) const = default;
};

/// Reads the first 512 bytes of a volume. False for what isn't a boot sector of NTFS,
/// or states sizes that no volume can have.
bool read_geometry(ntfs_geometry &out, byte_view boot);

} // namespace hv

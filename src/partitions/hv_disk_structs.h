#pragma once

#include "base/hv_checked_math.h"
#include "base/hv_types.h"

#include <array>
#include <deque>
#include <string>
#include <vector>

namespace hv {

/// One partition, or a reserved area of a disk.
struct partition_entry {
    partition_entry() = default;
    partition_entry(u64 start, u64 count, u16 code, u32 sector_size)
        : start_sector(start),
          sectors(count),
          type(code),
          m_sector_size(sector_size)
    {
    }

    u64 start_sector = 0;
    u64 sectors = 0; ///< 0 if unknown
    u16 type = 0;    ///< of the MBR record, 238 for GPT, or by the file system
    u32 sectors_per_cluster = 0;
    u32 m_sector_size = 512; ///< bytes; the unit of `start_sector` and `sectors`
    std::vector<std::string> mount_points; ///< for the caller's own use
    u32 volume_serial = 0;
    bool is_volume = false; ///< a file system was recognised here
    bool is_gpt = false;
    std::array<u8, 16> type_guid{};      ///< GPT, as on the disk
    std::array<u8, 16> partition_guid{}; ///< GPT, as on the disk
    std::string name;                    ///< of a GPT partition or of a reserved area
    std::string file_system;  ///< for example "ntfs"; empty if none was recognised
    std::string volume_label; ///< ext only
    std::string last_mount;   ///< ext only
    u32 gpt_attributes = 0;   ///< low half of the GPT attributes, or the FAT32 flags

    /// This bit of `type` marks a volume that no table lists; the other bits are a
    /// guess.
    static constexpr u16 guessed_type = 0x8000;

    /// Its start and end on the disk in bytes; all bits set if that doesn't fit 64
    /// bits.
    u64 byte_offset() const { return saturating_product(start_sector, m_sector_size); }
    u64 byte_end() const
    {
        return saturating_product(saturating_sum(start_sector, sectors), m_sector_size);
    }
};

/// Partitions in the order of the walk that found them; a guess comes first.
using partition_list = std::deque<partition_entry>;

} // namespace hv

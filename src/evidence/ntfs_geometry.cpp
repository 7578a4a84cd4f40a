#include "evidence/ntfs_geometry.h"

#include "ntfs/hv_ntfs_layout.h"
#include "partitions/hv_partition_buffer.h"

#include <algorithm>
#include <bit>

namespace hv {

namespace {

constexpr u32 min_sector = 512;
constexpr u32 max_sector = 4096;
constexpr u64 max_cluster = u64{2} << 20;
constexpr u64 min_record = 512;
constexpr u64 max_record = 65536;
constexpr std::size_t hidden_sectors_offset = 28;

// Counts above 128 are exponents, as a negative byte.
u64 count_or_power(u8 stored, u64 unit)
{
    if (stored <= 128) return stored * unit;
    const u32 exponent = 256u - stored;
    return exponent < 32 ? u64{1} << exponent : 0;
}

bool is_power(u64 value, u64 min, u64 max)
{
    return value >= min && value <= max && std::has_single_bit(value);
}

} // namespace

bool read_geometry(ntfs_geometry &out, byte_view boot)
{
    fixed_view<ntfs_boot::size> fields;
    if (!begins_with_ntfs(boot) || !boot.fixed(0, fields)) return false;
    const u64 sector = fields.get<ntfs_boot::bytes_per_sector>();
    if (!is_power(sector, min_sector, max_sector)) return false;
    const u8 per_cluster = fields.get<ntfs_boot::sectors_per_cluster>();
    const u64 cluster_sectors = count_or_power(per_cluster, 1);
    if (!is_power(cluster_sectors, 1, max_cluster / sector)) return false;
    const u64 cluster = cluster_sectors * sector;
    const u8 per_record = fields.get<ntfs_boot::clusters_per_record>();
    const u64 record =
        per_record < 128 ? per_record * cluster : count_or_power(per_record, cluster);
    if (!is_power(record, min_record, max_record)) return false;

    ntfs_geometry found;
    found.sector_size = static_cast<u32>(sector);
    found.cluster_size = static_cast<u32>(cluster);
    found.record_size = static_cast<u32>(record);
    found.sectors = fields.get<ntfs_boot::total_sectors>();
    found.hidden_sectors = boot.read_padded<u32>(hidden_sectors_offset);
    found.mft_lcn = fields.get<ntfs_boot::mft_start_lcn>();
    found.mirror_lcn = fields.get<ntfs_boot::mftmirr_start_lcn>();
    found.serial = fields.get<ntfs_boot::serial_number>();
    // Entry 0 of the $MFT has to be in the volume, whose first cluster it can't be.
    const u64 clusters = found.sectors / cluster_sectors;
    if (found.mft_lcn == 0 || found.mft_lcn >= clusters) return false;
    out = found;
    return true;
}

} // namespace hv

#include "evidence/boot_candidates.h"

#include "ntfs/hv_ntfs_layout.h"

namespace hv {

namespace {

bool read_geometry_at(ntfs_geometry &out, const byte_source &medium, u64 position)
{
    return read_geometry(out, byte_view{read_bytes(medium, position, ntfs_boot::size)});
}

found_volume make_volume(u64 offset, const ntfs_geometry &geometry, mft_head head)
{
    found_volume volume;
    volume.offset = offset;
    volume.geometry = geometry;
    volume.mft = head.state;
    volume.patches = std::move(head.patches);
    return volume;
}

// The volume that begins at `offset`, if its $MFT is there.
std::optional<found_volume> proved_volume(const byte_source &medium, u64 offset,
                                          const ntfs_geometry &geometry, u64 expected)
{
    const bool is_believed = offset == expected || geometry.states_place(offset);
    mft_head head =
        find_mft_head(medium, offset, geometry,
                      is_believed ? record_search::glance : record_search::none);
    if (head.state == mft_state::missing) return std::nullopt;
    return make_volume(offset, geometry, std::move(head));
}

// The volume that has a copy of its boot sector at `position`: after its last sector
// or, as old systems wrote it, in the middle.
std::optional<found_volume> volume_of_copy(const byte_source &medium, u64 position,
                                           const ntfs_geometry &geometry, u64 expected)
{
    for (const u64 sectors : {geometry.sectors, geometry.sectors / 2}) {
        const u64 before = saturating_product(sectors, geometry.sector_size);
        if (before == 0 || before > position) continue;
        const u64 offset = position - before;
        std::optional<found_volume> volume =
            proved_volume(medium, offset, geometry, expected);
        if (!volume) continue;
        ntfs_geometry own;
        if (read_geometry_at(own, medium, offset) && own == geometry) return volume;
        volume->boot_from_copy = true;
        volume->how = found_by::boot_sector_copy;
        volume->patches.push_back({offset, {}, position, ntfs_boot::size});
        return volume;
    }
    return std::nullopt;
}

} // namespace

std::optional<found_volume> volume_of_boot_sector(const byte_source &medium,
                                                  u64 position, u64 expected)
{
    ntfs_geometry geometry;
    if (!read_geometry_at(geometry, medium, position)) return std::nullopt;
    std::optional<found_volume> volume =
        proved_volume(medium, position, geometry, expected);
    return volume ? volume : volume_of_copy(medium, position, geometry, expected);
}

std::optional<found_volume> volume_of_slot(const byte_source &medium, u64 offset,
                                           u64 size)
{
    std::optional<found_volume> volume = volume_of_boot_sector(medium, offset, offset);
    if (volume && volume->offset == offset) return volume;
    const u64 end = saturating_sum(offset, size);
    constexpr u64 sector = 512;
    constexpr u64 large_sector = 4096;
    const u64 middle = offset + size / sector / 2 * sector;
    for (const u64 copy : {end - sector, end - large_sector, middle, middle - sector}) {
        if (copy <= offset || copy >= end) continue;
        volume = volume_of_boot_sector(medium, copy, offset);
        if (volume && volume->offset == offset) return volume;
    }
    ntfs_geometry geometry;
    if (!read_geometry_at(geometry, medium, offset)) return std::nullopt;
    return make_volume(offset, geometry, {});
}

} // namespace hv

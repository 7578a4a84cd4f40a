#include "vss/hv_snapshot_source.h"

#include "base/hv_checked_math.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace hv {

namespace {

constexpr u32 block_size = vss_block::block_size;
constexpr u32 sector_size = 512;

// How many sectors of a piece follow each other from one on; 0 if that isn't in it.
u32 sectors_from(const vss_piece &piece, u32 sector)
{
    return static_cast<u32>(std::countr_one(piece.sectors >> sector));
}

} // namespace

snapshot_source::snapshot_source(std::shared_ptr<vss_container> container, u64 snapshot)
    : m_container(std::move(container)),
      m_snapshot(snapshot)
{
    const vss_store *const store =
        m_container->volume() == nullptr ? nullptr : m_container->store(snapshot);
    if (store != nullptr) m_size = store->volume_size;
}

u64 snapshot_source::stored_size() const
{
    if (m_size == 0) return 0;
    return std::min(m_size, m_container->volume()->get_disk()->get_stored_size());
}

known_snapshot_block &snapshot_source::find_block(u64 offset) const
{
    const u64 number = offset / block_size;
    std::optional<known_snapshot_block> &known = m_known[number % max_known];
    if (known && known->number == number) return *known;
    known.emplace();
    known->number = number;
    const u64 start = number * block_size;
    m_container->pull_descriptors_at_vol_offset(m_candidates, start, m_snapshot,
                                                vss_search::later_stores_too);
    m_container->plan_block(known->pieces, {.store_number = m_snapshot,
                                            .volume_offset = start,
                                            .candidates = &m_candidates,
                                            .overlays = vss_overlays::own_store,
                                            .bitmap_store = m_snapshot});
    return *known;
}

// Where the bytes of a piece are in the image. None if they are on no medium.
std::optional<u64> snapshot_source::on_disk(const vss_piece &piece, u64 in_block) const
{
    const CNtfs &volume = *m_container->volume();
    const u64 position = saturating_sum(saturating_sum(piece.offset, in_block),
                                        volume.get_volume_offset());
    if (piece.origin == vss_origin::free || position >= volume.get_disk()->get_size())
        return std::nullopt;
    return position;
}

void snapshot_source::read_piece(std::vector<u8> &block, const vss_piece &piece) const
{
    for (u32 sector = 0; sector < block_size / sector_size;) {
        const u32 count = sectors_from(piece, sector);
        const u64 in_block = u64{sector} * sector_size;
        if (const auto position = on_disk(piece, in_block); count != 0 && position) {
            u32 length = count * sector_size;
            m_container->volume()->get_disk()->read_checked(block.data() + in_block,
                                                            length, *position);
        }
        sector += std::max(count, 1u);
    }
}

std::size_t snapshot_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= m_size) return 0;
    out = out.first(std::min<u64>(out.size(), m_size - offset));
    for (std::size_t done = 0; done < out.size();) {
        known_snapshot_block &block = find_block(offset + done);
        if (block.bytes.empty()) {
            block.bytes.resize(block_size);
            for (const vss_piece &piece : block.pieces) read_piece(block.bytes, piece);
        }
        const u64 in_block = (offset + done) % block_size;
        const std::size_t count =
            std::min<u64>(out.size() - done, block_size - in_block);
        std::copy_n(block.bytes.begin() + static_cast<std::ptrdiff_t>(in_block), count,
                    out.begin() + static_cast<std::ptrdiff_t>(done));
        done += count;
    }
    return out.size();
}

byte_source::place snapshot_source::locate(u64 offset) const
{
    const u64 in_block = offset % block_size;
    const u32 sector = static_cast<u32>(in_block / sector_size);
    for (const vss_piece &piece : find_block(offset).pieces) {
        const u32 count = sectors_from(piece, sector);
        if (count == 0) continue;
        const u64 length = std::min(u64{count} * sector_size - in_block % sector_size,
                                    m_size - offset);
        const auto position = on_disk(piece, in_block);
        if (!position) return {.position = 0, .length = length, .is_stored = false};
        place found = m_container->volume()->get_disk()->locate(*position);
        found.length = std::min(found.length, length);
        return found;
    }
    return {.position = 0, .length = 1, .is_stored = false};
}

std::vector<byte_source::unread_part> snapshot_source::unreadable_in(u64 offset,
                                                                     u64 length) const
{
    std::vector<unread_part> parts;
    if (offset >= m_size) return parts;
    const RAW_DISK_IO &disk = *m_container->volume()->get_disk();
    for (const u64 end = offset + std::min(length, m_size - offset); offset < end;) {
        const u64 in_block = offset % block_size;
        const u32 sector = static_cast<u32>(in_block / sector_size);
        u64 count = 1;
        for (const vss_piece &piece : find_block(offset).pieces) {
            const u32 sectors = sectors_from(piece, sector);
            if (sectors == 0) continue;
            count = u64{sectors} * sector_size - in_block % sector_size;
            if (const auto position = on_disk(piece, in_block))
                for (const unread_part &bad :
                     disk.unreadable_in(*position, std::min(count, end - offset)))
                    parts.push_back({offset + (bad.offset - *position), bad.length});
            break;
        }
        offset += count;
    }
    return parts;
}

} // namespace hv

#include "disk/hv_cluster_delivery.h"

#include "base/hv_byte_view.h"

#include <algorithm>

namespace hv {

cluster_delivery::cluster_delivery(const RAW_DISK_IO &disk, u64 volume_offset,
                                   const cluster_plan &plan, std::span<u8> out,
                                   unreadable_cluster policy)
    : m_disk(disk),
      m_volume_offset(volume_offset),
      m_plan(plan),
      m_out(out),
      m_policy(policy)
{
}

bool cluster_delivery::deliver()
{
    for (const disk_piece &piece : m_plan.pieces) {
        if (left() == 0) break;
        if (piece.is_sparse) {
            fill_with_zeros(piece.clusters);
            m_filled_sparse = true;
        } else if (!deliver_piece(piece)) {
            return false;
        }
    }
    return true;
}

// The part of the next clusters that belongs in the buffer.
cluster_plan::share cluster_delivery::next_share(u64 clusters) const
{
    cluster_plan::share share = m_plan.share_of(m_cluster, clusters);
    share.bytes = std::min(share.bytes, left());
    return share;
}

void cluster_delivery::fill_with_zeros(u64 clusters)
{
    const u64 bytes = next_share(clusters).bytes;
    std::ranges::fill(m_out.subspan(m_copied, bytes), u8{0});
    m_copied += bytes;
    m_cluster += clusters;
}

bool cluster_delivery::deliver_piece(const disk_piece &piece)
{
    const clusters_present present = clusters_on_medium(
        piece, m_plan.cluster_size, m_volume_offset, m_disk.get_size());
    u64 i = deliver_stretch(piece, present.whole) ? present.whole : 0;
    for (; i < present.begun && left() != 0; ++i)
        if (!deliver_cluster(piece, i)) return false;
    if (i == piece.clusters || left() == 0) return true;
    if (m_policy == unreadable_cluster::ends_the_delivery) return false;
    fill_with_zeros(piece.clusters - i);
    return true;
}

// Reads the first clusters of a piece in one request: all of them, or none.
bool cluster_delivery::deliver_stretch(const disk_piece &piece, u64 clusters)
{
    u64 position = 0;
    if (clusters == 0 ||
        !cluster_position(piece, 0, m_plan.cluster_size, m_volume_offset, position))
        return false;
    const cluster_plan::share share = next_share(clusters);
    if (!m_disk.read_exact(m_out.data() + m_copied, share.bytes,
                           position + share.begin))
        return false;
    const u64 last_read = (share.begin + share.bytes - 1) / m_plan.cluster_size;
    m_last_position = position + last_read * m_plan.cluster_size;
    m_copied += share.bytes;
    m_cluster += clusters;
    return true;
}

bool cluster_delivery::deliver_cluster(const disk_piece &piece, u64 index)
{
    u64 position = 0;
    if (!cluster_position(piece, index, m_plan.cluster_size, m_volume_offset, position))
        return false;
    return m_policy == unreadable_cluster::ends_the_delivery
               ? deliver_readable_part(position)
               : deliver_through_scratch(position);
}

bool cluster_delivery::deliver_readable_part(u64 position)
{
    const cluster_plan::share share = next_share(1);
    u32 length = static_cast<u32>(share.bytes);
    if (!m_disk.read_checked(m_out.data() + m_copied, length, position + share.begin))
        return false;
    m_copied += length;
    ++m_cluster;
    return length == share.bytes;
}

// A cluster is read whole, also where only a part of it is wanted: one bad sector makes
// all of it unreadable.
bool cluster_delivery::deliver_through_scratch(u64 position)
{
    // No read delivers more than the medium has, whatever the cluster size claims.
    m_scratch.resize(std::min<u64>(m_plan.cluster_size, m_disk.get_size()));
    u32 length = 0;
    if (read_into_scratch(position, length)) {
        if (length == 0) return false;
        m_last_position = position;
    } else if (m_last_position != m_scratch_position &&
               !read_into_scratch(m_last_position, length)) {
        std::ranges::fill(m_scratch, u8{0});
        m_scratch_position = m_last_position;
    }
    const cluster_plan::share share = next_share(1);
    const byte_view bytes = byte_view{m_scratch}.clip(share.begin, share.bytes);
    fill_with_zeros(1);
    std::ranges::copy(bytes.bytes(), m_out.subspan(m_copied - share.bytes).begin());
    return true;
}

// Fills the scratch buffer from a cluster of the disk, with zeros after the medium's
// end. If the read fails, the buffer stays as it was.
bool cluster_delivery::read_into_scratch(u64 position, u32 &length)
{
    length = static_cast<u32>(m_scratch.size());
    if (!m_disk.read_checked(m_scratch.data(), length, position)) return false;
    std::ranges::fill(std::span(m_scratch).subspan(length), u8{0});
    m_scratch_position = position;
    return true;
}

} // namespace hv

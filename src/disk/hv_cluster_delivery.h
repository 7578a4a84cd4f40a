#pragma once

#include "disk/hv_raw_disk_io.h"
#include "disk/hv_run_index.h"

#include <span>
#include <vector>

namespace hv {

/// What a delivery does at a cluster that the disk can't read.
enum class unreadable_cluster {
    ends_the_delivery,      ///< also at one that the end of the medium cuts short
    repeats_the_one_before, ///< zeros if it is the first
};

/// Copies the clusters of a plan from the disk into a buffer. Neighbouring clusters are
/// read in one request. What isn't on the medium is zeros, unless it ends the delivery.
class cluster_delivery {
public:
    /// The volume begins at byte `volume_offset` of the disk. All arguments have to
    /// outlive the object.
    cluster_delivery(const RAW_DISK_IO &disk, u64 volume_offset,
                     const cluster_plan &plan, std::span<u8> out,
                     unreadable_cluster policy);

    /// Delivers until the plan or the buffer ends. False if the delivery ended earlier:
    /// by the policy, or for a read that succeeds without a byte. May throw
    /// `std::bad_alloc`.
    bool deliver();
    /// Bytes delivered so far, from the start of the buffer.
    u32 copied() const { return static_cast<u32>(m_copied); }
    /// A sparse cluster was filled with zeros.
    bool filled_sparse() const { return m_filled_sparse; }

private:
    u64 left() const { return m_out.size() - m_copied; }
    cluster_plan::share next_share(u64 clusters) const;
    void fill_with_zeros(u64 clusters);
    bool deliver_piece(const disk_piece &piece);
    bool deliver_stretch(const disk_piece &piece, u64 clusters);
    bool deliver_cluster(const disk_piece &piece, u64 index);
    bool deliver_readable_part(u64 position);
    bool deliver_through_scratch(u64 position);
    bool read_into_scratch(u64 position, u32 &length);

    const RAW_DISK_IO &m_disk;
    u64 m_volume_offset;
    const cluster_plan &m_plan;
    std::span<u8> m_out;
    unreadable_cluster m_policy;
    u64 m_copied = 0;
    u64 m_cluster = 0; ///< clusters of the plan that are done
    bool m_filled_sparse = false;

    static constexpr u64 nowhere = ~u64{0};
    u64 m_last_position = nowhere; ///< of the last cluster read, on the disk
    std::vector<u8> m_scratch;
    u64 m_scratch_position = nowhere; ///< of the cluster in the scratch buffer
};

} // namespace hv

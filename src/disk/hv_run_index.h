#pragma once

#include "base/hv_types.h"

#include <vector>

/// Run lists prepared for lookups, and what a byte range of a file needs of its runs.
namespace hv {

/// One extent of a file on a volume.
struct disk_run {
    u64 lcn = 0;            ///< first cluster on the volume; 0 if sparse
    u64 vcn = 0;            ///< first cluster in the file
    bool is_sparse = false; ///< no place on the disk, reads as zeros
    u32 clusters = 0;
};

/// Bits of the status of a mapped read.
struct mapped_status {
    static constexpr u64 leave_out_sparse = 1; ///< in: sparse clusters are skipped
    static constexpr u64 filled_sparse = 2;    ///< out: some were filled with zeros
    static constexpr u64 was_read = 8;         ///< out: always
    /// Out: the low 16 bits of the first cluster's number are 0.
    static constexpr u64 starts_at_unit = 16;
    /// Out: and the range is 16 clusters long.
    static constexpr u64 whole_unit = 32;
};

/// Clusters that follow each other in a file and, unless sparse, also on the volume.
struct disk_piece {
    u64 lcn = 0; ///< first cluster on the volume; all ones if 64 bits can't hold it
    u64 vcn = 0; ///< first cluster in the file
    u64 clusters = 0;
    bool is_sparse = false;
};

/// A run list in which each cluster of the file is found by binary search. Lists may be
/// unordered or overlap: of the runs that hold a cluster, the first in the list counts.
/// Neighbouring runs become one piece. Preparing n runs takes n log n steps, or n if
/// they ascend.
class run_index {
public:
    run_index() = default;
    /// Implicit, so that a plain list can be passed as an index.
    run_index(const std::vector<disk_run> &runs);

    /// True if the list had elements, even if none has a cluster.
    bool has_runs() const { return m_has_runs; }
    /// The pieces, ascending and without overlaps.
    const std::vector<disk_piece> &pieces() const { return m_pieces; }
    /// The index of the piece that holds a cluster; the number of pieces if none does.
    std::size_t find(u64 vcn) const;
    /// The index of the first piece that ends after cluster `vcn`; the number of pieces
    /// if there is none.
    std::size_t find_from(u64 vcn) const;

private:
    void append(const disk_run &run, u64 vcn, u64 end);
    void resolve_overlaps(const std::vector<disk_run> &runs);

    std::vector<disk_piece> m_pieces;
    bool m_has_runs = false;
};

/// The clusters that a byte range of a file touches, up to the first that no run holds.
/// They are counted from 0 in the order in which they are read.
struct cluster_plan {
    std::vector<disk_piece> pieces; ///< cut to the range
    u32 cluster_size = 0;           ///< bytes
    u64 clusters = 0;               ///< in all pieces
    u64 head = 0;                   ///< bytes of the first cluster before the range
    u64 tail = 0;   ///< bytes of the last cluster that belong to the range; 0 for all
    u64 status = 0; ///< `mapped_status`, but for `filled_sparse`

    /// The bytes of some clusters in a row that belong to the range.
    struct share {
        u64 begin = 0; ///< from the start of the first cluster
        u64 bytes = 0;
    };
    /// The share of `count` clusters from number `first` of the plan on.
    share share_of(u64 first, u64 count) const;
};

/// Plans a read of `length` bytes at `offset` of the file. The plan of a range that
/// ends on a cluster boundary includes the next cluster: there may be room for it after
/// sparse ones are left out. A range that passes 64 bits has no clusters. May throw
/// `std::bad_alloc`.
cluster_plan plan_range(const run_index &runs, u32 cluster_size, u64 offset, u32 length,
                        bool leave_out_sparse);

/// How many of a piece's clusters are on a medium, counted from its first one.
struct clusters_present {
    u64 whole = 0; ///< with all their bytes
    u64 begun = 0; ///< with at least one byte
};
/// The clusters of a piece that a medium of `medium_size` bytes holds, if the volume
/// begins at byte `volume_offset`. None of a sparse piece.
clusters_present clusters_on_medium(const disk_piece &piece, u32 cluster_size,
                                    u64 volume_offset, u64 medium_size);
/// The byte position on the medium of cluster `index` of a piece, if the volume begins
/// at byte `volume_offset`. False if 64 bits can't hold it.
bool cluster_position(const disk_piece &piece, u64 index, u32 cluster_size,
                      u64 volume_offset, u64 &position);

} // namespace hv

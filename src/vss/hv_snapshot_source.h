#pragma once

#include "disk/hv_byte_source.h"
#include "vss/hv_vss_reader.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace hv {

/// A block of a snapshot that was read or located before.
struct known_snapshot_block {
    u64 number = 0;
    std::vector<vss_piece> pieces;
    std::vector<u8> bytes; ///< empty until they are read
};

/// A volume as one of its snapshots saw it, so that whatever reads volumes reads
/// snapshots as well: `CNtfs` over it, with the offset 0, has that snapshot's records,
/// folders and streams. Overlays of later stores are left out.
class snapshot_source : public byte_source {
public:
    /// `container` has the blocks loaded, and its volume outlives this object. It may
    /// be shared by the sources of all its snapshots, which are numbered from 1.
    /// Without such a snapshot the size is 0.
    snapshot_source(std::shared_ptr<vss_container> container, u64 snapshot);

    /// Of the volume then, as the catalog states it, whatever the medium has.
    u64 size() const override { return m_size; }
    /// What the whole medium stores: that bounds what can be different in a snapshot.
    u64 stored_size() const override;
    /// What is on no medium reads as zeros: see `locate`. What the medium can't read is
    /// zeros, too; only the medium counts it. Where the block list of a store is lost
    /// (see `vss_container::is_complete`), the bytes are later ones.
    std::size_t read(u64 offset, std::span<u8> out) const override;
    /// The place of a sector in a store or, if no store has kept it, where it is on the
    /// volume now. It is on no medium if it was free for the whole life of the
    /// snapshot, or if its place is after the end of the medium.
    place locate(u64 offset) const override;
    /// What the medium couldn't read of them.
    std::vector<unread_part> unreadable_in(u64 offset, u64 length) const override;

private:
    known_snapshot_block &find_block(u64 offset) const;
    void read_piece(std::vector<u8> &block, const vss_piece &piece) const;
    std::optional<u64> on_disk(const vss_piece &piece, u64 in_block) const;

    std::shared_ptr<vss_container> m_container;
    u64 m_snapshot;
    u64 m_size = 0;

    // Reads go through the $MFT in order, with a look at other blocks now and then:
    // each block has a place here by its number, where it stays until another one needs
    // it.
    static constexpr std::size_t max_known = 64;
    mutable std::array<std::optional<known_snapshot_block>, max_known> m_known;
    mutable vss_descriptor_set m_candidates;
};

} // namespace hv

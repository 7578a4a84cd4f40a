#pragma once

#include "vss/hv_vss_block_index.h"
#include "vss/hv_vss_store_blocks.h"

#include <ostream>
#include <span>
#include <string_view>
#include <vector>

/// Puts the blocks of a volume together as its snapshots saw them.
namespace hv {

class CNtfs;

/// Which stores are searched for descriptors.
enum class vss_search { one_store, later_stores_too };
/// Whether the destinations of forwarders are searched as well.
enum class vss_forwarders { listed, followed };
/// Whether descriptors whose flags are exactly 8 are read. What the flag means is
/// unknown.
enum class vss_flag_8 { left_out, included };

/// Whose overlays are read. An overlay of a later store than the wanted snapshot's
/// holds what Windows wrote to that later snapshot alone, as when NTFS replayed its log
/// there. `parse_rules::own_overlays_only` decides for `vss_container`.
enum class vss_overlays { all_stores, own_store };

/// What `pull_block` is to put together.
struct vss_read_request {
    u64 store_number = 0;                           ///< the first store to be asked
    u64 volume_offset = 0;                          ///< of the block, in bytes
    const vss_descriptor_set *candidates = nullptr; ///< the block's, of all stores
    u32 wanted = vss_descriptor::all_sectors;       ///< one bit for each 512 bytes
    vss_flag_8 flag_8 = vss_flag_8::left_out;
    vss_overlays overlays = vss_overlays::all_stores;
    bool first_level = true; ///< the bitmap of the first store can rule it out
    u64 bitmap_store = 0;    ///< its bitmaps say what was free; 0: nothing was
};

/// What kind of place the bytes of a sector are in.
enum class vss_origin {
    plain,   ///< a block that a store has kept whole
    overlay, ///< sectors that a store has kept
    moved,   ///< the destination of a forwarder that is an overlay as well
    free,    ///< none: the sector wasn't in use, and reads as zeros
    live,    ///< the volume as it is now
};

/// Sectors of a block that have one origin.
struct vss_piece {
    u32 sectors = 0; ///< one bit for each 512 bytes
    u64 offset = 0;  ///< on the volume, in bytes: sector n is at `offset` + n * 512
    vss_origin origin = vss_origin::live;
};

/// Reads the blocks of a volume, of 16384 bytes each, from a row of stores. A store
/// keeps what was overwritten until the next snapshot was made. So the store of the
/// wanted snapshot is asked first, then those of later snapshots, then the volume.
class vss_block_reader {
public:
    /// The snapshots that can be read. They are numbered from 1 in the order of their
    /// store numbers; a store whose number isn't in the catalog isn't among them.
    u64 store_count() const { return m_stores.size(); }
    /// Null for a number that no snapshot has.
    const vss_store_blocks *store_blocks(u64 store_number) const;
    /// Whether the stores that a read of this snapshot asks, its own and those of all
    /// later snapshots, were loaded with their whole block lists. A list is missing if
    /// the store's data are on another volume, and cut short where it is damaged. Reads
    /// of an incomplete snapshot still succeed: for a block whose descriptor is missing
    /// they deliver what later stores or the volume have. True for snapshot 0, the
    /// volume as it is now; false for a number that no snapshot has, and without loaded
    /// blocks.
    bool is_complete(u64 snapshot) const;

    /// The descriptors of the block at `offset` (bytes on the volume; the start of a
    /// block), of one store or of that and all later ones. A block that was moved by a
    /// forwarder includes what its store kept of it at its destination; the block that
    /// was at the destination doesn't. Descriptors that are marked as not used, or that
    /// others of their kind and store leave nothing to, are never among them. False if
    /// there are none.
    bool
    pull_descriptors_at_vol_offset(vss_descriptor_set &out_set, u64 offset,
                                   u64 store_number, vss_search search,
                                   vss_forwarders forwarders = vss_forwarders::listed);
    /// Reads a store's bitmap at an offset on the volume, in bytes: `out_flag` is set
    /// if the store doesn't track that block. False if there are no bits for it.
    bool is_block_in_bitmap(bool &out_flag, u64 store_number, u64 volume_offset,
                            vss_bitmap_kind kind = vss_bitmap_kind::own);
    /// Reads the block of one descriptor, 16384 bytes. Of an overlay, all other sectors
    /// are zeros, `out_position` is the first sector's place in the buffer, and
    /// `out_length` counts the bytes of its sectors. False if the block can't be read
    /// whole.
    bool read_block(std::vector<u8> &buffer, u32 &out_length, u32 &out_position,
                    const vss_block_descriptor &descriptor);
    /// Where the sectors of a block come from: each of the wanted ones is in one piece.
    /// Reads only bitmaps. Places aren't held to the end of the medium. False, with no
    /// pieces, without a store number or candidates.
    bool plan_block(std::vector<vss_piece> &out_pieces, vss_read_request request);
    /// Puts a block together. `buffer` grows to 16384 bytes if it is smaller;
    /// `out_length` is less where the medium ends. Sectors that were never in use while
    /// the snapshot recorded read as zeros. False without a store number or candidates,
    /// after the end of the medium, and where a kept block can't be read.
    bool pull_block(std::vector<u8> &buffer, u32 &out_length, vss_read_request request);

    /// Reverses the bitmaps: a set bit means that the store does track the block.
    bool inverted_bitmap = false;
    /// Gets a line for every read of the image; null for none.
    std::ostream *dump = nullptr;

protected:
    vss_block_reader() = default;
    ~vss_block_reader() = default;

    /// Forgets the stores, and reads from now on from `volume`, which has to outlive
    /// this object. It may be null.
    void reset(const CNtfs *volume);
    /// Makes room for the blocks of `count` stores, without loading them.
    void set_store_count(std::size_t count) { m_stores.resize(count); }
    /// Loads the blocks of all stores, in the order of their numbers. False if one of
    /// them couldn't be read whole.
    bool load_blocks(std::span<const vss_store *const> stores);
    bool holds_store(u64 store_number) const;
    const vss_block_descriptor &descriptor_of(const vss_descriptor_ref &ref) const;
    vss_overlays overlays_by_rules() const;
    /// The wanted sectors as if no store had them.
    vss_piece rest_piece(const vss_read_request &request);
    /// Reads the sectors of a piece into their places in a block.
    bool read_piece(std::vector<u8> &buffer, u32 &out_length, const vss_piece &piece);

private:
    bool is_free(u64 store_number, u64 volume_offset);
    bool is_ruled_out(vss_descriptor_span descriptors, const vss_read_request &request);
    void plan_store(std::vector<vss_piece> &pieces, vss_read_request &request,
                    vss_descriptor_span descriptors, bool is_own) const;
    const vss_block_descriptor *find_forwarder(vss_descriptor_span descriptors) const;
    bool read_at(u8 *buffer, u32 &length, u64 offset, std::string_view label);
    bool read_kept(u8 *buffer, const vss_piece &piece);
    bool read_rest(u8 *buffer, u32 &out_length, const vss_piece &piece);

    vss_block_source m_source;
    std::vector<vss_store_blocks> m_stores;
    vss_block_index m_index;

    // Reused by every read
    vss_descriptor_set m_block_refs;
    std::vector<vss_piece> m_pieces;
    std::vector<u8> m_scratch;
};

} // namespace hv

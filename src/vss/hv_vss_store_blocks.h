#pragma once

#include "base/hv_byte_view.h"
#include "vss/hv_vss_catalog.h"
#include "vss/hv_vss_layout.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

/// The blocks of one shadow store: which blocks of the volume it has kept and where,
/// and which it never had to keep.
namespace hv {

class CNtfs;

/// What reads tell apart among descriptors.
enum class vss_descriptor_kind {
    plain,     ///< no flags: a block that was kept whole
    flag_8,    ///< flags of exactly 8
    other,     ///< unknown flags: read like a plain one
    forwarder, ///< the block was moved
    overlay,   ///< some sectors of the block
};
inline constexpr std::size_t vss_descriptor_kinds = 5;

/// One block, or some sectors of one, that a store has kept. Offsets are bytes on the
/// volume, except for `relative_offset` of anything that isn't a forwarder.
struct vss_block_descriptor {
    u64 original_offset = 0; ///< the block's place on the volume
    u64 relative_offset = 0; ///< of a forwarder: where the block was moved
    u64 store_offset = 0;    ///< where the kept bytes are
    u32 flags = 0;           ///< `vss_descriptor::forwarder` and so on
    u32 sectors = 0;         ///< one bit for each 512 bytes
    u64 position = 0;        ///< in its list, counted as if every block were full

    bool has(u32 flag) const { return (flags & flag) != 0; }
    vss_descriptor_kind kind() const;
    /// The sectors that this descriptor can deliver. A bitmap of zero means all of
    /// them, except in an overlay.
    u32 held_sectors() const;
};

/// A stretch of the volume that belongs to a store.
struct vss_block_range {
    u64 offset = 0; ///< bytes, on the volume
    u64 relative_offset = 0;
    u64 size = 0; ///< bytes
};

/// Appends the descriptors of a block of the block list, up to the first that is empty.
/// `offset` is the block's place on the volume in bytes, `block_index` counts the
/// blocks of the list from 0. False if the bytes are no such block; the outputs stay as
/// they were.
bool parse_descriptor_block(std::vector<vss_block_descriptor> &out_list,
                            vss_block_hdr &out_header, byte_view block, u64 offset,
                            u64 block_index);
/// Appends the ranges of a block of the range list, up to the first without a size. The
/// block is at `offset` on the volume and has at least 152 bytes. False if the bytes
/// are no such block; the outputs stay as they were.
bool parse_range_block(std::vector<vss_block_range> &out_ranges,
                       vss_block_hdr &out_header, byte_view block, u64 offset);
/// The bits of a bitmap block at `offset` on the volume, cut at the end of the bytes.
/// False if the bytes are no such block, or if it has no bits.
bool parse_bitmap_block(byte_view &out_bits, vss_block_hdr &out_header, byte_view block,
                        u64 offset);

/// The names of the flags of a descriptor that are set, each followed by "; ". Kept for
/// callers of the library.
std::string vss_descriptor_flag_names(u32 flags);

/// The volume that stores are read from. Stores share no blocks, so all of them
/// together have no more than the medium stores; lists that claim more are cut there.
struct vss_block_source {
    vss_block_source() = default;
    explicit vss_block_source(const CNtfs &from);

    /// Reads up to `length` bytes at an offset on the volume; `length` becomes the
    /// bytes read. False if there are none.
    bool read(u8 *buffer, u32 &length, u64 offset) const;
    /// Bytes of the medium from an offset on the volume to the medium's end; 0 after
    /// it.
    u64 bytes_after(u64 offset) const;

    const CNtfs *volume = nullptr;
    u64 blocks_left = 0; ///< that chains may still read
};

/// A walk over blocks that each name the next. It ends at the first block that isn't of
/// the wanted type, and at one that was visited before.
class vss_block_chain {
public:
    enum class state { open, complete, damaged, unreadable };

    /// `first` is the offset of the first block on the volume, in bytes; 0 for an empty
    /// chain.
    vss_block_chain(u64 first, vss_block_type type) : m_next(first), m_type(type) {}

    /// Reads the next block, of at most 16384 bytes, which stay valid until the next
    /// call. False if there is none; `ended` then says why.
    bool next(byte_view &out_block, vss_block_hdr &out_header,
              vss_block_source &source);
    state ended() const { return m_state; }

private:
    u64 m_next;
    vss_block_type m_type;
    state m_state = state::open;
    std::set<u64> m_visited;
    std::vector<u8> m_buffer;
};

/// Which of the two bitmaps of a store.
enum class vss_bitmap_kind { own, previous };

/// The block list, the ranges and the bitmaps of one store. Bitmaps are read when they
/// are first asked for, and kept: 16256 bytes for each 2 GiB of the volume in use.
class vss_store_blocks {
public:
    /// Reads the block list and the ranges. False if the block list couldn't be read to
    /// its end: after a failed read there are no descriptors, after a damaged block
    /// only those before it.
    bool load(const vss_store &store, vss_block_source &source);

    /// The result of `load`; false before it.
    bool is_complete() const { return m_is_complete; }
    /// In the order of the list.
    const std::vector<vss_block_descriptor> &descriptors() const
    {
        return m_descriptors;
    }
    /// In the order of the list. Kept for callers of the library.
    const std::vector<vss_block_range> &ranges() const { return m_ranges; }
    /// Of the block list and of the ranges, in the order of their chains. Kept for
    /// callers of the library.
    const std::vector<vss_block_hdr> &headers() const { return m_headers; }

    /// The bits for a segment, a stretch of 0x7F000000 bytes of the volume, counted
    /// from 0. They stay valid as long as this object does. False if there are none.
    bool bitmap_segment(byte_view &out_bits, vss_bitmap_kind kind, u64 segment,
                        vss_block_source &source);

private:
    struct bitmap_segments {
        std::optional<vss_block_chain> chain;
        std::vector<std::vector<u8>> blocks;
    };

    bool load_descriptors(u64 offset, vss_block_source &source);
    void load_ranges(u64 offset, vss_block_source &source);

    bool m_is_complete = false;
    std::vector<vss_block_descriptor> m_descriptors;
    std::vector<vss_block_range> m_ranges;
    std::vector<vss_block_hdr> m_headers;
    bitmap_segments m_own;
    bitmap_segments m_previous;
};

} // namespace hv

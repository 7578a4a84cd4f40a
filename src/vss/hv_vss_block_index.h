#pragma once

#include "vss/hv_vss_store_blocks.h"

#include <span>
#include <vector>

/// Finds the descriptors that hold the bytes of a block.
namespace hv {

/// Names a descriptor of one of the stores.
struct vss_descriptor_ref {
    u64 offset = 0;  ///< of the block whose bytes it holds: bytes on the volume
    u32 store = 0;   ///< number of the snapshot, from 1
    u32 ordinal = 0; ///< in the store's list, from 0
};
/// Ordered by store, then by the place in the store's list.
using vss_descriptor_set = std::vector<vss_descriptor_ref>;
using vss_descriptor_span = std::span<const vss_descriptor_ref>;

/// The descriptors of all stores, by the block whose bytes they hold. That isn't always
/// the block at their original offset. A forwarder says that a block was moved: what
/// its store keeps of the new offset from then on is still of this block.
class vss_block_index {
public:
    /// Takes the lists of the stores; the first store is number 1. Left out are
    /// descriptors that are marked as not used, and those that add no sector to others
    /// of their kind, store and block.
    void build(std::span<const vss_store_blocks> stores);
    void clear();

    /// The descriptors of the block at `offset`, in bytes on the volume, of all stores.
    /// They stay valid until the next `build` or `clear`.
    vss_descriptor_span find(u64 offset);

private:
    void add_store(const vss_store_blocks &blocks, u32 number);

    vss_descriptor_set m_refs; ///< by offset, store, place in the list
    std::size_t m_cursor = 0;  ///< after the descriptors that were found last
};

} // namespace hv

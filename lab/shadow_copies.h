#pragma once

#include "samples/bytes.h"

#include <array>
#include <string>
#include <vector>

/// Shadow copies, made from the images of one volume at several moments. A store keeps
/// each block of 16 KiB that changed between its snapshot and the next one, so the
/// images say all that the stores hold.
namespace lab {

using test_support::byte_vector;
using test_support::u16;
using test_support::u32;
using test_support::u64;
using test_support::u8;

/// A stretch of a volume, in bytes.
struct volume_range {
    u64 offset = 0;
    u64 size = 0;

    u64 end() const { return offset + size; }
};

/// The sixteen bytes of a GUID as they are on disk.
using shadow_id = std::array<u8, 16>;

/// What the catalog says of a snapshot.
enum class shadow_state {
    live,    ///< it has both entries
    unused,  ///< deleted: the type of its entries is 1, their other fields remain
    cleared, ///< deleted: its entries are zeros
};

/// A snapshot, and the file of its store. The file has to be on the volume already:
/// record, name and clusters are the caller's. A deleted snapshot's file is one that
/// the caller has deleted; its store is written as it was when the snapshot was live.
struct shadow_copy {
    byte_vector volume; ///< the whole volume as the snapshot shows it
    /// What the disk had at that moment. It differs where Windows wrote to the snapshot
    /// alone, as when NTFS replays its log there. Empty: the same as `volume`.
    byte_vector on_disk = {};
    byte_vector used_clusters = {}; ///< the content of $Bitmap then; empty: all in use
    u64 created = 0;                ///< FILETIME
    u64 sequence = 1;               ///< ascending; the first ones may be missing
    shadow_id id = {};              ///< of the store; `shadow_file_name` has it as text
    u64 file_reference = 0;         ///< of the store file
    /// The clusters of the store file, in the order of the file: whole blocks of 16 KiB
    /// at multiples of 16 KiB. The first stretch has at least five of them.
    std::vector<volume_range> areas = {};
    shadow_state state = shadow_state::live;
};

/// The order of the descriptors in a block list.
enum class shadow_order { ascending, descending, shuffled };

/// How changed blocks are kept, so that every kind of descriptor occurs.
struct shadow_ways {
    bool overlays = false;   ///< changed sectors alone, before, after and without plain
    bool forwarders = false; ///< blocks that moved, where an image shows it
    bool unused = false;     ///< descriptors that are marked as not used
    bool free_blocks = false;  ///< free blocks that changed are kept too
    bool free_at_start = true; ///< the previous bitmap: which blocks were free at first
    std::size_t descriptors_in_block = 508; ///< of a block list's block, at most
    shadow_order order = shadow_order::ascending;
    u64 seed = 1;
};

/// The count of descriptors of each kind that were written.
struct shadow_counts {
    u64 plain = 0;
    u64 free = 0; ///< plain ones of blocks that were free
    u64 overlays = 0;
    u64 forwarders = 0;
    u64 unused = 0;
    u64 list_blocks = 0;
};

/// What a reader of a live snapshot has to see.
struct snapshot_view {
    u64 created = 0; ///< FILETIME
    u64 sequence = 0;
    byte_vector volume; ///< what is unknown is zeros here
    /// What no reader can know: the clusters of the shadow copies themselves, and
    /// blocks that were free at the snapshot.
    std::vector<volume_range> unknown;
    shadow_counts counts; ///< of its store
};

/// Writes the volume header, the catalog and the stores into `volume`, which is the
/// volume as it is now. `copies` are in the order of time; all images have the size of
/// `volume`. `catalog` has at least one block of 16 KiB. Returns the live snapshots.
/// Throws std::logic_error if an area is too small or isn't aligned.
std::vector<snapshot_view> write_shadow_copies(byte_vector &volume, u32 cluster_size,
                                               const std::vector<shadow_copy> &copies,
                                               volume_range catalog,
                                               const shadow_ways &ways);

/// The id of the `number`th store of a volume: ids that one system gives one after the
/// other differ in their first bytes only.
shadow_id shadow_store_id(u64 seed, u64 number);

/// The name of the catalog, in the folder "System Volume Information".
std::string shadow_catalog_name();
/// The name of a store file, in the same folder.
std::string shadow_file_name(const shadow_id &id);

} // namespace lab

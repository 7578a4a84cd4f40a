#pragma once

#include "disk/hv_run_index.h"
#include "vss/hv_vss_catalog.h"
#include "vss/hv_vss_store_blocks.h"

#include <map>
#include <memory>
#include <ostream>
#include <span>
#include <string_view>
#include <vector>

/// What a volume held when a snapshot was taken.
namespace hv {

class CNtfs;

/// Names a descriptor of one of the snapshots.
struct vss_descriptor_ref {
    u64 offset = 0;  ///< where the block belongs: bytes on the volume
    u32 store = 0;   ///< number of the snapshot, from 1
    u32 ordinal = 0; ///< in the store's list
};
/// Ordered by store, then by the place in the store's list.
using vss_descriptor_set = std::vector<vss_descriptor_ref>;

/// What `pull_block` is to put together.
struct vss_read_request {
    u64 store_number = 0;                           ///< the first store to be asked
    u64 volume_offset = 0;                          ///< of the block, in bytes
    const vss_descriptor_set *candidates = nullptr; ///< at that offset, of all stores
    u32 wanted = ~u32{0};                           ///< one bit for each 512 bytes
    bool include_flag_8 = false; ///< take descriptors whose flags are exactly 8
    bool first_level = true;     ///< the first store's bitmap has a say
    u64 owner = 0; ///< whose bitmaps say what is free; 0 or above the count: none
};

/// Reads a volume as its snapshots saw it, in blocks of 16384 bytes. A snapshot keeps
/// what was overwritten up to the next one. So the store of the wanted snapshot is
/// asked first, then those of later snapshots, then the volume itself. Nothing is
/// written anywhere.
class vss_container {
public:
    vss_container();
    ~vss_container();
    vss_container(const vss_container &) = delete;
    vss_container &operator=(const vss_container &) = delete;

    /// Opens the volume that begins at `volume_offset` of an image, and reads its
    /// catalog; with `load_blocks` also the blocks of all stores. False if there is no
    /// volume or no catalog, or if a store can't be read whole. In that last case reads
    /// work all the same: what the store would have held comes from where it doesn't
    /// hold anything. After a failed `init` whose volume or catalog is missing, and
    /// for a lack of memory, nothing can be read; it may be called again.
    bool init(std::string_view image_path, u64 volume_offset, bool load_blocks);
    /// The same for a validated volume, which has to outlive this object.
    bool init(const CNtfs &volume, bool load_blocks);

    /// The snapshots that can be read. They are numbered from 1 in the order of their
    /// store numbers; a store whose number the catalog doesn't tell isn't among them.
    u64 store_count() const { return m_snapshots.size(); }
    /// Null for a number that no snapshot has.
    const vss_store *store(u64 store_number) const;
    const vss_store_blocks *store_blocks(u64 store_number) const;
    /// All stores of the catalog.
    const vss_store_map &stores() const { return m_stores; }
    /// Where a snapshot's $MFT begins, as far as the descriptors tell: on the volume,
    /// if its first block wasn't kept; where the kept bytes lie, if it is an overlay;
    /// else the descriptor's relative offset. Bytes; 0 for no snapshot, or if the
    /// blocks weren't loaded.
    u64 mft_offset(u64 store_number) const;

    /// Reads the block that holds `volume_offset`, from that byte to the block's end,
    /// as snapshot `snapshot` saw it; 0 is the volume as it is now. `buffer` grows to
    /// 16384 bytes if it is smaller, `out_length` becomes the bytes delivered: fewer
    /// where the medium ends. Sectors that were never in use while the snapshot
    /// recorded read as zeros. False for a snapshot above the count, behind the
    /// medium's end, and where a kept block can't be read.
    bool read_data_raw(std::vector<u8> &buffer, u32 &out_length, u64 snapshot,
                       u64 volume_offset, bool include_flag_8 = false);

    /// Makes a file readable for `read_snapshot_file`: where its clusters are as of a
    /// snapshot (0 for now). They stand in the file's record, which is read from the
    /// snapshot's $MFT at entry number x record size; `decode_attribute_runs` takes
    /// them from its $DATA. With the blocks loaded, `init` has attached the $MFT of
    /// each snapshot under the snapshot's number, as far as its own record lists its
    /// runs, and catalog and store files under their own references.
    void attach_file(u64 reference, u64 store_number,
                     const std::vector<disk_run> &runs);
    /// Reads `length` bytes at `offset` of an attached file as its snapshot saw them.
    /// The reference 0 reads the file that was read last as it is on the volume now;
    /// at first that is the $MFT. `buffer` grows as needed, `out_length` becomes the
    /// bytes up to the first cluster that can't be read. The length of the file isn't
    /// known here: what its last cluster has behind its end is delivered as well. False
    /// if there are no bytes.
    bool read_snapshot_file(std::vector<u8> &buffer, u32 &out_length, u64 reference,
                            u64 offset, u32 length);

    /// The descriptors for exactly this offset, of a store and, with `later_stores`, of
    /// those behind it. With `follow`, the targets of forwarders are looked up as well.
    /// Descriptors that are marked as not used, or that earlier ones of their store
    /// leave nothing to, are never among them. False if there are none.
    bool pull_descriptors_at_vol_offset(vss_descriptor_set &out_set, u64 offset,
                                        u64 store_number, bool later_stores,
                                        bool follow);
    /// Reads a store's bitmap at an offset on the volume: `out_flag` is set if the
    /// store doesn't look after that block. False if there are no bits for it.
    bool is_block_in_bitmap(bool &out_flag, u64 store_number, u64 volume_offset,
                            vss_bitmap_kind kind = vss_bitmap_kind::own);
    /// Reads the bytes of one descriptor, all other sectors as zeros. Of an overlay,
    /// `out_position` is the first sector's place in the buffer, and `out_length`
    /// counts the bytes of its sectors. False if they can't be read whole.
    bool read_block(std::vector<u8> &buffer, u32 &out_length, u32 &out_position,
                    const vss_block_descriptor &descriptor);
    /// Puts a block together. False as for `read_data_raw`.
    bool pull_block(std::vector<u8> &buffer, u32 &out_length, vss_read_request request);

    /// Whether each block that no descriptor is found for is told on standard output.
    bool report_live_reads = true;
    /// A set bit of a bitmap says that the store does look after the block.
    bool inverted_bitmap = false;
    /// Where every read of the image is told; null for nowhere.
    std::ostream *dump = nullptr;

private:
    struct snapshot_state {
        const vss_store *store = nullptr;
        vss_store_blocks blocks;
        u64 mft_offset = 0;
    };
    struct attached_file {
        u64 store_number = 0;
        run_index runs;
    };
    using level = std::span<const vss_descriptor_ref>;

    void clear();
    void number_stores();
    bool load_all_blocks();
    void attach_own_files();
    void attach_by_name(u64 folder, std::string_view name, u64 store_number);
    void build_index();
    void locate_mft(u64 store_number);
    bool read_mft_runs(std::vector<disk_run> &out_runs, u64 store_number, u64 offset);

    const vss_block_descriptor &at(const vss_descriptor_ref &ref) const;
    level find_offset(u64 offset);
    bool holds_store(u64 store_number) const;
    bool is_free(u64 store_number, u64 volume_offset);
    bool adds_to_first_level(level one, const vss_read_request &request);
    bool take_level(std::vector<u8> &buffer, vss_read_request &request, level one,
                    const vss_block_descriptor *&out_forwarder);
    bool merge(std::vector<u8> &buffer, const vss_block_descriptor &descriptor,
               u32 sectors);
    bool fill_rest(std::vector<u8> &buffer, u32 &out_length,
                   const vss_read_request &request);
    bool read_at(u8 *buffer, u32 &length, u64 offset, std::string_view label);
    bool read_snapshot_block(std::vector<u8> &buffer, u32 &out_length,
                             const vss_read_request &request);
    u32 read_live(u8 *out, u32 bytes, const attached_file &file, u64 position) const;
    u32 read_clusters(u8 *out, u64 bytes, const attached_file &file, u64 position);

    std::unique_ptr<CNtfs> m_opened;
    const CNtfs *m_volume = nullptr;
    vss_block_source m_source;
    vss_store_map m_stores;
    std::vector<snapshot_state> m_snapshots;
    vss_descriptor_set m_index; ///< by offset, store, place in the list
    std::size_t m_cursor = 0;   ///< behind the entries found last
    std::map<u64, attached_file> m_files;
    const attached_file *m_attached = nullptr; ///< read last

    // Reused by every read
    vss_descriptor_set m_candidates;
    vss_descriptor_set m_forwarded;
    std::vector<u8> m_scratch;
    std::vector<u8> m_file_block;
};

} // namespace hv

#pragma once

#include "disk/hv_run_index.h"
#include "vss/hv_vss_block_reader.h"
#include "vss/hv_vss_catalog.h"

#include <map>
#include <memory>
#include <string_view>
#include <vector>

/// What a volume and its files held when a snapshot was taken.
namespace hv {

class CNtfs;

/// What `vss_container::init` loads.
enum class vss_load { catalog_only, with_blocks };

/// Finds the shadow stores of a volume, and reads the volume and its files as its
/// snapshots saw them. Nothing is written anywhere.
class vss_container : public vss_block_reader {
public:
    vss_container();
    ~vss_container();
    vss_container(const vss_container &) = delete;
    vss_container &operator=(const vss_container &) = delete;

    /// Opens the volume that starts at `volume_offset` of an image, in bytes, and reads
    /// its catalog and, if asked for, the blocks of all stores. False if there is no
    /// volume or no catalog, or if a store can't be read whole. In the last case reads
    /// still work, and `is_complete` says which snapshots lack something. After an
    /// `init` that found no volume or no catalog, or ran out of memory, nothing can be
    /// read; it may be called again.
    bool init(std::string_view image_path, u64 volume_offset, vss_load load);
    /// The same for a validated volume, which has to outlive this object.
    bool init(const CNtfs &volume, vss_load load);

    /// The volume that was opened; null before a successful `init`.
    const CNtfs *volume() const { return m_volume; }
    /// Null for a number that no snapshot has.
    const vss_store *store(u64 store_number) const;
    /// All stores of the catalog, also those without a number.
    const vss_store_map &stores() const { return m_catalog; }
    /// Where a snapshot's $MFT starts, as its descriptors say, in bytes: on the volume,
    /// if its first block wasn't kept; where the kept bytes are, if it is an overlay;
    /// else the descriptor's relative offset. 0 for no snapshot, or if the blocks
    /// weren't loaded. Kept for callers of the library.
    u64 mft_offset(u64 store_number) const;

    /// Reads the block that holds `volume_offset`, from that byte to the block's end,
    /// as snapshot `snapshot` saw it; 0 is the volume as it is now. `buffer` grows to
    /// 16384 bytes if it is smaller, `out_length` becomes the bytes delivered: fewer
    /// where the medium ends. Sectors that were never in use while the snapshot
    /// recorded read as zeros. False for a snapshot above the count, after the end of
    /// the medium, and where a kept block can't be read. A snapshot that isn't
    /// complete (see `is_complete`) delivers later bytes for the blocks that were lost.
    bool read_data_raw(std::vector<u8> &buffer, u32 &out_length, u64 snapshot,
                       u64 volume_offset, vss_flag_8 flag_8 = vss_flag_8::left_out);

    /// Makes a file readable for `read_snapshot_file`: `runs` are its clusters as of a
    /// snapshot (0 for now). They come from the $DATA of the file's record by
    /// `decode_attribute_runs`; the record is at entry number x record size of the
    /// snapshot's $MFT. With the blocks loaded, `init` has attached the $MFT of each
    /// snapshot under the snapshot's number, with those runs that its first record
    /// lists, and catalog and store files under their own references.
    void attach_file(u64 reference, u64 store_number,
                     const std::vector<disk_run> &runs);
    /// Reads `length` bytes at `offset` of an attached file as its snapshot saw them.
    /// The reference 0 reads the file that was read last as it is on the volume now;
    /// at first that is the $MFT. `buffer` grows as needed, `out_length` becomes the
    /// bytes up to the first cluster that can't be read. The length of the file isn't
    /// known here: the slack of its last cluster is delivered as well. False if there
    /// are no bytes.
    bool read_snapshot_file(std::vector<u8> &buffer, u32 &out_length, u64 reference,
                            u64 offset, u32 length);

    /// Whether a line on standard output reports each block without a descriptor.
    bool report_live_reads = true;

private:
    struct snapshot_state {
        const vss_store *store = nullptr;
        u64 mft_offset = 0;
    };
    struct attached_file {
        u64 store_number = 0;
        run_index runs;
    };

    void clear();
    void number_stores();
    bool load_all_blocks();
    void attach_own_files();
    void attach_by_name(u64 folder, std::string_view name, u64 store_number);
    void locate_mft(u64 store_number);
    bool read_mft_lcn(u64 &out_lcn, u64 store_number);
    bool read_mft_runs(std::vector<disk_run> &out_runs, u64 store_number, u64 offset);
    u64 kept_mft_offset(u64 store_number, u64 offset);
    u32 read_live(u8 *out, u32 bytes, const attached_file &file, u64 position) const;
    u32 read_clusters(u8 *out, u64 bytes, const attached_file &file, u64 position);

    std::unique_ptr<CNtfs> m_opened;
    const CNtfs *m_volume = nullptr;
    vss_store_map m_catalog;
    std::vector<snapshot_state> m_snapshots;
    std::map<u64, attached_file> m_files;
    const attached_file *m_attached = nullptr; ///< read last

    // Reused by every read
    vss_descriptor_set m_candidates;
    std::vector<u8> m_file_block;
};

} // namespace hv

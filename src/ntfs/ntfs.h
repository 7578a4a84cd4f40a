#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_parse_rules.h"
#include "disk/hv_byte_source.h"
#include "disk/hv_raw_disk_io.h"
#include "ntfs/hv_directory_cache.h"
#include "ntfs/hv_file_record.h"
#include "ntfs/hv_inode_stats.h"
#include "ntfs/hv_ntfs_layout.h"

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// The boot sector of a volume, as read.
struct NTFS_BOOT {
    std::array<u8, ntfs_boot::size> bytes{};

    template <std::unsigned_integral T> T get(le_field<T> field) const
    {
        return byte_view{bytes}.read_padded<T>(field.offset);
    }
    bool has_signature() const;
};

/// What a `CNtfs` opens.
enum class volume_kind : i32 {
    letter_path = 32, ///< the same as `path`
    path = 33,
    drive = 34,
    image = 35,
    vmdk = 36, ///< chain of virtual disk files; a path of this kind opens nothing
    bad = 255,
};

/// One NTFS volume on a disk. Opening only makes the object; `validate_volume` reads
/// the boot sector and entry 0, once, and everything else needs it to have succeeded.
/// Entry numbers are indexes into the $MFT, cluster numbers (LCN) count from the start
/// of the volume.
class CNtfs {
public:
    /// Over a file or a device. The volume begins `offset` bytes into it, also for the
    /// other constructors. An empty path, or a kind that isn't one of a path, makes an
    /// object that never validates.
    CNtfs(std::string_view path, u64 offset, volume_kind kind);
    /// Over a physical drive: "/dev/sda" is 0.
    CNtfs(u32 drive_number, u64 offset);
    /// Over a chain of virtual disk files. An offset of 0 means the first partition, or
    /// the start of the disk if there is none.
    CNtfs(const std::vector<std::string> &paths, u64 offset);
    /// Over any bytes, such as a snapshot of a volume. Null makes an object that never
    /// validates. `rules` say which records are read; the other constructors take
    /// `parse_rules::fixed()`.
    CNtfs(byte_source_ptr source, u64 offset, const parse_rules &rules);
    ~CNtfs();
    CNtfs(const CNtfs &) = delete;
    CNtfs &operator=(const CNtfs &) = delete;

    /// Reads the boot sector and entry 0 of the $MFT. False if either can't be read or
    /// isn't one; a later call tries again. Once it has succeeded, it costs nothing.
    bool validate_volume();
    /// What is read of this volume; fixed when it was opened.
    const parse_rules &rules() const { return m_rules; }
    bool is_validated() const { return m_disk != nullptr && m_Validated; }

    /// The boot sector. Asking for this or for the next four before a successful
    /// validation is a bug in the caller.
    const NTFS_BOOT &get_boot_sector() const;
    /// What entry 0 says of the $MFT itself.
    const INODE_STATS &get_mft_inode_stats() const;
    /// The runs of the $MFT, in ascending order of their VCNs.
    const std::vector<cluster_run> &get_mft_runs() const { return m_mft_runs; }
    /// The runs of $Bitmap; empty if its record can't be read.
    const data_run_list &get_bitmap_inode_runlist() const;
    /// The runs of the $MFT's own bitmap. Kept for callers of the library.
    const data_run_list &get_mft_inode_bitmap_runlist() const;
    /// How many records the runs of the $MFT have room for. Hostile runs may claim
    /// clusters that aren't on the medium.
    u64 get_mft_entry_count() const { return m_Validated ? m_entry_count : 0; }
    u32 get_bytes_per_sector() const { return m_boot.get(ntfs_boot::bytes_per_sector); }
    /// Kept for callers of the library.
    u32 get_sectors_per_cluster() const { return m_sectors_per_cluster; }
    /// In bytes; 0 before the boot sector was read.
    u32 get_cluster_size() const { return m_cluster_size; }
    /// As the boot sector states it. Kept for callers of the library.
    u64 get_total_clusters() const { return m_total_clusters; }
    /// In bytes; 1024 before the boot sector was read.
    u32 get_mft_record_size() const
    {
        return m_mft_record_size == 0 ? 1024 : m_mft_record_size;
    }
    u64 get_mft_start_lcn() const { return m_boot.get(ntfs_boot::mft_start_lcn); }
    /// Where the volume begins on the disk, in bytes.
    u64 get_volume_offset() const { return m_volume_offset; }
    /// The disk, or null if it isn't open. It is the volume's own, and mutable although
    /// the volume is const: a run list that a caller attaches to it stays attached for
    /// all later mapped reads, until the next caller attaches another. No read of this
    /// class is mapped. `RAW_DISK_IO::read_mapped` needs no attached list.
    RAW_DISK_IO *get_disk() const;

    /// The byte position of an entry relative to the volume; 0 if it has none.
    u64 get_entry_position(u64 entry) const;
    /// The cluster that holds the first byte of an entry, and the byte's offset in it.
    /// False if no run of the $MFT holds the entry, or a sparse one.
    bool get_lcn_for_inode(u64 entry, u64 &lcn, u32 &offset_in_cluster) const;
    /// The number of the last entry that is allocated according to the $MFT's own
    /// bitmap; 0 if the bitmap can't be read. Kept for callers of the library.
    u64 get_last_allocated_indo_per_mftbitmap() const;

    /// Reads whole clusters into `buffer`. `length`, in bytes, must be a multiple of
    /// the cluster size and comes back as the bytes read: fewer at the end of the
    /// medium. False if nothing could be read.
    bool read_clusters(u64 lcn, u8 *buffer, u32 &length) const;
    /// Reads an entry and applies its update sequence; an "INDX" block passes as well.
    /// `record` gets what was delivered, at most one record. False for an unreadable
    /// entry or another signature.
    bool read_filerecord(u64 entry, std::vector<u8> &record) const;
    /// The same, also for the type of the block: "BAAD" succeeds as well.
    bool read_record_checked(u64 entry, std::vector<u8> &record,
                             block_type &type) const;
    /// Fills `stats` from the "FILE" record of `entry`, which was read and has its
    /// update sequence applied, and from the records that its attribute list names.
    /// False if an attribute of the record itself can't be used; `stats` then holds
    /// those before it.
    bool collect_inode_stats(byte_view record, INODE_STATS &stats, u64 entry) const;
    /// Reads a non-resident attribute's clusters one by one, up to the first that
    /// can't be read, but not more than `max_bytes` or one cluster. Empty for a
    /// resident attribute.
    std::vector<u8> read_attribute_clusters(attribute_ref attribute,
                                            u64 max_bytes) const;

    /// The directories that paths have led through so far.
    directory_cache &path_cache() { return m_path_cache; }

    /// Finds the owner that a security id of this volume refers to; false for an
    /// unknown id.
    using owner_lookup = std::function<bool(std::string &out_owner, u32 security_id)>;
    /// Has `collect_inode_stats` fill in owners from now on. Without a lookup they stay
    /// empty.
    void set_owner_lookup(owner_lookup lookup) { m_owner_lookup = std::move(lookup); }

private:
    bool read_boot_sector();
    void compute_geometry();
    bool read_first_entry();
    void count_entries();
    bool parse_attribute(INODE_STATS &stats, attribute_ref attribute) const;
    void add_owner(INODE_STATS &stats, attribute_ref attribute) const;
    std::vector<u8> read_runs(const data_run_list &runs, u64 max_bytes) const;
    bool read_record(u64 entry, std::vector<u8> &record) const;
    void follow_list(INODE_STATS &stats, byte_view listed, u64 entry,
                     byte_view base) const;
    bool read_bytes(u64 position, u8 *buffer, u32 &length) const;

    NTFS_BOOT m_boot;
    std::unique_ptr<RAW_DISK_IO> m_disk;
    parse_rules m_rules;
    bool m_Validated = false;
    std::vector<u8> m_first_entry;
    INODE_STATS m_mft_stats;
    std::vector<cluster_run> m_mft_runs; ///< of the $MFT, by ascending VCN
    data_run_list m_bitmap_runs;
    u32 m_allocated_record_size = 0; ///< as entry 0 states it; the step of entries
    u64 m_entry_count = 0;
    u32 m_cluster_size = 0;
    u64 m_mft_file_pos = 0; ///< byte offset of the $MFT relative to the volume
    u64 m_total_clusters = 0;
    u32 m_sectors_per_cluster = 0;
    u64 m_volume_offset = 0;
    u32 m_mft_record_size = 0;
    directory_cache m_path_cache;
    owner_lookup m_owner_lookup;
};

/// Opens and validates a volume that begins `offset` bytes into its target; null if it
/// isn't one. The path may be a drive letter with its colon, a device path that begins
/// with two backslashes, or any other.
std::unique_ptr<CNtfs> open_volume(std::string_view path, u64 offset);
/// The same for any bytes; `source` may be null.
std::unique_ptr<CNtfs> open_volume(byte_source_ptr source, u64 offset,
                                   const parse_rules &rules);
/// The same for a path that begins with "\\.\"; any other is refused. Kept for callers
/// of the library.
std::unique_ptr<CNtfs> open_device_volume(std::string_view path, u64 offset);
/// The same for a physical drive: "/dev/sda" is 0.
std::unique_ptr<CNtfs> open_drive_volume(u32 drive_number, u64 offset);
/// The same for the files of a chain of virtual disks, in any order; an offset of 0
/// means the first partition. An empty list fails.
std::unique_ptr<CNtfs> open_vmdk_volume(const std::vector<std::string> &paths,
                                        u64 offset);

/// A bit of a bitmap such as $Bitmap, the least significant bit of a byte first. False
/// after the end of the bitmap. Kept for callers of the library.
bool test_bitmap_bit(byte_view bitmap, u64 bit);

} // namespace hv

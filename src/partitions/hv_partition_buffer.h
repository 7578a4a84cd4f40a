#pragma once

#include "base/hv_byte_view.h"
#include "partitions/hv_disk_structs.h"
#include "partitions/hv_partition_types.h"

#include <functional>
#include <string_view>

/// Reads partition tables, and recognises file systems, in bytes that are already in
/// memory.
namespace hv {

/// Whether a disk without a table in its first sector is searched for a lost one.
enum class table_scan { off, on };

/// Finds the partitions of a disk by its first bytes, at least 512 of them, in an MBR
/// and its EBRs; a GPT isn't read. Whatever lies after the end of `bytes` isn't looked
/// into. A disk that begins with a volume, or without a table, yields entries only with
/// the scan on. True if the list isn't empty.
bool find_partitions_in_buffer(partition_list &out_partitions, byte_view bytes,
                               table_scan scan);

/// Recognises a file system by the boot sector or superblock at the start of a volume,
/// and fills in the entry. FAT, exFAT, NTFS and BitLocker take 512 bytes, ext and HFS
/// 2048; missing bytes count as zero. False if nothing was recognised.
bool read_volume_signature(partition_entry &entry, byte_view bytes);

// ---- Shared with the walk that reads from a disk

/// One of the four partition records of an MBR or EBR.
struct table_record {
    u8 type = 0;
    u32 first_sector = 0; ///< relative; see `walk_extended`
    u32 sectors = 0;

    bool is_usable() const { return sectors != 0 && is_known_partition_type(type); }
    /// It leads to another table, not to a volume.
    bool is_extended() const
    {
        return type == partition_type::extended || type == partition_type::extended_lba;
    }
};

/// Record `index`, 0 to 3, of a table sector. Missing bytes count as zero.
table_record read_table_record(byte_view sector, unsigned index);
/// Whether `text` lies at `at`, byte for byte.
bool holds_text(byte_view bytes, u64 at, std::string_view text);
/// Whether this is the boot sector of an exFAT, FAT or NTFS volume, by its OEM name.
bool begins_with_volume(byte_view sector);
/// Whether this is the boot sector of an NTFS volume.
bool begins_with_ntfs(byte_view sector);
/// Whether a sector has the table signature and isn't the boot sector of a volume.
bool is_table_sector(byte_view sector);
/// Whether these are the first bytes of an ext volume, by its superblock.
bool begins_with_ext(byte_view bytes);
/// The sector size of a disk in bytes, by the table signature at the end of its first
/// sector; 0 if there is no signature.
u32 find_sector_size(byte_view bytes);
/// The entry of a disk that is one volume without a table, by its first bytes.
partition_entry make_volume_entry(byte_view bytes);

/// Returns the 512 bytes at a byte position; fewer, or none, if they can't be read.
using sector_reader = std::function<byte_view(u64 position)>;

/// Follows the chain of EBRs of the extended partition that begins at sector `base`.
/// Appends its volumes and also its links. A chain that leads back to an EBR already
/// read ends there. `out_last_type` is the type of the last volume in the first EBR, or
/// 0. False if the first EBR can't be read.
bool walk_extended(partition_list &partitions, u8 &out_last_type, u64 base,
                   u32 sector_size, const sector_reader &read_sector);

} // namespace hv

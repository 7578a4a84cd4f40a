#pragma once

#include "base/hv_byte_view.h"
#include "partitions/hv_disk_structs.h"
#include "partitions/hv_partition_types.h"

#include <functional>
#include <string_view>

/// The walk over partition tables whose bytes are in memory already.
namespace hv {

/// Whether a disk without a table at its start is searched for a lost one.
enum class table_scan { off, on };

/// Finds the partitions of a disk of which `bytes` are the first. At least 512 bytes
/// are needed. A partition, or a piece of an extended one, that lies behind the bytes
/// isn't looked into. A disk that begins with a volume, or with no table at all, gives
/// something only with the scan on. True if the list isn't empty.
bool find_partitions_in_buffer(partition_list &out_partitions, byte_view bytes,
                               table_scan scan);

/// Recognises a file system by the first bytes of its volume and fills in the entry.
/// 512 bytes show FAT, exFAT, NTFS and BitLocker, 2048 ext and HFS as well; of fewer,
/// those that are missing count as zero. False if nothing was recognised.
bool read_volume_signature(partition_entry &entry, byte_view bytes);

// ---- What this walk shares with the one on a disk

/// One of the four records of an MBR or EBR.
struct table_record {
    u8 type = 0;
    u32 first_sector = 0; ///< counted from what the table belongs to
    u32 sectors = 0;

    bool is_usable() const { return sectors != 0 && is_known_partition_type(type); }
    /// It stands for more records, not for a volume.
    bool is_extended() const
    {
        return type == partition_type::extended || type == partition_type::extended_lba;
    }
};

/// The four records of a table sector, or what is there of them; `index` is 0 to 3.
table_record read_table_record(byte_view sector, unsigned index);
bool holds_text(byte_view bytes, u64 at, std::string_view text);
/// The first sector of an exFAT, FAT or NTFS volume, by the maker's name in it.
bool begins_with_volume(byte_view sector);
/// The first sector of an NTFS volume.
bool begins_with_ntfs(byte_view sector);
/// A sector with the table signature that isn't the first one of a volume.
bool is_table_sector(byte_view sector);
/// The first bytes of an ext volume.
bool begins_with_ext(byte_view bytes);
/// The sector size of a disk, by the place of the signature at the end of its first
/// sector; 0 if there is none.
u32 find_sector_size(byte_view bytes);
/// The entry for a disk that is one volume, by its first bytes.
partition_entry make_volume_entry(byte_view bytes);

/// Gives the 512 bytes at a byte position, or what is there of them.
using sector_reader = std::function<byte_view(u64 position)>;

/// Appends the partitions of the extended partition that begins at sector `base`, and
/// every link of its chain. A chain that leads to where it has been ends there.
/// `out_last_type` is the type of the last record ahead of the first link, or 0. False
/// if the first sector can't be read.
bool walk_extended(partition_list &partitions, u8 &out_last_type, u64 base,
                   u32 sector_size, const sector_reader &read_sector);

} // namespace hv

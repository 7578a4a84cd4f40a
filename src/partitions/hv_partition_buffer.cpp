#include "partitions/hv_partition_buffer.h"

#include "partitions/hv_partition_layout.h"

#include <algorithm>
#include <new>
#include <set>
#include <string>

namespace hv {

namespace {

constexpr u32 default_sector_size = 512;
constexpr std::string_view ntfs_name = "NTFS    ";
constexpr std::size_t oem_size = 8;
// 1024 << 22 doesn't fit 32 bits.
constexpr u32 max_block_shift = 21;

bool has_table_signature(byte_view bytes, u64 at)
{
    return bytes.read_padded<u16>(at) == mbr::signature_value;
}

// Text up to a NUL, at most `max_size` bytes of it.
std::string text_at(byte_view bytes, u64 at, u64 max_size)
{
    const auto field = bytes.clip(at, max_size).bytes();
    return {field.begin(), std::ranges::find(field, u8{0})};
}

// A sector size of zero in a damaged boot sector would move the volume to the start of
// the disk, so the table's size stays.
void set_sector_size(partition_entry &entry, u32 size)
{
    if (size != 0) entry.m_sector_size = size;
}

u32 power_of_two(u8 exponent)
{
    return exponent < 32 ? u32{1} << exponent : 0;
}

void set_volume(partition_entry &entry, u8 type, const char *file_system)
{
    entry.type = type;
    entry.file_system = file_system;
    entry.is_volume = true;
}

// Without an OEM name: ext and HFS leave the first sector to a boot loader.
bool read_unnamed(partition_entry &entry, byte_view bytes)
{
    if (bytes.size() >= superblock::needed_size && begins_with_ext(bytes)) {
        entry.type = partition_type::linux_native;
        entry.file_system = "ext";
        entry.volume_label =
            text_at(bytes, superblock::ext_label, superblock::ext_label_size);
        entry.last_mount =
            text_at(bytes, superblock::ext_mount, superblock::ext_mount_size);
        return true;
    }
    const u16 signature = read_field(bytes, superblock::hfs_signature);
    if ((signature & 0xFF) != 'H') return false;
    entry.type = partition_type::hfs;
    if (signature == superblock::hfs_plus) entry.file_system = "hfs+";
    if (signature == superblock::hfs_x) entry.file_system = "hfsx";
    return signature == superblock::hfs_plus || signature == superblock::hfs_x;
}

void read_exfat(partition_entry &entry, byte_view bytes)
{
    set_volume(entry, partition_type::ntfs_or_exfat, "exfat");
    entry.sectors_per_cluster =
        power_of_two(read_field(bytes, boot_sector::exfat_cluster_shift));
    set_sector_size(entry,
                    power_of_two(read_field(bytes, boot_sector::exfat_sector_shift)));
    entry.volume_serial = read_field(bytes, boot_sector::exfat_serial);
    if (entry.sectors == 0)
        entry.sectors = read_field(bytes, boot_sector::exfat_sectors);
}

void read_ntfs(partition_entry &entry, byte_view bytes, const char *file_system)
{
    set_volume(entry, partition_type::ntfs_or_exfat, file_system);
    entry.sectors_per_cluster = read_field(bytes, boot_sector::sectors_per_cluster);
    set_sector_size(entry, read_field(bytes, boot_sector::bytes_per_sector));
    entry.volume_serial = read_field(bytes, boot_sector::ntfs_serial);
    if (entry.sectors == 0)
        entry.sectors = read_field(bytes, boot_sector::ntfs_sectors);
}

// FAT has its name in the last field of its parameters; the OEM name can be anything.
bool read_fat(partition_entry &entry, byte_view bytes)
{
    const u32 sectors = read_field(bytes, boot_sector::fat_sectors);
    if (holds_text(bytes, boot_sector::fat32_name, "FAT32")) {
        set_volume(entry, partition_type::fat32, "fat32");
        entry.gpt_attributes = read_field(bytes, boot_sector::fat32_flags);
        entry.volume_serial = read_field(bytes, boot_sector::fat32_serial);
        entry.sectors = sectors;
    } else if (holds_text(bytes, boot_sector::fat16_name, "FAT16")) {
        set_volume(entry, partition_type::fat16, "fat16");
        entry.volume_serial = read_field(bytes, boot_sector::fat16_serial);
        if (entry.sectors == 0) entry.sectors = sectors;
    } else {
        return false;
    }
    entry.sectors_per_cluster = read_field(bytes, boot_sector::sectors_per_cluster);
    set_sector_size(entry, read_field(bytes, boot_sector::bytes_per_sector));
    return true;
}

// An ext volume whose first sector holds a boot loader. Its start is reported as 0 and
// its length in bytes: callers recognise these entries by that.
bool read_ext_after_loader(partition_entry &entry, byte_view bytes)
{
    if (bytes.size() < superblock::needed_size || !begins_with_ext(bytes)) return false;
    const u32 shift = read_field(bytes, superblock::ext_log_block);
    const u32 block = shift <= max_block_shift ? u32{1024} << shift : 0;
    set_volume(entry, partition_type::linux_native, "ext2/3");
    entry.name = entry.file_system;
    entry.volume_serial = read_field(bytes, superblock::ext_serial);
    entry.sectors_per_cluster = block / default_sector_size;
    entry.m_sector_size = default_sector_size;
    entry.sectors = u64{block} * read_field(bytes, superblock::ext_blocks);
    entry.start_sector = 0;
    return true;
}

} // namespace

bool holds_text(byte_view bytes, u64 at, std::string_view text)
{
    return std::ranges::equal(bytes.clip(at, text.size()).bytes(), text, {}, {},
                              [](char c) { return static_cast<u8>(c); });
}

bool begins_with_volume(byte_view sector)
{
    constexpr std::string_view names[] = {"EXFA", "MSDO", "NTFS"};
    return std::ranges::any_of(names, [sector](std::string_view name) {
        return holds_text(sector, boot_sector::oem_name, name);
    });
}

bool begins_with_ntfs(byte_view sector)
{
    return holds_text(sector, boot_sector::oem_name, ntfs_name);
}

bool is_table_sector(byte_view sector)
{
    return has_table_signature(sector, mbr::m_mbr_signature) &&
           !begins_with_volume(sector);
}

bool begins_with_ext(byte_view bytes)
{
    return read_field(bytes, superblock::ext_magic) == superblock::ext_magic_value;
}

u32 find_sector_size(byte_view bytes)
{
    for (const u32 size : {512U, 1024U, 2048U, 4096U, 8192U, 16384U})
        if (has_table_signature(bytes, size - sizeof(u16))) return size;
    return 0;
}

table_record read_table_record(byte_view sector, unsigned index)
{
    const byte_view record = sector.clip(mbr::records + index * partition_record::size,
                                         partition_record::size);
    return {read_field(record, partition_record::m_partition_type),
            read_field(record, partition_record::m_LBA_first_sector),
            read_field(record, partition_record::m_num_sectors)};
}

partition_entry make_volume_entry(byte_view bytes)
{
    partition_entry entry;
    entry.is_volume = true;
    read_volume_signature(entry, bytes);
    return entry;
}

bool read_volume_signature(partition_entry &entry, byte_view bytes)
{
    const u8 per_cluster = read_field(bytes, boot_sector::sectors_per_cluster);
    if (per_cluster != 0) entry.sectors_per_cluster = per_cluster;
    const auto oem = bytes.clip(boot_sector::oem_name, oem_size).bytes();
    if (std::ranges::all_of(oem, [](u8 byte) { return byte == 0; }))
        return read_unnamed(entry, bytes);
    if (holds_text(bytes, boot_sector::oem_name, "EXFAT   "))
        read_exfat(entry, bytes);
    else if (begins_with_ntfs(bytes))
        read_ntfs(entry, bytes, "ntfs");
    else if (holds_text(bytes, boot_sector::oem_name, "-FVE-FS-"))
        read_ntfs(entry, bytes, "bitlocker container");
    else
        return read_fat(entry, bytes) || read_ext_after_loader(entry, bytes);
    return true;
}

bool walk_extended(partition_list &partitions, u8 &out_last_type, u64 base,
                   u32 sector_size, const sector_reader &read_sector)
{
    out_last_type = 0;
    std::set<u64> visited;
    u64 at = base;
    for (bool more = true; more && visited.insert(at).second;) {
        const u64 table_sector = at;
        const bool is_first = table_sector == base;
        const byte_view sector =
            read_sector(saturating_product(table_sector, sector_size));
        if (is_first && sector.empty()) return false;
        if (!is_first && !is_table_sector(sector)) return true;
        more = false;
        for (unsigned i = 0; i < mbr::record_count && !more; ++i) {
            const table_record record = read_table_record(sector, i);
            if (!record.is_usable()) break;
            more = record.is_extended();
            // A link counts from the start of the extended partition, a volume from the
            // table that lists it.
            const u64 start = (more ? base : table_sector) + record.first_sector;
            partitions.emplace_back(start, record.sectors, record.type, sector_size);
            if (more)
                at = start;
            else if (is_first)
                out_last_type = record.type;
        }
    }
    return true;
}

namespace {

sector_reader make_reader(byte_view bytes)
{
    return [bytes](u64 position) {
        byte_view sector;
        bytes.sub(position, mbr::size, sector);
        return sector;
    };
}

void walk_buffer(partition_list &partitions, byte_view bytes, u32 sector_size)
{
    for (unsigned i = 0; i < mbr::record_count; ++i) {
        const table_record record = read_table_record(bytes, i);
        if (!record.is_usable()) return;
        partitions.emplace_back(record.first_sector, record.sectors, record.type,
                                sector_size);
        if (!record.is_extended()) continue;
        u8 last_type = 0;
        walk_extended(partitions, last_type, record.first_sector, sector_size,
                      make_reader(bytes));
        return;
    }
}

void walk_lost_table(partition_list &partitions, byte_view bytes)
{
    for (u64 at = mbr::size; at < bytes.size(); at += mbr::size) {
        if (!is_table_sector(bytes.clip(at, mbr::size))) continue;
        u8 last_type = 0;
        walk_extended(partitions, last_type, at / mbr::size, default_sector_size,
                      make_reader(bytes));
        return;
    }
}

} // namespace

bool find_partitions_in_buffer(partition_list &out_partitions, byte_view bytes,
                               table_scan scan)
try {
    out_partitions.clear();
    if (bytes.size() < mbr::size) return false;
    // A sector larger than 512 bytes is only believed if more bytes follow it.
    u32 sector_size = find_sector_size(bytes.clip(0, mbr::size));
    if (sector_size == 0)
        sector_size = find_sector_size(bytes.clip(0, bytes.size() - 1));
    const bool is_volume = begins_with_volume(bytes);
    if ((is_volume || sector_size == 0) && scan == table_scan::off) return false;
    if (is_volume) {
        out_partitions.push_back(make_volume_entry(bytes.clip(0, mbr::size)));
        return true;
    }
    if (sector_size == 0 && begins_with_ext(bytes)) {
        out_partitions.push_back(
            make_volume_entry(bytes.clip(0, superblock::needed_size)));
        return true;
    }
    if (sector_size != 0)
        walk_buffer(out_partitions, bytes, sector_size);
    else
        walk_lost_table(out_partitions, bytes);
    for (partition_entry &entry : out_partitions) {
        const byte_view volume = bytes.from(entry.byte_offset());
        if (volume.size() >= boot_sector::min_size)
            read_volume_signature(entry, volume);
    }
    return !out_partitions.empty();
} catch (const std::bad_alloc &) {
    return false;
}

} // namespace hv

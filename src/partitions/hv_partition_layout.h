#pragma once

#include "base/hv_byte_view.h"

#include <string_view>

namespace hv {

// clang-format off

/// Sector with a partition table: the first one of a disk (MBR), or one of the chain in an
/// extended partition (EBR).
namespace mbr {
inline constexpr std::size_t   size = 512;
inline constexpr std::size_t   m_disk_signature = 440; ///< u32
inline constexpr std::size_t   records          = 446; ///< four of them
inline constexpr std::size_t   m_mbr_signature  = 510; ///< u16
inline constexpr unsigned      record_count = 4;
inline constexpr u16           signature_value = 0xAA55;
} // namespace mbr

/// Partition record. Its cylinder, head and sector addresses aren't read.
namespace partition_record {
inline constexpr std::size_t   size = 16;
inline constexpr le_field<u8>  m_status             { 0};
inline constexpr std::size_t   m_chs_first_address =  1; ///< 3 bytes
inline constexpr le_field<u8>  m_partition_type     { 4};
inline constexpr std::size_t   m_chs_last_address  =  5; ///< 3 bytes
inline constexpr le_field<u32> m_LBA_first_sector   { 8};
inline constexpr le_field<u32> m_num_sectors        {12};
} // namespace partition_record

/// GPT header, in the sector after the MBR.
namespace gpt_header {
inline constexpr std::size_t   signature =  0;
inline constexpr std::string_view signature_text = "EFI PART";
inline constexpr le_field<u64> own_lba      {24}; ///< 1
inline constexpr le_field<u64> array_lba    {72};
inline constexpr le_field<u32> entry_count  {80};
inline constexpr le_field<u32> entry_size   {84}; ///< bytes
} // namespace gpt_header

/// GPT entry.
namespace gpt_entry {
inline constexpr std::size_t   type_guid      =  0; ///< all zero: a free slot
inline constexpr std::size_t   partition_guid = 16;
inline constexpr le_field<u64> first_lba       {32};
inline constexpr le_field<u64> last_lba        {40}; ///< inclusive
inline constexpr le_field<u32> attributes_low  {48};
inline constexpr std::size_t   name           = 56; ///< UTF-16
inline constexpr std::size_t   name_size      = 72; ///< bytes
inline constexpr std::size_t   size           = 128;
inline constexpr std::size_t   guid_size      = 16;
} // namespace gpt_entry

/// Boot sector of a FAT, exFAT or NTFS volume: the fields that describe a partition.
namespace boot_sector {
inline constexpr std::size_t   oem_name            =  3; ///< 8 bytes
inline constexpr le_field<u16> bytes_per_sector     {11};
inline constexpr le_field<u8>  sectors_per_cluster  {13};
inline constexpr le_field<u32> fat_sectors          {32};
inline constexpr le_field<u32> fat16_serial         {39};
inline constexpr le_field<u16> fat32_flags          {40};
inline constexpr le_field<u64> ntfs_sectors         {40};
inline constexpr std::size_t   fat16_name          = 54; ///< "FAT16"
inline constexpr le_field<u32> fat32_serial         {67};
inline constexpr le_field<u32> ntfs_serial          {72}; ///< low half
inline constexpr le_field<u64> exfat_sectors        {72};
inline constexpr std::size_t   fat32_name          = 82; ///< "FAT32"
inline constexpr le_field<u32> exfat_serial         {100};
inline constexpr le_field<u8>  exfat_sector_shift   {108};
inline constexpr le_field<u8>  exfat_cluster_shift  {109};
inline constexpr std::size_t   min_size          = 76; ///< up to the last NTFS field
} // namespace boot_sector

/// Superblock of ext and volume header of HFS, counted from the start of the volume.
namespace superblock {
inline constexpr le_field<u16> hfs_signature  {1024};
inline constexpr le_field<u32> ext_blocks     {1028};
inline constexpr le_field<u32> ext_log_block  {1048}; ///< block size: 1024 << this
inline constexpr le_field<u16> ext_magic      {1080};
inline constexpr le_field<u32> ext_serial     {1128};
inline constexpr std::size_t   ext_label      = 1144; ///< 16 bytes of text
inline constexpr std::size_t   ext_label_size = 16;
inline constexpr std::size_t   ext_mount      = 1160; ///< 64 bytes of text
inline constexpr std::size_t   ext_mount_size = 64;
inline constexpr std::size_t   needed_size    = 2048; ///< bytes of a volume that show ext
inline constexpr u16 ext_magic_value = 0xEF53;
inline constexpr u16 hfs_plus = 0x2B48;
inline constexpr u16 hfs_x    = 0x5848;
} // namespace superblock

// clang-format on

/// Reads a field of one of these layouts; missing bytes count as zero.
template <std::unsigned_integral T>
constexpr T read_field(byte_view bytes, le_field<T> field)
{
    return bytes.read_padded<T>(field.offset);
}

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"

namespace hv {

// clang-format off

/// Boot sector: the first 512 bytes of a volume.
namespace ntfs_boot {
inline constexpr std::size_t   size = 512;
inline constexpr std::size_t   signature = 3; ///< "NTFS" and four blanks
inline constexpr le_field<u16> bytes_per_sector    {11};
inline constexpr le_field<u8>  sectors_per_cluster {13}; ///< above 128 an exponent
inline constexpr le_field<u8>  media_descriptor    {21};
inline constexpr le_field<u64> total_sectors       {40};
inline constexpr le_field<u64> mft_start_lcn       {48};
inline constexpr le_field<u64> mftmirr_start_lcn   {56};
inline constexpr le_field<u8>  clusters_per_record {64}; ///< signed; negative: an exponent
inline constexpr le_field<u8>  clusters_per_index  {68};
inline constexpr le_field<u64> serial_number       {72};
inline constexpr le_field<u32> checksum            {80};
} // namespace ntfs_boot

/// "FILE" record: one entry of the $MFT.
namespace file_record {
inline constexpr u32           signature = 0x454C4946; ///< "FILE"
inline constexpr u32           bad_signature = 0x44414142; ///< "BAAD"
inline constexpr le_field<u32> signature_field     { 0};
inline constexpr le_field<u16> fixup_offset        { 4};
inline constexpr le_field<u16> fixup_count         { 6}; ///< the first is the check value
inline constexpr le_field<u64> lsn                 { 8};
inline constexpr le_field<u16> sequence            {16};
inline constexpr le_field<u16> link_count          {18};
inline constexpr le_field<u16> first_attribute     {20};
inline constexpr le_field<u16> flags               {22}; ///< 1 in use, 2 directory
inline constexpr le_field<u32> bytes_in_use        {24};
inline constexpr le_field<u32> bytes_allocated     {28};
inline constexpr le_field<u64> base_reference      {32};
inline constexpr le_field<u32> entry               {44}; ///< not in records of old systems
inline constexpr std::size_t   header_size = 48;

inline constexpr u16 flag_in_use = 1;
inline constexpr u16 flag_directory = 2;

// The record test. A record with its update sequence at another offset than 48 is
// refused. Systems before Windows XP wrote it at 42; such records pass on request.
inline constexpr u16 required_fixup_offset = 48;
inline constexpr u16 old_fixup_offset = 42;
inline constexpr u16 max_fixups = 9;
inline constexpr u16 max_first_attribute = 72;
} // namespace file_record

/// Attribute header, with the fields of both forms.
namespace attribute {
inline constexpr std::size_t type           =  0; ///< u32
inline constexpr std::size_t length         =  4; ///< u32
inline constexpr std::size_t non_resident   =  8; ///< u8
inline constexpr std::size_t name_length    =  9; ///< u8, UTF-16 units
inline constexpr std::size_t name_offset    = 10; ///< u16
inline constexpr std::size_t flags          = 12; ///< u16, 1 compressed
inline constexpr std::size_t id             = 14; ///< u16
inline constexpr std::size_t content_length = 16; ///< u32, resident
inline constexpr std::size_t content_offset = 20; ///< u16, resident
inline constexpr std::size_t first_vcn      = 16; ///< u64, non-resident from here on
inline constexpr std::size_t last_vcn       = 24; ///< u64
inline constexpr std::size_t runs_offset    = 32; ///< u16
inline constexpr std::size_t compression_unit = 34; ///< u16
inline constexpr std::size_t allocated_size = 40; ///< u64
inline constexpr std::size_t real_size      = 48; ///< u64
inline constexpr std::size_t valid_size     = 56; ///< u64
inline constexpr std::size_t compressed_size = 64; ///< u64, only on compressed streams
inline constexpr u32 end_marker = 0xFFFFFFFF;
} // namespace attribute

/// $STANDARD_INFORMATION content.
namespace standard_information {
inline constexpr std::size_t created         =  0; ///< u64 FILETIME, as the next three
inline constexpr std::size_t modified        =  8;
inline constexpr std::size_t mft_changed     = 16;
inline constexpr std::size_t accessed        = 24;
inline constexpr std::size_t file_attributes = 32; ///< u32
inline constexpr std::size_t security_id     = 52; ///< u32
inline constexpr std::size_t usn             = 64; ///< u64, if there are 72 bytes
inline constexpr std::size_t full_size       = 72;
} // namespace standard_information

/// $FILE_NAME content.
namespace file_name {
inline constexpr std::size_t parent         =  0; ///< u64 reference
inline constexpr std::size_t created        =  8; ///< u64 FILETIME, as the next three
inline constexpr std::size_t modified       = 16;
inline constexpr std::size_t mft_changed    = 24;
inline constexpr std::size_t accessed       = 32;
inline constexpr std::size_t allocated_size = 40; ///< u64
inline constexpr std::size_t real_size      = 48; ///< u64
inline constexpr std::size_t flags          = 56; ///< u32
inline constexpr std::size_t reparse_value  = 60; ///< u32
inline constexpr std::size_t name_length    = 64; ///< u8, UTF-16 units
inline constexpr std::size_t name_space     = 65; ///< u8
inline constexpr std::size_t name           = 66;
inline constexpr std::size_t fixed_size     = 68; ///< often copied whole
inline constexpr u8 dos_name_space = 2;
} // namespace file_name

/// $ATTRIBUTE_LIST entry.
namespace list_entry {
inline constexpr std::size_t type        =  0; ///< u32
inline constexpr std::size_t length      =  4; ///< u16
inline constexpr std::size_t name_length =  6; ///< u8, UTF-16 units
inline constexpr std::size_t name_offset =  7; ///< u8
inline constexpr std::size_t first_vcn   =  8; ///< u64
inline constexpr std::size_t reference   = 16; ///< u64 of the record that holds it
inline constexpr std::size_t id          = 24; ///< u16
inline constexpr std::size_t size        = 26;
} // namespace list_entry

/// "INDX" block, always treated as 4096 bytes.
namespace index_block {
inline constexpr u32         signature = 0x58444E49; ///< "INDX"
inline constexpr std::size_t fixup_offset = 4;  ///< u16
inline constexpr std::size_t fixup_count  = 6;  ///< u16
inline constexpr std::size_t vcn          = 16; ///< u64
inline constexpr std::size_t header       = 24;
inline constexpr std::size_t size         = 4096;
} // namespace index_block

/// Index header, in an "INDX" block and in $INDEX_ROOT. Offsets in it count from its
/// own start.
namespace index_header {
inline constexpr std::size_t first_entry     =  0; ///< u32 offset
inline constexpr std::size_t bytes_in_use    =  4; ///< u32
inline constexpr std::size_t bytes_allocated =  8; ///< u32
inline constexpr std::size_t flags           = 12; ///< u32
} // namespace index_header

/// $INDEX_ROOT content.
namespace index_root {
inline constexpr std::size_t indexed_type = 0; ///< u32
inline constexpr std::size_t collation    = 4; ///< u32
inline constexpr std::size_t block_size   = 8; ///< u32
inline constexpr std::size_t header       = 16;
inline constexpr std::size_t min_size   = 32;
} // namespace index_root

/// Index entry of a directory: a reference and a copy of the child's $FILE_NAME.
namespace index_entry_layout {
inline constexpr std::size_t reference       =  0; ///< u64 of the child
inline constexpr std::size_t length          =  8; ///< u16
inline constexpr std::size_t content_length  = 10; ///< u16
inline constexpr std::size_t flags           = 12; ///< u16, 1 sub-node, 2 last entry
inline constexpr std::size_t padding         = 14; ///< u16
inline constexpr std::size_t content         = 16; ///< laid out as $FILE_NAME content
inline constexpr std::size_t name_length     = 80; ///< u8
inline constexpr std::size_t name_space      = 81; ///< u8
inline constexpr std::size_t name            = 82;
} // namespace index_entry_layout

/// $REPARSE_POINT content.
namespace reparse_point {
inline constexpr std::size_t tag               =  0; ///< u32
inline constexpr std::size_t data_length       =  4; ///< u16
inline constexpr std::size_t substitute_offset =  8; ///< u16, from `buffer`
inline constexpr std::size_t substitute_length = 10; ///< u16, bytes
inline constexpr std::size_t print_offset      = 12; ///< u16, from `buffer`
inline constexpr std::size_t print_length      = 14; ///< u16, bytes
inline constexpr std::size_t buffer            = 16;
} // namespace reparse_point

// clang-format on

/// Type codes of attributes.
enum class attribute_type : u32 {
    standard_information = 16,
    attribute_list = 32,
    file_name = 48,
    object_id = 64,
    security_descriptor = 80,
    volume_name = 96,
    volume_information = 112,
    data = 128,
    index_root = 144,
    index_allocation = 160,
    bitmap = 176,
    reparse_point = 192,
    ea_information = 208,
    ea = 224,
    property_set = 240,
    logged_stream = 256,
};

/// True if the type code of an attribute, as stored, is `wanted`.
constexpr bool is_type(u32 code, attribute_type wanted)
{
    return code == static_cast<u32>(wanted);
}

/// Entry numbers that every volume has.
inline constexpr u64 mft_entry_number = 0;
inline constexpr u64 root_entry_number = 5;
inline constexpr u64 bitmap_entry_number = 6;

/// The entry number and the sequence number of a file reference.
constexpr u64 reference_entry(u64 reference)
{
    return reference & 0xFFFFFFFFFFFF;
}
constexpr u16 reference_sequence(u64 reference)
{
    return static_cast<u16>(reference >> 48);
}

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"

#include <array>
#include <string_view>

namespace hv {

// clang-format off

/// The header at the start of every block of the shadow-copy service. Its identifier is
/// `vss_identifier`.
namespace vss_block {
inline constexpr std::size_t   identifier      =  0; ///< 16 bytes
inline constexpr le_field<u8>  version         {16};
inline constexpr le_field<u32> type            {20};
inline constexpr le_field<u64> relative_offset {24};
inline constexpr le_field<u64> offset          {32}; ///< of this block on the volume
inline constexpr le_field<u64> next_offset     {40}; ///< of the next block; 0 at the end
inline constexpr le_field<u64> further_size    {48};
inline constexpr std::size_t   header_size = 128;
inline constexpr std::size_t   block_size = 16384;   ///< of most blocks, header included
} // namespace vss_block

/// The volume's header of the service, at a fixed place.
namespace vss_volume_header {
inline constexpr u64           position = 0x1E00;    ///< on the volume
inline constexpr le_field<u64> catalog_offset {48};  ///< on the volume; 0 without shadow copies
inline constexpr std::size_t   size = 56;            ///< of what is read of it
} // namespace vss_volume_header

/// Entry of the catalog. Which fields it has depends on the type.
namespace vss_catalog_entry {
inline constexpr le_field<u64> type                  { 0};
inline constexpr std::size_t   store_id              = 16; ///< 16 bytes
// type 2
inline constexpr le_field<u64> volume_size           { 8};
inline constexpr le_field<u64> store_number          {32};
inline constexpr le_field<u64> unknown               {40};
inline constexpr le_field<u64> created               {48}; ///< FILETIME
// type 3
inline constexpr le_field<u64> block_list_offset     { 8};
inline constexpr le_field<u64> store_header_offset   {32};
inline constexpr le_field<u64> range_list_offset     {40};
inline constexpr le_field<u64> bitmap_offset         {48};
inline constexpr le_field<u64> file_reference        {56};
inline constexpr le_field<u64> allocation_size       {64};
inline constexpr le_field<u64> previous_bitmap       {72};
inline constexpr le_field<u64> store_index           {80}; ///< shown as this value + 1
inline constexpr std::size_t   size = 128;
} // namespace vss_catalog_entry

/// Store header: one block.
namespace vss_store_header {
inline constexpr std::size_t   information_id    = 128; ///< 16 bytes
inline constexpr std::size_t   snapshot_id       = 144; ///< 16 bytes
inline constexpr std::size_t   snapshot_set_id   = 160; ///< 16 bytes
inline constexpr le_field<u32> type              {176};
inline constexpr le_field<u32> provider          {180};
inline constexpr le_field<u32> attribute_flags   {184};
inline constexpr std::size_t   operating_machine = 192; ///< u16 length in bytes, UTF-16
inline constexpr std::size_t   fixed_size = 192;        ///< a second text follows the first
} // namespace vss_store_header

/// Block descriptor: one copied block of a store.
namespace vss_descriptor {
inline constexpr le_field<u64> original_offset   { 0}; ///< its place on the volume
inline constexpr le_field<u64> relative_offset   { 8}; ///< of a forwarder: where the block went
inline constexpr le_field<u64> store_offset      {16}; ///< of the kept bytes, on the volume
inline constexpr le_field<u32> flags             {24};
inline constexpr le_field<u32> allocation_bitmap {28}; ///< one bit for each sector
inline constexpr std::size_t   size = 32;
inline constexpr std::size_t   max_in_block =
    (vss_block::block_size - vss_block::header_size) / size;
inline constexpr u32 all_sectors = ~u32{0};
inline constexpr u32 forwarder = 0x1; ///< the block was moved to the relative offset
inline constexpr u32 overlay   = 0x2; ///< only the sectors of the allocation bitmap
inline constexpr u32 not_used  = 0x4;
inline constexpr u32 flag_8    = 0x8; ///< unknown; alone, it is taken on request only
} // namespace vss_descriptor

/// Record of a block range list.
namespace vss_range {
inline constexpr le_field<u64> offset          { 0};
inline constexpr le_field<u64> relative_offset { 8};
inline constexpr le_field<u64> range_size      {16};
inline constexpr std::size_t   size = 24;
inline constexpr std::size_t   min_block = vss_block::header_size + size;
} // namespace vss_range

/// Bitmap after a block header: one bit for each block of the volume, the least
/// significant first.
namespace vss_bitmap {
inline constexpr std::size_t   bits       = 128;        ///< to the end of the block
inline constexpr u64           bytes      = 16256;
inline constexpr u64           covered    = 0x7F000000; ///< bytes of the volume
inline constexpr unsigned      byte_shift = 17;         ///< one byte of bits
inline constexpr unsigned      bit_shift  = 14;         ///< one bit
} // namespace vss_bitmap

// clang-format on

inline constexpr std::array<u8, 16> vss_identifier = {
    0x6B, 0x87, 0x08, 0x38, 0x76, 0xC1, 0x48, 0x4E,
    0xB7, 0xAE, 0x04, 0x04, 0x6E, 0x6C, 0xC7, 0x52};
inline constexpr std::string_view vss_identifier_text =
    "3808876b-c176-4e48-b7ae-04046e6cc752";

/// Types of blocks.
enum class vss_block_type : u32 {
    volume_header = 1,
    catalog = 2,
    descriptors = 3,
    store_header = 4,
    block_ranges = 5,
    bitmap = 6,
};

/// What a type of block is called in reports. Kept for callers of the library.
std::string_view vss_block_type_name(u32 type);

} // namespace hv

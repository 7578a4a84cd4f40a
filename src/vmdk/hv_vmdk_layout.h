#pragma once

#include "base/hv_byte_view.h"

#include <string_view>

namespace hv {

// clang-format off

/// Sparse header: the first 512 bytes of a virtual disk file. The fields are packed.
namespace vmdk_header {
inline constexpr std::size_t   size = 512;
inline constexpr u32           signature = 0x564D444B; ///< "KDMV" as bytes
inline constexpr le_field<u32> magic              { 0};
inline constexpr le_field<u32> version            { 4};
inline constexpr le_field<u32> flags              { 8};
inline constexpr le_field<u64> capacity           {12}; ///< sectors, as are all sizes
inline constexpr le_field<u64> grain_size         {20}; ///< and offsets of the header
inline constexpr le_field<u64> descriptor_offset  {28};
inline constexpr le_field<u64> descriptor_size    {36};
inline constexpr le_field<u32> entries_per_table  {44};
inline constexpr le_field<u64> spare_directory    {48}; ///< never read
inline constexpr le_field<u64> directory_offset   {56};
inline constexpr u64           directory_at_end = ~u64{0}; ///< stream-optimised files
inline constexpr le_field<u64> overhead           {64}; ///< before the first grain
inline constexpr le_field<u8>  unclean_shutdown   {72};
inline constexpr le_field<u8>  end_of_line        {73};
inline constexpr le_field<u8>  no_end_of_line     {74};
inline constexpr le_field<u8>  double_end_first   {75};
inline constexpr le_field<u8>  double_end_second  {76};
inline constexpr le_field<u16> compression        {77};
inline constexpr std::size_t   padding           = 79;

/// How `dump_header` shows a field; with a width of 0, without its value.
struct label {
    std::size_t offset;
    std::size_t width; ///< bytes
    std::string_view text;
};
inline constexpr label labels[] = {
    {magic.offset,             4, "magic number:            0x"},
    {version.offset,           4, "version:                 0x"},
    {flags.offset,             4, "flags:                   0x"},
    {capacity.offset,          8, "capacity:                0x"},
    {grain_size.offset,        8, "grain size:              0x"},
    {descriptor_offset.offset, 8, "descriptor offset:       0x"},
    {descriptor_size.offset,   8, "descriptor size:         0x"},
    {entries_per_table.offset, 4, "grain entries per table: 0x"},
    {spare_directory.offset,   8, "dup grain dir offset:    0x"},
    {directory_offset.offset,  8, "grain dir offset:        0x"},
    {overhead.offset,          8, "overhead for metadata:   0x"},
    {unclean_shutdown.offset,  1, "unclean shutdown:        0x"},
    {end_of_line.offset,       1, "signal EOL character:    0x"},
    {no_end_of_line.offset,    1, "non EOL character:       0x"},
    {double_end_first.offset,  1, "double EOL char (1st):   0x"},
    {double_end_second.offset, 1, "double EOL char (2nd):   0x"},
    {compression.offset,       2, "compression algorithm:   0x"},
    {padding,                  0, "pad for 433 (0x1b1) bytes"},
};

/// How `dump_header` shows the flags. Nothing else depends on them.
struct flag_label {
    u32 mask;
    std::string_view text;
};
inline constexpr flag_label flag_labels[] = {
    {0x001, "\t- valid new line detection"},
    {0x002, "\t- redundant grain table present"},
    {0x010, "\t- grains are compressed"},
    {0x100, "\t- markers exist"},
};
} // namespace vmdk_header

// clang-format on

/// The grain directory and the grain tables are arrays of u32: the sector of each table
/// or grain in the file, or 0 if there is none.
inline constexpr std::size_t vmdk_entry_size = 4;

/// Bytes of a sector, the unit of all sizes and offsets in a virtual disk file.
inline constexpr u32 vmdk_sector_size = 512;

} // namespace hv

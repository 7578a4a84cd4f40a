#pragma once

#include "base/hv_byte_view.h"

/// The on-disk layouts of what Windows keeps about deleted files. Offsets are bytes
/// from the start of each structure.
namespace hv {

// clang-format off

/// `$I` file: one deleted file. Version 1 is 544 bytes long, version 2 ends with its path.
namespace dollar_i {
inline constexpr le_field<u32> version      { 0}; ///< 1 or 2; 8 bytes, the upper half is 0
inline constexpr le_field<u64> file_size    { 8}; ///< bytes
inline constexpr le_field<u64> deleted_time {16}; ///< FILETIME
inline constexpr std::size_t   path_1       = 24; ///< version 1: UTF-16LE, 520 bytes
inline constexpr le_field<u32> path_units   {24}; ///< version 2: with the ending zero
inline constexpr std::size_t   path_2       = 28; ///< version 2: UTF-16LE
inline constexpr std::size_t   size_1       = 544;
inline constexpr std::size_t   min_size_2   = 30;
inline constexpr u32           max_units    = 2048;
/// The longest path that Windows takes, with its ending zero, and the file that holds it.
inline constexpr u32           longest_path = 0x8000;
inline constexpr std::size_t   max_size_2   = path_2 + std::size_t{2} * longest_path;
} // namespace dollar_i

/// Header of a list, a file named `INFO2` or `INFO`. Its records follow.
namespace list_header {
inline constexpr le_field<u32> version      { 0}; ///< 0 Windows 95, 2 NT 4, 4 98, 5 2000
inline constexpr le_field<u32> record_size  {12}; ///< 800, or 280 in versions 0 and 4
inline constexpr std::size_t   size         = 20;
} // namespace list_header

/// Record of a list: one deleted file. Records of 280 bytes end before `wide_path`.
namespace list_record {
inline constexpr std::size_t   ansi_path      =   0; ///< 8-bit code page; first byte 0: struck
inline constexpr std::size_t   ansi_path_size = 260;
inline constexpr le_field<u32> number       {260};
inline constexpr le_field<u32> drive        {264}; ///< 0 is A, 26 a network path
inline constexpr le_field<u64> deleted_time {268}; ///< FILETIME
inline constexpr le_field<u32> file_size    {276}; ///< bytes, rounded up to clusters
inline constexpr std::size_t   wide_path      = 280; ///< UTF-16LE, 520 bytes
inline constexpr std::size_t   size           = 800;
inline constexpr std::size_t   short_size     = 280;
} // namespace list_record

// clang-format on

} // namespace hv

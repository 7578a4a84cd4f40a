#pragma once

#include "vmdk/hv_vmdk_layout.h"

namespace hv {

// clang-format off

/// What the sparse header says of compressed extents, which `vmdk_header` leaves out.
namespace vmdk_flags {
inline constexpr u32 is_compressed = 0x10000;
inline constexpr u32 has_markers   = 0x20000;
} // namespace vmdk_flags

/// A compressed extent ends with a copy of the header, which knows where the directory
/// is, and a sector of zeros.
inline constexpr u64 vmdk_footer_from_end = 1024;

/// An entry of a grain table: a grain of zeros, whatever the parent has.
inline constexpr u32 vmdk_zero_grain = 1;

/// Before the bytes of a compressed grain, if the extent has markers.
namespace vmdk_grain_marker {
inline constexpr std::size_t   size = 12;
inline constexpr le_field<u64> sector      {0}; ///< of the extent, uncompressed
inline constexpr le_field<u32> packed_bytes{8};
} // namespace vmdk_grain_marker

/// Header of the sparse extents of ESX servers: "COWD". Offsets and sizes in sectors.
namespace cowd_header {
inline constexpr std::size_t   size = 36;
inline constexpr le_field<u32> capacity          {12};
inline constexpr le_field<u32> grain_size        {16};
inline constexpr le_field<u32> directory_offset  {20};
inline constexpr le_field<u32> directory_entries {24};
inline constexpr u64           entries_per_table = 4096;
} // namespace cowd_header

// clang-format on

} // namespace hv

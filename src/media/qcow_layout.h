#pragma once

#include "base/hv_types.h"

#include <cstddef>

namespace hv {

// clang-format off

/// Header of a qcow or qcow2 file. Its numbers are big endian.
namespace qcow_header {
inline constexpr std::size_t version         =  4; ///< u32: 1, 2 or 3
inline constexpr std::size_t backing_offset  =  8; ///< u64: in the file; 0 without one
inline constexpr std::size_t backing_length  = 16; ///< u32, bytes
inline constexpr std::size_t encryption_1    = 36; ///< u32, of version 1
inline constexpr std::size_t encryption      = 32; ///< u32: 0 none, 1 AES, 2 LUKS
inline constexpr std::size_t incompatible    = 72; ///< u64, of version 3
inline constexpr std::size_t size            = 80;
inline constexpr u32 max_name = 1023;

inline constexpr u64 is_dirty      = 0x01; ///< counts may be wrong; its bytes aren't
inline constexpr u64 external_data = 0x04; ///< the clusters are in another file
} // namespace qcow_header

/// Header of a QED file. Its numbers are little endian.
namespace qed_header {
inline constexpr std::size_t features    = 16; ///< u64
inline constexpr u64 has_backing_file    = 0x01;
} // namespace qed_header

// clang-format on

} // namespace hv

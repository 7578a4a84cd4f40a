#pragma once

#include "base/hv_types.h"

#include <cstddef>

namespace hv {

// clang-format off

/// Header of a qcow or qcow2 file. Its numbers are big endian.
namespace qcow_header {
inline constexpr std::size_t version        =  4; ///< u32: 1, 2 or 3
inline constexpr std::size_t backing_offset =  8; ///< u64: in the file; 0 without one
inline constexpr std::size_t backing_length = 16; ///< u32, bytes
inline constexpr std::size_t cluster_bits   = 20; ///< u32; from here on as of version 2
inline constexpr std::size_t disk_size      = 24; ///< u64, bytes
inline constexpr std::size_t encryption     = 32; ///< u32: 0 none, 1 AES, 2 LUKS
inline constexpr std::size_t l1_entries     = 36; ///< u32; in version 1, the encryption
inline constexpr std::size_t l1_offset      = 40; ///< u64
inline constexpr std::size_t incompatible   = 72; ///< u64, as of version 3
inline constexpr std::size_t size           = 80;
inline constexpr u32 max_name = 1023;
inline constexpr u64 min_cluster_bits = 9;
inline constexpr u64 max_cluster_bits = 21;

inline constexpr u64 is_dirty      = 0x01; ///< counts may be wrong; the bytes aren't
inline constexpr u64 is_corrupt    = 0x02; ///< a program noticed a contradiction
inline constexpr u64 external_data = 0x04; ///< the clusters are in another file
inline constexpr u64 other_packing = 0x08; ///< not deflate
} // namespace qcow_header

/// An entry of the first table has the offset of a second one; an entry of that is a
/// cluster. Both are u64.
namespace qcow_entry {
inline constexpr std::size_t size = 8;
inline constexpr u64 offset_mask   = 0x00FF'FFFF'FFFF'FE00;
inline constexpr u64 is_compressed = u64{1} << 62;
inline constexpr u64 is_zero       = 1; ///< as of version 3
inline constexpr u64 packed_unit   = 512; ///< the size of a compressed cluster
inline constexpr u64 packed_bits   = 62;  ///< of its offset and its size together
} // namespace qcow_entry

/// Header of a QED file. Its numbers are little endian.
namespace qed_header {
inline constexpr std::size_t features = 16; ///< u64
inline constexpr u64 has_backing_file = 0x01;
} // namespace qed_header

// clang-format on

} // namespace hv

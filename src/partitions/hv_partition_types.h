#pragma once

#include "base/hv_byte_view.h"

#include <string>
#include <string_view>

/// What the type codes of partitions mean.
namespace hv {

/// Type codes that the walks over partition tables act upon.
namespace partition_type {
inline constexpr u8 fat16 = 4;
inline constexpr u8 extended = 5;
inline constexpr u8 ntfs_or_exfat = 7;
inline constexpr u8 fat32 = 12;
inline constexpr u8 extended_lba = 15;
inline constexpr u8 linux_native = 131;
inline constexpr u8 hfs = 175;
inline constexpr u8 gpt = 238;
} // namespace partition_type

/// Whether a record of this type is believed to name a partition. The names below know
/// more types: they are for display.
bool is_known_partition_type(u8 type);

/// The name of a partition type for people: "unk" for an unknown one, with " [guess]"
/// behind it for a guessed one.
std::string partition_type_name(u16 type);

/// The name of a GPT partition type by its GUID of 16 bytes as on the disk; empty for
/// an unknown one.
std::string_view gpt_type_name(byte_view guid);

} // namespace hv

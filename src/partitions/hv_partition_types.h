#pragma once

#include "base/hv_byte_view.h"

#include <string>
#include <string_view>

/// The meaning of partition type codes, in the MBR and in the GPT.
namespace hv {

/// MBR type codes that the code itself uses.
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

/// Whether an MBR record of this type is accepted as a partition. `partition_type_name`
/// knows more types than these; it is for display.
bool is_known_partition_type(u8 type);

/// The display name of an MBR type: "unk" for an unknown one. " [guess]" follows it if
/// `partition_entry::guessed_type` is set.
std::string partition_type_name(u16 type);

/// The display name of a GPT partition type, by the 16 bytes of its GUID as on the
/// disk; empty for an unknown one.
std::string_view gpt_type_name(byte_view guid);

} // namespace hv

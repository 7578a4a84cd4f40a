#pragma once

#include "base/hv_byte_view.h"

#include <string_view>

namespace hv {

/// A field with the label that dumps write before its digits.
template <std::unsigned_integral T> struct labelled_field {
    using value_type = T;
    std::size_t offset = 0;
    std::string_view label = {};
};

// clang-format off

/// SID: identifies a user or a group. The authority is big endian.
namespace sid_layout {
inline constexpr labelled_field<u8> revision      { 0, "SID rev:            0x"};
inline constexpr labelled_field<u8> count         { 1, "subauthority count: 0x"};
inline constexpr std::size_t        authority     =  2; ///< 6 bytes
inline constexpr std::size_t        authority_end =  8;
inline constexpr std::size_t        subauthority  =  8; ///< u32, `count` times
inline constexpr std::size_t        min_size    = 12;
inline constexpr std::string_view authority_label    = "ident authority:    0x";
inline constexpr std::string_view subauthority_label = "subauthority:       0x";
} // namespace sid_layout

/// Self-relative security descriptor. An offset of 0 means that there is no such part.
namespace descriptor_layout {
inline constexpr labelled_field<u8>  revision { 0, "rev:                0x"};
inline constexpr labelled_field<u8>  padding  { 1, "pad:                0x"};
inline constexpr labelled_field<u16> control  { 2, "control:            0x"};
inline constexpr labelled_field<u32> owner    { 4, "owner:              0x"};
inline constexpr labelled_field<u32> group    { 8, "group:              0x"};
inline constexpr labelled_field<u32> sacl     {12, "sacl:               0x"};
inline constexpr labelled_field<u32> dacl     {16, "dacl:               0x"};
} // namespace descriptor_layout

/// Header of an ACL; the first ACE follows.
namespace acl_layout {
inline constexpr labelled_field<u8>  revision    {0, "rev:                0x"};
inline constexpr labelled_field<u8>  padding     {1, "pad:                0x"};
inline constexpr labelled_field<u16> size        {2, "size:               0x"};
inline constexpr labelled_field<u16> ace_count   {4, "count:              0x"};
inline constexpr labelled_field<u16> padding_end {6, "unk:                0x"};
inline constexpr std::size_t         header_size = 8;
} // namespace acl_layout

/// ACE: the rights of one trustee in an ACL.
namespace ace_layout {
inline constexpr labelled_field<u8>  type        {0, "type:               0x"};
inline constexpr labelled_field<u8>  flags       {1, "flags:              0x"};
inline constexpr labelled_field<u16> size        {2, "size:               0x"};
inline constexpr labelled_field<u32> access_mask {4, "access_mask:        0x"};
inline constexpr std::size_t         sid         = 8; ///< of object ACEs as well
} // namespace ace_layout

/// Entry of the stream "$SDS", which holds each descriptor of a volume once. A block
/// of entries is followed by its mirror, a block with the same bytes.
namespace sds_entry {
inline constexpr le_field<u32> hash     { 0}; ///< of the descriptor
inline constexpr le_field<u32> id       { 4};
inline constexpr le_field<u64> position { 8}; ///< in the stream; in a mirror the original's
inline constexpr le_field<u32> length   {16}; ///< bytes, with this header
inline constexpr std::size_t   header_size = 20;
inline constexpr u64 alignment  = 16;
inline constexpr u64 block_size = u64{256} * 1024;
} // namespace sds_entry

// clang-format on

/// The MFT entry of "$Secure", on every volume.
inline constexpr u64 secure_entry_number = 9;

} // namespace hv

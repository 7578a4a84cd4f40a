#pragma once

#include "base/hv_byte_view.h"

#include <span>

/// The compression of NTFS streams. A compression unit is a row of chunks; a chunk is a
/// u16 header (bit 15: compressed, low 12 bits: payload bytes - 1) and a payload that
/// decodes to at most 4096 bytes. A payload is made of groups: a flag byte, then eight
/// items, bit 0 ruling the first; a clear bit is a literal byte, a set bit a u16 token
/// that copies bytes written before.
namespace hv {

inline constexpr std::size_t lznt1_block = 4096;
inline constexpr std::size_t lznt1_most_output = 16384;

/// Decodes the payload of one chunk into `out`, of at most 16384 bytes. Bytes of `out`
/// that the payload doesn't reach keep what they held, unless the payload has fewer
/// than 9 bytes: then they are zero. False for a longer `out`, or for a token that
/// reaches ahead of the first byte; `out` then holds what came before it.
bool decode_lznt1_chunk(byte_view input, std::span<u8> out);

/// Expands one compression unit into `out`, which is as long as plain bytes are still
/// wanted; `out_count` says how many came. A unit of which `found_sparse` says that no
/// cluster was sparse was stored plain and is copied, unless it begins like a stored
/// chunk. Each chunk gives 4096 bytes; where it decodes to fewer, the rest is what the
/// chunk before left in its place. A unit that turns out to be no row of chunks is
/// copied from its start, if its last 4096 bytes aren't all zero. False if they are, or
/// for nothing to read or to fill.
bool expand_unit(std::span<u8> out, std::size_t &out_count, byte_view unit,
                 bool found_sparse);

} // namespace hv

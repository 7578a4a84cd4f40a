#pragma once

#include "base/hv_byte_view.h"

#include <span>

/// The compression of NTFS streams. A compression unit is a row of chunks; a chunk is a
/// u16 header (bit 15: compressed, low 12 bits: payload bytes - 1) and a payload that
/// decodes to at most 4096 bytes. A payload is made of groups: a flag byte, then eight
/// items, of which bit 0 describes the first. A clear bit means a literal byte, a set
/// bit a u16 token that copies bytes written before.
namespace hv {

/// What a chunk of a stream decodes to, in bytes.
inline constexpr std::size_t lznt1_block = 4096;
/// No longer output is accepted by `decode_lznt1_chunk`.
inline constexpr std::size_t lznt1_max_output = 16384;

/// Decodes the payload of one chunk into `out`, of at most `lznt1_max_output` bytes.
/// Bytes of `out` that the payload doesn't reach keep what they held, unless the
/// payload has fewer than 9 bytes: then they are zero. False for a longer `out`, or for
/// a token that copies from before the first byte; `out` then holds what was decoded
/// before the token.
bool decode_lznt1_chunk(byte_view input, std::span<u8> out);

/// Expands one compression unit into `out`, which takes as many plain bytes as are
/// wanted; `out_count` becomes the bytes written. `found_sparse` says that the unit had
/// a sparse cluster. Without one it was stored plain and is copied, unless it begins
/// like a stored chunk. Each chunk counts as 4096 bytes; where it decodes to fewer, the
/// rest is what the chunk before left at the same place. A unit that turns out not to
/// be a row of chunks is copied from its start, if its last 4096 bytes aren't all zero.
/// False if they are, or if `unit` or `out` is empty.
bool expand_unit(std::span<u8> out, std::size_t &out_count, byte_view unit,
                 bool found_sparse);

} // namespace hv

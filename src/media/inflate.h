#pragma once

#include "base/hv_byte_view.h"

#include <span>

namespace hv {

/// Whether the program was built with zlib.
bool can_inflate();

/// How a compressed stream is wrapped.
enum class deflate_form {
    zlib, ///< RFC 1950, with a checksum
    raw   ///< RFC 1951
};

/// The best that the method can do: no stream becomes longer than this many times its
/// own length. What is longer isn't worth the memory to decode it into.
inline constexpr u64 max_inflation = 1032;

/// Decodes a compressed stream into `out`, as much as there is room for. Returns
/// how many bytes that made; 0 if the stream is damaged, or without zlib.
std::size_t inflate_block(std::span<u8> out, byte_view packed, deflate_form form);

} // namespace hv

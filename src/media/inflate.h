#pragma once

#include "base/hv_byte_view.h"

#include <span>

namespace hv {

/// Whether the program was built with zlib.
bool can_inflate();

/// Decodes a zlib stream (RFC 1950) into `out`, as much as there is room for. Returns
/// how many bytes that made; 0 if the stream is damaged, or without zlib.
std::size_t inflate_zlib(std::span<u8> out, byte_view packed);

} // namespace hv

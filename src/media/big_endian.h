#pragma once

#include "base/hv_byte_view.h"

namespace hv {

/// The big endian number of `count` bytes, at most 8, at `offset`; zeros follow after
/// the end of the bytes.
inline u64 big_endian(byte_view bytes, u64 offset, std::size_t count)
{
    u64 number = 0;
    for (std::size_t i = 0; i < count; ++i)
        number = number << 8 | bytes.read_padded<u8>(offset + i);
    return number;
}

} // namespace hv

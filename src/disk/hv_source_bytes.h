#pragma once

#include "disk/hv_byte_source.h"

#include <algorithm>
#include <vector>

namespace hv {

/// The `count` bytes at `offset` of a source; fewer at its end. No more memory is taken
/// than the source has bytes there.
inline std::vector<u8> read_bytes(const byte_source &source, u64 offset,
                                  std::size_t count)
{
    if (offset >= source.size()) return {};
    std::vector<u8> bytes(std::min<u64>(count, source.size() - offset));
    bytes.resize(source.read(offset, bytes));
    return bytes;
}

} // namespace hv

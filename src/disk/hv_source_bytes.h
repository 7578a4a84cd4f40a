#pragma once

#include "disk/hv_byte_source.h"

#include <vector>

namespace hv {

/// The `count` bytes at `offset` of a source; fewer at its end. `count` is a limit of
/// the caller's own, never a number from a disk.
inline std::vector<u8> read_bytes(const byte_source &source, u64 offset,
                                  std::size_t count)
{
    std::vector<u8> bytes(count);
    bytes.resize(offset < source.size() ? source.read(offset, bytes) : 0);
    return bytes;
}

} // namespace hv

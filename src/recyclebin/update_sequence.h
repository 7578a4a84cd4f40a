#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/sighting.h"

namespace hv {

/// On a medium, the last two bytes of each sector of a FILE record or an index block
/// are a check value; what belongs there is kept in the head of the record. Puts it
/// back into `bytes`, which were read from these ranges. Bytes outside of such records,
/// and sectors without the check value, stay as they are. Returns how many pairs of
/// bytes were put back.
std::size_t undo_update_sequence(std::span<u8> bytes, const byte_source &medium,
                                 const std::vector<byte_range> &ranges);

} // namespace hv

#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/sighting.h"

namespace hv {

/// Proofs are small; more than this of one isn't read.
inline constexpr u64 max_proof_bytes = 1 << 20;

/// Reads stretches of a medium, one after the other. False, with nothing in `bytes`, if
/// they are more than `max_proof_bytes`, or if one of them passes the medium's end.
bool read_ranges(std::vector<u8> &bytes, const byte_source &medium,
                 const std::vector<byte_range> &ranges);

/// The sum of these bytes; empty if they can't be read.
std::string sha256_of_ranges(const byte_source &medium,
                             const std::vector<byte_range> &ranges);

} // namespace hv

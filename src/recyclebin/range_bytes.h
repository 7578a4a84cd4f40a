#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/sighting.h"

namespace hv {

/// Proofs are small; more than this of one isn't read.
inline constexpr u64 max_proof_bytes = 1 << 20;

/// Reads stretches of a medium, one after the other. False, with nothing in `bytes`, if
/// they are more than `max_proof_bytes`, if one of them passes the medium's end, or if
/// a byte can't be read: no zero takes its place.
bool read_ranges(std::vector<u8> &bytes, const byte_source &medium,
                 const std::vector<byte_range> &ranges);
/// The same for the bytes that prove a sighting: those of `seen.file`, which is opened,
/// or else of the medium.
bool read_proof(std::vector<u8> &bytes, const byte_source &medium,
                const sighting &seen);

/// The sum of these bytes; empty if there are none, or if they can't be read.
std::string sha256_of_ranges(const byte_source &medium,
                             const std::vector<byte_range> &ranges);
/// The same for the bytes that prove a sighting.
std::string sha256_of_proof(const byte_source &medium, const sighting &seen);

/// The path of `file` below `folder`, both as bytes of this system, as text; different
/// paths stay different. Empty if it isn't below it.
std::u16string relative_path(const std::string &file, const std::string &folder);
/// The opposite. Empty, too, for a path that would lead out of the folder.
std::string path_below(const std::string &folder, const std::u16string &relative);

} // namespace hv

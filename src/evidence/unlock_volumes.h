#pragma once

#include "media/bitlocker.h"

#include <vector>

namespace hv {

/// A medium with its locked volumes unlocked, each at its place.
struct unlocked_medium {
    byte_source_ptr source; ///< the medium itself, if nothing was unlocked
    /// For a user: "BitLocker volume at offset 1048576, unlocked".
    std::vector<std::string> unlocked;
    /// Why other volumes stay locked, as sentences for a user.
    std::vector<std::string> problems;
};

/// Looks for BitLocker volumes where the tables of a medium say that a partition is,
/// and at its start, and unlocks those that it can. Offsets stay those of the medium.
unlocked_medium unlock_volumes(const byte_source_ptr &medium, const volume_keys &keys);

} // namespace hv

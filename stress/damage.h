#pragma once

#include "stress/choices.h"
#include "stress/structures.h"

/// Damage as media have it, and damage as someone would plan it.
namespace stress {

/// What was done to a medium.
struct damage {
    std::vector<byte_range> touched; ///< bytes that may be other than before, in order
    bool is_vital = false;           ///< one of them is in a vital structure
    std::string story; ///< for whoever repeats it: "bit 3 of byte 0x1A2; ..."
};

/// Damages a medium once, as `decide` wants it: single bits, bytes, sectors that are
/// zeroed, filled, swapped or copied over another, a cut end; or fields of a structure
/// (sizes, offsets, counts, references, flags, run lists, names, times) set to values
/// that lie at limits or belong to another structure, with the update sequence,
/// checksums and lengths that guard them made right again. `structures` are those of
/// the undamaged medium. Adds to `done`.
void damage_once(damage &done, std::vector<u8> &medium,
                 const std::vector<structure> &structures, choices &decide);

} // namespace stress

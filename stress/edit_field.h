#pragma once

#include "stress/choices.h"
#include "stress/structures.h"

/// Edits of single fields, and of what records are made of.
namespace stress {

/// What an edit may look at.
struct editing {
    std::span<const u8> medium;
    const std::vector<structure> &structures; ///< of the undamaged medium
    const structure &target;                  ///< the one that is edited
    choices &decide;
};

/// Changes one field of a structure, whose update sequence has been undone, or takes a
/// record apart and puts it together in another way. Says what was done.
std::string edit_field(std::vector<u8> &bytes, const editing &context);

} // namespace stress

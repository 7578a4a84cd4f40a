#pragma once

#include "stress/structures.h"

/// What guards structures against being believed when they are damaged: update
/// sequences and checksums.
namespace stress {

/// Where the update sequence of a record or a block is.
struct update_sequence {
    std::size_t array = 0; ///< 0: none, or it doesn't hold
    u16 check = 0;
};

/// Puts the ends of the sectors back that the update sequence of a "FILE" record or an
/// "INDX" block replaces. Leaves anything else, and torn ones, as they are.
update_sequence undo_updates(std::span<u8> bytes);
/// Replaces them again, where they were.
void redo_updates(std::span<u8> bytes, const update_sequence &updates);

/// Where the headers of GPTs are.
std::vector<u64> gpt_headers(std::span<const u8> medium,
                             const std::vector<structure> &structures);
/// Makes both checksums of the header there right again.
void redo_checksums(std::span<u8> medium, u64 header);

} // namespace stress

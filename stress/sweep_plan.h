#pragma once

#include "stress/sweep_media.h"
#include "stress/systematic.h"

/// Which inputs a sweep consists of.
namespace stress {

/// A medium with damage.
struct sweep_input {
    const sweep_medium *medium = nullptr;
    std::vector<u8> bytes;
    damage done;
};

/// Every second input is systematic damage until there is no more of it; the others are
/// random, one to several damages at once. A medium gets fewer of them the larger it
/// is.
class sweep_plan {
public:
    /// `media` have been learnt, and outlive this. There is at least one.
    sweep_plan(const std::vector<sweep_medium> &media, u64 seed);

    /// The same input for the same number, seed and media.
    sweep_input input(u64 number) const;

private:
    struct systematic_part {
        systematic_damage all;
        u64 taken = 0; // of all: each `all.count() / taken`th
        u64 end = 0;   // of its numbers
    };

    sweep_input systematic(u64 item) const;
    sweep_input random(u64 number) const;

    const std::vector<sweep_medium> &m_media;
    u64 m_seed;
    std::vector<systematic_part> m_parts; // one for each medium
    std::vector<u64> m_weight_ends;
};

} // namespace stress

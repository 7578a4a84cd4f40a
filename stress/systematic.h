#pragma once

#include "stress/damage.h"
#include "stress/sweep_media.h"

/// Damage of a medium that leaves nothing out: numbered, so that each can be repeated.
namespace stress {

/// A cut at every sector of its structures, each of these zeroed, each swapped with the
/// next and, of a medium that takes them, each bit of the structures that count.
class systematic_damage {
public:
    /// `medium` has been learnt, and outlives this.
    explicit systematic_damage(const sweep_medium &medium);

    u64 count() const { return 3 * m_sectors.size() + 8 * m_bytes.size(); }
    /// Damages a copy of the medium, as number `item` of all.
    damage apply(std::vector<u8> &copy, u64 item) const;

private:
    damage cut(std::vector<u8> &copy, u64 at) const;
    damage zero(std::vector<u8> &copy, u64 at) const;
    damage swap(std::vector<u8> &copy, u64 at) const;
    damage turn_bit(std::vector<u8> &copy, u64 at, unsigned bit) const;
    void note(damage &done, const std::vector<u8> &copy, byte_range range) const;

    const sweep_medium &m_medium;
    std::vector<u64> m_sectors;
    std::vector<u64> m_bytes;
};

} // namespace stress

#pragma once

#include "evidence/carve.h"
#include "evidence/carve_volume.h"

#include <list>

namespace hv {

/// Carves what the search for volumes reads, so that no byte between volumes is read
/// twice. Each stretch between two volumes has a store of its own.
class gap_search {
public:
    /// The medium outlives the search.
    explicit gap_search(const byte_source &medium) : m_medium(medium) {}

    /// Bytes in no volume, in order; holes of the medium are left out.
    void see(u64 position, byte_view bytes);
    /// Nothing more will be seen: `take` may then give a part of a gap.
    void cut_short() { m_is_cut_short = true; }
    /// The evidence of a gap, numbered as a region. Nothing if what was seen isn't
    /// exactly this gap: a volume that seemed to be there may be none.
    std::optional<region_evidence> take(const byte_range &gap, u32 number);

private:
    struct stretch {
        region_evidence evidence{0};
        carve_keeper keeper{evidence, nullptr};
        carver search{keeper};
        std::vector<byte_range> seen;
    };
    bool is_hole(u64 begin, u64 end) const;
    bool is_all_of(const stretch &found, const byte_range &gap) const;

    const byte_source &m_medium;
    std::list<stretch> m_stretches; // in order of their places
    bool m_is_cut_short = false;
};

} // namespace hv

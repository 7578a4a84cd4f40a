#include "evidence/gap_search.h"

#include "evidence/byte_ranges.h"

namespace hv {

bool gap_search::is_hole(u64 begin, u64 end) const
{
    return begin >= end || m_medium.next_data(begin) >= end;
}

void gap_search::see(u64 position, byte_view bytes)
{
    if (bytes.empty()) return;
    const bool follows = !m_stretches.empty() &&
                         is_hole(end_of(m_stretches.back().seen.back()), position);
    if (!follows) {
        if (!m_stretches.empty()) m_stretches.back().search.finish();
        m_stretches.emplace_back();
    }
    stretch &last = m_stretches.back();
    last.search.carve(bytes, position);
    append_range(last.seen, {position, bytes.size()});
}

// Whether nothing of the gap but holes is missing, and nothing else was seen.
bool gap_search::is_all_of(const stretch &found, const byte_range &gap) const
{
    if (found.seen.front().offset < gap.offset ||
        end_of(found.seen.back()) > end_of(gap))
        return false;
    return m_is_cut_short ||
           std::ranges::all_of(rest_of(gap, found.seen), [&](const byte_range &rest) {
               return is_hole(rest.offset, end_of(rest));
           });
}

std::optional<region_evidence> gap_search::take(const byte_range &gap, u32 number)
{
    for (stretch &found : m_stretches) {
        if (!is_all_of(found, gap)) continue;
        found.search.finish();
        found.evidence.renumber(number);
        return std::move(found.evidence);
    }
    return {};
}

} // namespace hv

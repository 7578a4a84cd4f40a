#include "evidence/region_evidence.h"

namespace hv {

void region_evidence::add(sighting seen)
{
    seen.volume = m_number;
    const u64 place = seen.ranges.empty() ? ~u64{0} : seen.ranges.front().offset;
    const auto [begin, end] = m_places.equal_range(place);
    for (auto known = begin; known != end; ++known) {
        sighting &same = m_sightings[known->second];
        if (same.kind != seen.kind || same.ranges != seen.ranges ||
            same.name != seen.name)
            continue;
        same.views.insert(seen.views.begin(), seen.views.end());
        if (same.user.empty()) same.user = seen.user;
        return;
    }
    m_places.emplace(place, m_sightings.size());
    m_sightings.push_back(std::move(seen));
}

void region_evidence::add_user(const entry_id &folder, const std::u16string &name)
{
    m_users.emplace(folder, name);
}

const std::u16string *region_evidence::user(const entry_id &folder) const
{
    const auto found = m_users.find(folder);
    return found == m_users.end() ? nullptr : &found->second;
}

} // namespace hv

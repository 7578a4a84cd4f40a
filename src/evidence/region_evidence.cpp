#include "evidence/region_evidence.h"

#include "base/hv_checked_math.h"

#include <algorithm>
#include <functional>

namespace hv {

namespace {

// Equal for sightings of one thing, and hardly ever for others.
std::size_t key_of(const sighting &seen)
{
    constexpr std::size_t factor = 0x9E3779B97F4A7C15;
    const u64 place = seen.ranges.empty() ? ~u64{0} : seen.ranges.front().offset;
    const std::size_t where = (place + static_cast<u64>(seen.kind)) * factor;
    return where ^ std::hash<std::u16string>()(seen.name);
}

} // namespace

void region_evidence::renumber(u32 number)
{
    m_number = number;
    for (sighting &seen : m_sightings) seen.volume = number;
}

void region_evidence::add(sighting seen)
{
    seen.volume = m_number;
    const std::size_t key = key_of(seen);
    const auto [begin, end] = m_known.equal_range(key);
    for (auto known = begin; known != end; ++known) {
        sighting &same = m_sightings[known->second];
        if (same.kind != seen.kind || same.ranges != seen.ranges ||
            same.name != seen.name)
            continue;
        same.views.insert(seen.views.begin(), seen.views.end());
        if (same.user.empty()) same.user = seen.user;
        if (same.owner.empty()) same.owner = seen.owner;
        return;
    }
    m_known.emplace(key, m_sightings.size());
    m_sightings.push_back(std::move(seen));
}

void region_evidence::add_user(const entry_id &folder, const std::u16string &name,
                               u64 created)
{
    const auto [begin, end] = m_users.equal_range(folder);
    const bool is_known = std::any_of(begin, end, [&](const auto &known) {
        return known.second.name == name && known.second.created == created;
    });
    if (!is_known) m_users.emplace(folder, user_folder{created, name});
}

const std::u16string *region_evidence::user(const entry_id &folder, u64 moment) const
{
    // Two clocks may have told the times of one event.
    constexpr u64 leeway = 20'000'000;
    const auto [begin, end] = m_users.equal_range(folder);
    const user_folder *best = nullptr;
    for (auto known = begin; known != end; ++known)
        if (known->second.created <= saturating_sum(moment, leeway) &&
            (best == nullptr || known->second.created > best->created))
            best = &known->second;
    return best == nullptr ? nullptr : &best->name;
}

} // namespace hv

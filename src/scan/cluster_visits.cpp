#include "scan/cluster_visits.h"

#include <algorithm>
#include <iterator>

namespace hv {

std::vector<std::pair<u64, u64>> cluster_visits::take(u64 first, u64 end)
{
    std::vector<std::pair<u64, u64>> parts;
    const auto add = [&parts](u64 from, u64 to) {
        if (!parts.empty() && parts.back().second == from)
            parts.back().second = to;
        else
            parts.emplace_back(from, to);
    };
    split_at(first);
    split_at(end);
    auto next = m_known.lower_bound(first);
    for (u64 at = first; at < end;) {
        if (next == m_known.end() || next->first > at) {
            const u64 to = next == m_known.end() ? end : std::min(end, next->first);
            m_known.emplace_hint(next, at, stretch{to, 1});
            add(at, to);
            at = to;
            continue;
        }
        if (next->second.visits < m_most) {
            ++next->second.visits;
            add(at, next->second.end);
        }
        at = next->second.end;
        ++next;
    }
    return parts;
}

// Makes a stretch that holds a cluster end before it, and another begin with it.
void cluster_visits::split_at(u64 cluster)
{
    const auto next = m_known.lower_bound(cluster);
    if (next == m_known.begin()) return;
    const auto previous = std::prev(next);
    if (previous->second.end <= cluster) return;
    m_known.emplace_hint(next, cluster, previous->second);
    previous->second.end = cluster;
}

} // namespace hv

#pragma once

#include "base/hv_types.h"

#include <map>
#include <utility>
#include <vector>

namespace hv {

/// Counts how often each cluster of a volume was handed out, stretch by stretch, so
/// that run lists that name the same clusters over and over can't cost more than a few
/// passes over the volume. Real files share no clusters.
class cluster_visits {
public:
    explicit cluster_visits(unsigned most) : m_most(most) {}

    /// The parts of the clusters from `first` to before `end` that were handed out
    /// fewer than `most` times so far, ascending, each as its first cluster and the one
    /// after its last. They count as handed out now.
    std::vector<std::pair<u64, u64>> take(u64 first, u64 end);

private:
    struct stretch {
        u64 end = 0;
        unsigned visits = 0;
    };

    void split_at(u64 cluster);

    std::map<u64, stretch> m_known; ///< by first cluster, apart from each other
    unsigned m_most;
};

} // namespace hv

#include "ntfs/hv_attribute_list.h"

#include "ntfs/ntfs.h"

#include <algorithm>

namespace hv {

std::vector<u8> read_attribute_list(const CNtfs &volume, attribute_ref list,
                                    u64 &budget)
{
    std::vector<u8> bytes;
    if (budget == 0) return bytes;
    if (list.non_resident()) {
        // Clusters may be larger than the limit: one has to be read in any case.
        const u64 most = std::max<u64>(max_list_bytes, volume.get_cluster_size());
        bytes = volume.read_attribute_clusters(list, most);
    } else {
        const auto content = list.content().bytes();
        bytes.assign(content.begin(), content.end());
    }
    budget -= std::min<u64>(budget, bytes.size());
    return bytes;
}

void listed_records::add(u64 entry, attribute_key key)
{
    const auto [place, is_new] = m_index.try_emplace(entry, m_records.size());
    if (is_new) m_records.push_back({entry, {}});
    m_records[place->second].keys.insert(key);
}

} // namespace hv

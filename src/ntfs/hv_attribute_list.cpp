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
        bytes = volume.read_attribute_clusters(list, max_list_bytes);
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

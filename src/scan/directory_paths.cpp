#include "scan/directory_paths.h"

#include "base/hv_string.h"
#include "ntfs/hv_ntfs_layout.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace hv {

namespace {

constexpr std::string_view root_text = "[root]";

// Longer paths can't be opened by any Windows; only loops of damaged records make them.
constexpr std::size_t max_path = 32767;

std::string unknown_name(u64 entry)
{
    return "[unk_inode_" + number_text(entry, true, 8) + "]";
}

class path_builder {
public:
    path_builder(_inode_collection &collection, u64 max_text)
        : m_collection(collection),
          m_records(collection.records),
          m_budget(max_text)
    {
    }

    void resolve(u64 entry, u64 index)
    {
        if (entry == root_entry_number) {
            m_records.set_path(index, std::string(root_text) + "/");
            m_records.edit(index).path_resolved = true;
            m_records.edit(index).path_complete = true;
            return;
        }
        if (m_records[index].path_resolved) return;
        collect_chain(index);
        write_chain();
    }

private:
    // Gathers the unresolved directories from `index` up, and the path above them. Each
    // becomes part of one chain only, as all of it is resolved afterwards.
    void collect_chain(u64 index)
    {
        m_chain.assign(1, index);
        m_start.clear();
        m_complete = false;
        std::set<u64> seen = {index};
        while (m_records[m_chain.back()].has_parents()) {
            const u64 parent = m_records[m_chain.back()].first_parent;
            if (parent == root_entry_number) {
                m_start = root_text;
                m_complete = true;
                return;
            }
            const auto found = m_collection.directories.find(parent);
            if (found == m_collection.directories.end()) {
                m_start = unknown_name(parent);
                return;
            }
            if (m_records[found->second].path_resolved) {
                m_start = m_records.path(found->second);
                m_complete = m_records[found->second].path_complete;
                return;
            }
            // Damaged records can be each other's parents.
            if (!seen.insert(found->second).second) return;
            m_chain.push_back(found->second);
        }
    }

    void write_chain()
    {
        std::string text = m_start;
        for (; !m_chain.empty(); m_chain.pop_back()) {
            const u64 index = m_chain.back();
            std::string_view name = m_records.name(index);
            const std::string unknown = unknown_name(m_records[index].entry);
            if (name.empty()) name = unknown;
            if (text.size() + name.size() > max_path || text.size() > m_budget) {
                text.clear();
                m_complete = false;
            }
            if (!text.empty() && !text.ends_with('\\')) text += '\\';
            text += name;
            text += '\\';
            m_records.set_path(index, text);
            m_records.edit(index).path_resolved = true;
            m_records.edit(index).path_complete = m_complete;
            m_budget -= std::min<u64>(m_budget, text.size());
        }
    }

    _inode_collection &m_collection;
    inode_store &m_records;
    u64 m_budget; ///< bytes that paths may still take
    std::vector<u64> m_chain;
    std::string m_start;
    bool m_complete = false;
};

} // namespace

u64 directory_text_budget(u64 source_size)
{
    constexpr u64 min_budget = u64{16} << 20;
    return std::max(source_size, min_budget);
}

void build_directory_paths(_inode_collection &collection, u64 max_text)
{
    path_builder builder(collection, max_text);
    for (const auto &[entry, index] : collection.directories)
        builder.resolve(entry, index);
}

} // namespace hv

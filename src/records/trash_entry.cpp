#include "records/trash_entry.h"

#include <algorithm>

namespace hv {

void result_list::add(std::string key, trash_entry entry)
{
    m_rows.emplace_back(std::move(key), std::move(entry));
}

std::vector<const trash_entry *> result_list::in_order() const
{
    // Entries are big: only pointers to the rows are sorted, once.
    std::vector<const row *> rows;
    rows.reserve(m_rows.size());
    for (const row &one : m_rows) rows.push_back(&one);
    std::stable_sort(rows.begin(), rows.end(),
                     [](const row *a, const row *b) { return a->first < b->first; });
    std::vector<const trash_entry *> entries;
    entries.reserve(rows.size());
    for (const row *one : rows) entries.push_back(&one->second);
    return entries;
}

const trash_entry *result_list::first() const
{
    const auto least =
        std::min_element(m_rows.begin(), m_rows.end(),
                         [](const row &a, const row &b) { return a.first < b.first; });
    return least == m_rows.end() ? nullptr : &least->second;
}

} // namespace hv

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
    for (const row &entry : m_rows) rows.push_back(&entry);
    std::ranges::stable_sort(rows, {}, &row::first);
    std::vector<const trash_entry *> entries;
    entries.reserve(rows.size());
    for (const row *entry : rows) entries.push_back(&entry->second);
    return entries;
}

const trash_entry *result_list::first() const
{
    const auto first = std::ranges::min_element(m_rows, {}, &row::first);
    return first == m_rows.end() ? nullptr : &first->second;
}

} // namespace hv

#include "recovery/folder_members.h"

#include "base/hv_parse_rules.h"
#include "evidence/walk_parts.h"

#include <algorithm>
#include <memory>
#include <set>

namespace hv {

namespace {

constexpr std::size_t max_depth = 1024;
const parse_rules rules = parse_rules::complete();

} // namespace

folder_members::folder_members(volume_view_ptr view) : m_view(std::move(view))
{
    m_view->for_each_record([&](u64 entry, byte_view raw) {
        record_bytes record;
        if (!read_record(record, raw, rules)) return;
        const file_facts facts = read_facts(record, entry);
        // A name may be in a record that extends the file's own.
        const u64 owner = facts.base ? facts.base->entry : entry;
        for (const file_name_fact &name : facts.names)
            if (name.parent.entry > walk::extend_entry)
                m_links.push_back({walk::reference_of(name.parent), owner});
    });
    std::ranges::sort(m_links);
    const auto end = std::unique(m_links.begin(), m_links.end());
    m_links.erase(end, m_links.end());
}

std::vector<folder_members::child>
folder_members::children_of(const entry_id &folder) const
{
    std::vector<child> children;
    const u64 reference = walk::reference_of(folder);
    for (auto each = std::ranges::lower_bound(m_links, reference, {}, &link::folder);
         each != m_links.end() && each->folder == reference; ++each) {
        file_facts facts;
        record_bytes record;
        if (!m_view->read_file(facts, record, each->entry)) continue;
        const file_name_fact *best = nullptr;
        for (const file_name_fact &name : facts.names)
            if (name.parent == folder &&
                (best == nullptr || best->name_space == file_name::dos_name_space))
                best = &name;
        if (best != nullptr)
            children.push_back({best->name, each->entry, facts.in_use});
    }
    std::ranges::stable_sort(children, {},
                             [](const child &each) { return !each.in_use; });
    return children;
}

item_record folder_members::record_of(u64 entry) const
{
    item_record found;
    record_bytes record;
    m_view->read_file(found.facts, record, entry);
    found.view = m_view;
    found.sound = record.sound;
    const bool is_now = m_view->number() == 0;
    if (found.facts.in_use)
        found.origin = is_now ? record_origin::live : record_origin::snapshot;
    else
        found.origin = is_now ? record_origin::freed : record_origin::freed_snapshot;
    return found;
}

void folder_members::for_each_below(
    const entry_id &folder, const std::function<bool(const member &)> &visit) const
{
    using name_list = std::vector<std::u16string>;
    struct pending {
        std::shared_ptr<const name_list> folder;
        std::u16string name;
        u64 entry = 0;
    };
    std::vector<pending> open;
    const auto enter = [&](const name_list &path, const entry_id &id) {
        const auto parent = std::make_shared<const name_list>(path);
        std::vector<child> children = children_of(id);
        for (auto each = children.rbegin(); each != children.rend(); ++each)
            open.push_back({parent, std::move(each->name), each->entry});
    };
    std::set<entry_id> entered = {folder};
    enter({}, folder);
    while (!open.empty()) {
        member next{*open.back().folder, record_of(open.back().entry)};
        next.path.push_back(std::move(open.back().name));
        open.pop_back();
        if (!visit(next)) return;
        const file_facts &facts = next.record.facts;
        const entry_id id{facts.id.entry, sequence_of_file(facts)};
        if (facts.is_directory && next.path.size() < max_depth &&
            entered.insert(id).second)
            enter(next.path, id);
    }
}

} // namespace hv

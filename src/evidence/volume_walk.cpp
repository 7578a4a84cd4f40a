#include "evidence/volume_walk.h"

#include "base/hv_checked_math.h"
#include "evidence/walk_parts.h"

#include <algorithm>

namespace hv {

using namespace walk;

volume_walk::volume_walk(const volume_view &view, region_evidence &evidence)
    : m_view(view),
      m_evidence(evidence),
      m_owners(view),
      m_byte_budget(
          saturating_sum(saturating_product(8, view.source_size()), u64{1} << 30U)),
      m_cluster_budget(
          saturating_sum(saturating_product(64, view.cluster_count()), u64{1} << 24U))
{
}

// False once a walk has cost more than any honest volume does.
bool volume_walk::spend(u64 amount, u64 &budget)
{
    if (amount > budget) return false;
    budget -= amount;
    return true;
}

evidence_source volume_walk::own_source() const
{
    return m_view.number() == 0 ? evidence_source::live : evidence_source::snapshot;
}

void volume_walk::collect()
{
    scan_records();
    find_folders();
    take_slack_names();
    look_at_items();
    read_indexes();
    read_journal();
    find_stores();
    find_restored();
}

// ---- All records, once

void volume_walk::scan_records()
{
    m_rows.resize(m_view.entry_count());
    m_view.for_each_record([&](u64 entry, byte_view raw) {
        if (entry < m_rows.size()) scan_record(entry, raw);
    });
}

void volume_walk::scan_record(u64 entry, byte_view raw)
{
    record_bytes record;
    if (!read_record(record, raw, rules)) return;
    const file_facts facts = read_facts(record, entry);
    search_record_slack(
        record,
        {evidence_source::record_slack, {m_view.number()}, [&](u64 at, u64 length) {
             return m_view.places_in_record(entry, at, length);
         }});
    const u64 owner = facts.base ? facts.base->entry : entry;
    if (owner >= m_rows.size()) return;
    row &of = m_rows[owner];
    if (!facts.base) {
        of.exists = true;
        of.sequence = facts.id.sequence;
        of.in_use = facts.in_use;
        of.is_directory = facts.is_directory;
    }
    if (facts.in_use && m_view.has_clusters()) note_slack(facts);
    // A name may be in a record that extends the file's own.
    for (const file_name_fact &name : facts.names) note_name(owner, facts, name);
}

// The end of a file's last cluster may hold what was there before.
void volume_walk::note_slack(const file_facts &facts)
{
    constexpr u64 sector = 512;
    const u64 cluster = m_view.cluster_size();
    for (const stream_fact &stream : facts.streams) {
        if (stream.is_resident || stream.is_compressed || stream.runs.empty() ||
            stream.first_vcn != 0 || !is_type(stream.type, attribute_type::data))
            continue;
        const u64 used = (stream.length + sector - 1) / sector * sector;
        u64 begin = 0;
        for (const flat_run &run : stream.runs) {
            const u64 bytes = run.clusters * cluster;
            const bool is_stored = !is_hole(run);
            if (is_stored && begin + bytes > used) {
                const u64 skip = used > begin ? used - begin : 0;
                m_file_slack.push_back({run.lcn * cluster + skip, bytes - skip});
            }
            begin += bytes;
        }
    }
}

void volume_walk::note_name(u64 entry, const file_facts &facts,
                            const file_name_fact &name)
{
    row &of = m_rows[entry];
    if (of.parent == 0 || name.name_space != file_name::dos_name_space)
        of.parent = reference_of(name.parent);
    if (is_interesting(kind_of_name(name.name))) m_items.insert(entry);
    if (facts.is_directory && name.parent.entry == root_entry_number &&
        is_bin_folder(name.name))
        m_bin_names[entry] = name.name;
    if (facts.is_directory && name.name == u"System Volume Information")
        m_svi.insert(entry);
    if (name.parent.entry == extend_entry && name.name == u"$UsnJrnl")
        m_journal = entry;
}

// ---- Folders

entry_id volume_walk::id_of(u64 entry) const
{
    const row &of = m_rows[entry];
    return {entry, static_cast<u16>(of.sequence - (of.in_use ? 0 : 1))};
}

bool volume_walk::matches(const entry_id &id) const
{
    return id.entry < m_rows.size() && m_rows[id.entry].exists && id_of(id.entry) == id;
}

void volume_walk::find_folders()
{
    for (const auto &[entry, name] : m_bin_names) m_evidence.add_bin(id_of(entry));
    // The record of a folder may be damaged, and its name in an index not.
    read_index({root_entry_number, root_entry_number}, {});
    const std::set<entry_id> bins = m_evidence.bins();
    for (const entry_id &bin : bins) read_index(bin, {});
    for (u64 entry = 0; entry < m_rows.size(); ++entry) {
        const row &of = m_rows[entry];
        if (!of.exists || !of.is_directory || !m_evidence.is_bin(entry_of(of.parent)))
            continue;
        file_facts facts;
        record_bytes record;
        if (!m_view.read_file(facts, record, entry)) continue;
        const file_name_fact *name = facts.name();
        if (name != nullptr && is_user_folder(name->name))
            m_evidence.add_user(id_of(entry), name->name, facts.times.created);
    }
}

// Whether the folder of today is the one of that moment. On a volume that was formatted
// anew, something else has its numbers.
bool volume_walk::was_folder_at(const entry_id &folder, u64 moment) const
{
    file_facts facts;
    record_bytes record;
    return matches(folder) && m_rows[folder.entry].is_directory &&
           m_view.read_file(facts, record, folder.entry) &&
           facts.times.created <= moment;
}

volume_walk::belonging volume_walk::belonging_of(const entry_id &parent,
                                                 u64 moment) const
{
    belonging where;
    if (const std::u16string *user = m_evidence.user(parent, moment))
        return {true, true, *user};
    if (m_evidence.is_bin(parent)) return {true, true, {}};
    where.is_known =
        m_evidence.users().count(parent) == 0 && was_folder_at(parent, moment);
    return where;
}

// ---- Items

void volume_walk::look_at_items()
{
    // The children of folders, for the members of deleted ones, which may be gone.
    for (u64 entry = 0; entry < m_rows.size(); ++entry) {
        const row &of = m_rows[entry];
        if (of.exists && of.parent != 0 && reference_entry(of.parent) > extend_entry)
            m_children[of.parent].push_back(entry);
    }
    for (const u64 entry : m_items) {
        file_facts facts;
        record_bytes record;
        if (m_view.read_file(facts, record, entry))
            look_at(facts, &record, ~u64{0}, own_source());
    }
}

void volume_walk::look_at(const file_facts &facts, const record_bytes *record,
                          u64 position, evidence_source source)
{
    // A record that a view has is as old as the view's folders.
    const u64 moment = position == ~u64{0} ? ~u64{0} : facts.times.record_changed;
    for (const file_name_fact &name : facts.names) {
        const bin_name_kind kind = kind_of_name(name.name);
        if (name.name_space == file_name::dos_name_space || !is_interesting(kind))
            continue;
        const looked_at file = {
            facts, record, name, belonging_of(name.parent, moment), position, source};
        // A folder that isn't known any more may have been a bin's.
        if (!file.where.is_in_bin &&
            (file.where.is_known || !is_made_by_windows(name.name)))
            continue;
        if (kind == bin_name_kind::metadata && !facts.is_directory) take_metadata(file);
        if (kind == bin_name_kind::list && !facts.is_directory) take_list(file);
        if (kind == bin_name_kind::data || kind == bin_name_kind::listed_data)
            take_data_item(file);
    }
}

// ---- What else the records tell

std::optional<std::u16string> volume_walk::path_outside(const entry_id &file) const
{
    if (!matches(file) || !m_rows[file.entry].in_use) return std::nullopt;
    std::u16string path;
    u64 entry = file.entry;
    for (int depth = 0; entry != root_entry_number && depth < max_depth; ++depth) {
        file_facts facts;
        record_bytes record;
        if (!m_view.read_file(facts, record, entry)) return std::nullopt;
        const file_name_fact *name = facts.name();
        if (name == nullptr || m_evidence.is_bin(name->parent) ||
            m_evidence.is_bin(id_of(entry)))
            return std::nullopt;
        path = u'\\' + name->name + path;
        if (!matches(name->parent)) return std::nullopt;
        entry = name->parent.entry;
    }
    return path;
}

void volume_walk::find_restored()
{
    std::vector<sighting> restored;
    for (const sighting &seen : m_evidence.sightings()) {
        const bin_name_kind kind = kind_of_name(seen.name);
        if (!seen.entry ||
            (kind != bin_name_kind::data && kind != bin_name_kind::listed_data))
            continue;
        const auto path = path_outside(*seen.entry);
        if (!path) {
            add_lost_folder(restored, seen);
            continue;
        }
        sighting found;
        found.kind = sighting_kind::restored_item;
        found.source = own_source();
        found.views = {m_view.number()};
        found.entry = seen.entry;
        found.in_use = true;
        found.name = seen.name;
        found.parent = seen.parent;
        found.user = seen.user;
        found.is_in_bin = seen.is_in_bin;
        found.outside_path = *path;
        found.ranges =
            m_view.places_in_record(seen.entry->entry, 0, m_view.record_size());
        found.content = m_view.has_clusters() ? data_state::whole : data_state::unknown;
        restored.push_back(std::move(found));
    }
    for (sighting &found : restored) m_evidence.add(std::move(found));
}

// A folder whose record is another file's now, but not those of the files in it.
void volume_walk::add_lost_folder(std::vector<sighting> &out,
                                  const sighting &name) const
{
    if (name.kind != sighting_kind::index_name || matches(*name.entry)) return;
    std::vector<std::u16string> members = members_of(*name.entry);
    if (members.empty()) return;
    sighting found = name;
    found.kind = sighting_kind::data_item;
    found.is_directory = true;
    found.members = std::move(members);
    found.content = data_state::none;
    found.data_size = 0;
    out.push_back(std::move(found));
}

// The stores of shadow copies are named by two GUIDs.
void volume_walk::find_stores()
{
    constexpr std::u16string_view suffix = u"{3808876b-c176-4e48-b7ae-04046e6cc752}";
    for (u64 entry = 0; entry < m_rows.size(); ++entry) {
        const row &of = m_rows[entry];
        if (!of.exists || !of.in_use || of.is_directory) continue;
        const u64 parent = reference_entry(of.parent);
        if (parent >= m_rows.size() || !m_svi.contains(parent)) continue;
        file_facts facts;
        record_bytes record;
        if (!m_view.read_file(facts, record, entry)) continue;
        const file_name_fact *name = facts.name();
        if (name == nullptr || !name->name.ends_with(suffix)) continue;
        for (const stream_fact &stream : facts.streams)
            if (is_type(stream.type, attribute_type::data) && stream.name.empty())
                m_store_runs.insert(m_store_runs.end(), stream.runs.begin(),
                                    stream.runs.end());
    }
}

} // namespace hv

#include "evidence/volume_walk.h"

#include "evidence/slack.h"
#include "evidence/walk_parts.h"

#include <algorithm>

namespace hv {

using namespace walk;

namespace {

constexpr u64 max_index = u64{256} << 20;
constexpr u64 max_journal = u64{4} << 30;

// What the slack of one record holds.
class slack_content : public carve_sink {
public:
    void found_metadata(u64 at, const deleted_file &file) override
    {
        metadata.emplace_back(at, file);
    }
    void found_name(u64 at, const slack_name &name) override
    {
        names.emplace_back(at, name);
    }

    // The name of an older file's record comes before its content.
    const std::pair<u64, slack_name> *name_before(u64 place) const
    {
        const std::pair<u64, slack_name> *last = nullptr;
        for (const auto &name : names)
            if (name.first < place && (last == nullptr || name.first > last->first) &&
                kind_of_name(name.second.name) == bin_name_kind::metadata)
                last = &name;
        return last;
    }

    std::vector<std::pair<u64, deleted_file>> metadata;
    std::vector<std::pair<u64, slack_name>> names;
};

} // namespace

// ---- Slack of records

void volume_walk::search_record_slack(const record_bytes &record,
                                      const seen_through &by)
{
    slack_content slack;
    hv::search_record_slack(record.view(), slack);
    for (const auto &[at, file] : slack.metadata) {
        sighting seen;
        seen.kind = sighting_kind::metadata;
        seen.source = by.source;
        seen.views = by.views;
        seen.ranges = by.places(at, file.length);
        seen.is_torn = at + file.length > record.sound;
        seen.metadata = file;
        if (const auto *name = slack.name_before(at)) {
            seen.name = name->second.name;
            seen.parent = name->second.parent;
            seen.times = name->second.times;
        }
        m_evidence.add(std::move(seen));
    }
    for (const auto &[at, name] : slack.names) {
        sighting seen;
        seen.kind = sighting_kind::index_name;
        seen.source = by.source;
        seen.views = by.views;
        seen.name = name.name;
        seen.parent = name.parent;
        seen.times = name.times;
        seen.ranges = by.places(at, name.length);
        if (is_made_by_windows(name.name)) m_slack_names.push_back(std::move(seen));
    }
}

// Names in slack, once the folders are known.
void volume_walk::take_slack_names()
{
    for (sighting &seen : m_slack_names) {
        if (!seen.parent) continue;
        const belonging where = belonging_of(*seen.parent, seen.times.record_changed);
        if (!where.is_in_bin && where.is_known) continue;
        seen.user = where.user;
        seen.is_in_bin = where.is_in_bin;
        m_evidence.add(std::move(seen));
    }
    m_slack_names.clear();
}

// ---- Indexes

void volume_walk::read_indexes()
{
    const auto users = m_evidence.users();
    for (const auto &[folder, user] : users) read_index(folder, user.name);
    const std::set<entry_id> bins = m_evidence.bins();
    for (const entry_id &bin : bins) read_index(bin, {});
}

// A name in the index of the root or of a bin may be that of a folder.
void volume_walk::note_folder(const sighting &seen, const entry_id &parent)
{
    if (!seen.entry) return;
    if (parent.entry == root_entry_number && is_bin_folder(seen.name))
        m_evidence.add_bin(*seen.entry);
    if (m_evidence.is_bin(parent) && is_user_folder(seen.name))
        m_evidence.add_user(*seen.entry, seen.name, seen.times.created);
}

void volume_walk::read_index(const entry_id &folder, const std::u16string &user)
{
    file_facts facts;
    record_bytes record;
    if (!matches(folder) || !m_view.read_file(facts, record, folder.entry)) return;
    search_names(
        record.view(), folder, user,
        [&](u64 at, u64 length) {
            return m_view.places_in_record(folder.entry, at, length);
        },
        record.used);
    file_content index;
    if (!m_view.read_stream(index, facts, max_index, attribute_type::index_allocation,
                            u"$I30") ||
        !spend(index.bytes.size(), m_byte_budget))
        return;
    constexpr std::size_t size = index_block::size;
    for (u64 at = 0; at + size <= index.bytes.size(); at += size) {
        std::vector<u8> block(index.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              index.bytes.begin() +
                                  static_cast<std::ptrdiff_t>(at + size));
        if (!apply_fixup(block, m_view.volume().get_bytes_per_sector())) continue;
        const u64 used =
            index_block::header + byte_view{block}.read_padded<u32>(
                                      index_block::header + index_header::bytes_in_use);
        search_names(
            byte_view{block}, folder, user,
            [&](u64 place, u64 length) {
                return part_of(index.ranges, at + place, length);
            },
            used);
    }
}

bool volume_walk::has_name_now(const entry_id &file, const std::u16string &name) const
{
    file_facts facts;
    record_bytes record;
    return m_items.contains(file.entry) && matches(file) && m_rows[file.entry].in_use &&
           m_view.read_file(facts, record, file.entry) &&
           std::ranges::any_of(facts.names, [&](const file_name_fact &each) {
               return each.name == name;
           });
}

bool volume_walk::is_record_lost(const entry_id &file) const
{
    return file.entry < m_rows.size() && !m_rows[file.entry].exists;
}

// Each name of an index, live or stale, begins with the reference of its folder.
void volume_walk::search_names(
    byte_view block, const entry_id &folder, const std::u16string &user,
    const std::function<std::vector<byte_range>(u64, u64)> &places, u64 used)
{
    constexpr u64 before = index_entry_layout::content;
    const u64 wanted = reference_of(folder);
    for (u64 at = 0; at + file_name::name < block.size(); at += 2) {
        if (block.read_padded<u64>(at) != wanted) continue;
        const u64 units = block.read_padded<u8>(at + file_name::name_length);
        byte_view text;
        if (units < 3 || !block.sub(at + file_name::name, 2 * units, text)) continue;
        sighting seen;
        seen.name = units_of(text);
        const u64 length = file_name::name + text.size();
        const u64 entry = at >= before ? block.read_padded<u64>(at - before) : 0;
        const u16 stated = at >= before
                               ? block.read_padded<u16>(
                                     at - before + index_entry_layout::content_length)
                               : 0;
        if (stated == length && is_believable(entry)) seen.entry = entry_of(entry);
        seen.times = times_of(block, at);
        note_folder(seen, folder);
        const bin_name_kind kind = kind_of_name(seen.name);
        if (!is_interesting(kind) || kind == bin_name_kind::list ||
            !(m_evidence.is_bin(folder) || m_evidence.users().contains(folder)))
            continue;
        // The record of a file that has this name still speaks for itself.
        if (seen.entry && has_name_now(*seen.entry, seen.name)) continue;
        seen.kind = sighting_kind::index_name;
        seen.source = at < used ? own_source() : evidence_source::index_slack;
        // A record that can't be read doesn't take its file out of the folder.
        seen.in_use = at < used && seen.entry && is_record_lost(*seen.entry);
        seen.views = {m_view.number()};
        seen.parent = folder;
        seen.user = user;
        seen.is_in_bin = true;
        seen.ranges = places(at, length);
        m_evidence.add(std::move(seen));
    }
}

// Every name of a block whose folder may be gone: entries whose lengths agree.
void volume_walk::take_carved_index(byte_view block, u64 position,
                                    evidence_source source)
{
    using namespace index_entry_layout;
    for (u64 at = index_block::header; at + hv::index_entry_layout::name < block.size();
         at += 8) {
        const u64 units = block.read_padded<u8>(at + name_length);
        byte_view text;
        if (block.read_padded<u16>(at + content_length) !=
                hv::file_name::name + 2 * units ||
            !block.sub(at + hv::index_entry_layout::name, 2 * units, text))
            continue;
        sighting seen;
        seen.kind = sighting_kind::index_name;
        seen.source = source;
        seen.name = units_of(text);
        if (is_believable(block.read_padded<u64>(at)))
            seen.entry = entry_of(block.read_padded<u64>(at));
        seen.parent = entry_of(block.read_padded<u64>(at + content));
        seen.times = times_of(block, at + content);
        const belonging where = belonging_of(*seen.parent, seen.times.record_changed);
        const bin_name_kind kind = kind_of_name(seen.name);
        if (is_user_folder(seen.name) && seen.entry)
            m_evidence.add_user(*seen.entry, seen.name, seen.times.created);
        if (kind == bin_name_kind::other || kind == bin_name_kind::list ||
            (!where.is_in_bin && (where.is_known || !is_made_by_windows(seen.name))))
            continue;
        seen.user = where.user;
        seen.is_in_bin = where.is_in_bin;
        seen.ranges = {{position + at + content, hv::file_name::name + 2 * units}};
        m_evidence.add(std::move(seen));
    }
}

// ---- The change journal

void volume_walk::read_journal()
{
    file_facts facts;
    record_bytes record;
    file_content content;
    if (!m_journal || !m_view.has_clusters() ||
        !m_view.read_file(facts, record, *m_journal))
        return;
    for (const stream_fact &stream : facts.streams) {
        if (!is_type(stream.type, attribute_type::data) || stream.name != u"$J")
            continue;
        u64 read = 0;
        for (const flat_run &run : stream.runs) {
            if (is_hole(run) || read > max_journal) continue;
            const u64 begin = run.lcn * m_view.cluster_size();
            const u64 length =
                std::min(max_journal, u64{run.clusters} * m_view.cluster_size());
            read += length;
            if (!spend(length, m_byte_budget)) return;
            for (u64 at = 0; at < length; at += journal_page_size)
                take_journal_page(begin + at);
        }
    }
}

void volume_walk::take_journal_page(u64 position)
{
    const std::vector<u8> page = m_view.read_at(position, journal_page_size);
    for_each_journal_record(byte_view{page}, [&](u64 at, const journal_record &record) {
        const auto places = m_view.places_at(position + at, record.length);
        take_journal_record(record, places, evidence_source::journal);
    });
}

void volume_walk::take_journal_record(const journal_record &record,
                                      const std::vector<byte_range> &places,
                                      evidence_source source)
{
    const bin_name_kind kind = kind_of_name(record.name);
    const belonging where = belonging_of(entry_of(record.parent), record.time);
    const bool is_named = kind == bin_name_kind::metadata ||
                          kind == bin_name_kind::data ||
                          kind == bin_name_kind::listed_data;
    if (!is_named ||
        (!where.is_in_bin && (where.is_known || !is_made_by_windows(record.name))))
        return;
    sighting seen;
    seen.kind = sighting_kind::journal_line;
    seen.source = source;
    if (source == evidence_source::journal) seen.views = {m_view.number()};
    seen.ranges = places;
    seen.entry = entry_of(record.reference);
    seen.name = record.name;
    seen.parent = entry_of(record.parent);
    seen.user = where.user;
    seen.is_in_bin = where.is_in_bin;
    seen.logged = record.time;
    seen.reason = record.reason;
    m_evidence.add(std::move(seen));
}

} // namespace hv

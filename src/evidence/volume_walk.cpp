#include "evidence/volume_walk.h"

#include "evidence/slack.h"
#include "formats/journal.h"

#include <algorithm>
#include <cstring>

namespace hv {

namespace {

constexpr u64 max_metadata = 65536;
constexpr u64 max_list = u64{64} << 20;
constexpr u64 max_index = u64{256} << 20;
constexpr u64 max_journal = u64{4} << 30;
constexpr u64 max_members = 1'000'000;
constexpr int max_depth = 1024; // of a path
constexpr u64 extend_entry = 11;

const parse_rules rules = parse_rules::complete();

u64 reference_of(const entry_id &id)
{
    return id.entry | u64{id.sequence} << 48U;
}

entry_id entry_of(u64 reference)
{
    return {reference_entry(reference), reference_sequence(reference)};
}

// An index entry's reference may have been written over by the end of its index.
bool is_believable(u64 reference)
{
    constexpr u64 max_entry = u64{1} << 32U;
    return reference_sequence(reference) != 0 && reference_entry(reference) < max_entry;
}

// The part of ranges that follow each other in a file.
std::vector<byte_range> part_of(const std::vector<byte_range> &ranges, u64 offset,
                                u64 length)
{
    std::vector<byte_range> part;
    for (const byte_range &range : ranges) {
        if (offset < range.length && length > 0) {
            const u64 count = std::min(range.length - offset, length);
            append_range(part, {range.offset + offset, count});
            length -= count;
            offset = 0;
        } else {
            offset -= std::min(offset, range.length);
        }
    }
    return part;
}

// The times of a $FILE_NAME value.
record_times times_of(byte_view bytes, u64 value)
{
    return {bytes.read_padded<u64>(value + file_name::created),
            bytes.read_padded<u64>(value + file_name::modified),
            bytes.read_padded<u64>(value + file_name::mft_changed),
            bytes.read_padded<u64>(value + file_name::accessed)};
}

bool is_interesting(bin_name_kind kind)
{
    return kind != bin_name_kind::other;
}

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

volume_walk::volume_walk(const volume_view &view, region_evidence &evidence)
    : m_view(view),
      m_evidence(evidence)
{
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
    if (facts.in_use) note_slack(facts);
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

volume_walk::belonging volume_walk::belonging_of(const entry_id &parent,
                                                 u64 moment) const
{
    belonging where;
    if (const std::u16string *user = m_evidence.user(parent, moment))
        return {true, true, *user};
    if (m_evidence.is_bin(parent)) return {true, true, {}};
    where.is_known = matches(parent) && m_evidence.users().count(parent) == 0;
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

std::vector<byte_range> volume_walk::name_ranges(const looked_at &file) const
{
    if (file.name.length == 0) // in another record than the file's
        return {};
    if (file.position != ~u64{0})
        return {{file.position + file.name.place, file.name.length}};
    return m_view.places_in_record(file.facts.id.entry, file.name.place,
                                   file.name.length);
}

sighting volume_walk::start_sighting(sighting_kind kind, const looked_at &file) const
{
    sighting seen;
    seen.kind = kind;
    seen.source = file.source;
    if (file.position == ~u64{0}) seen.views = {m_view.number()};
    seen.entry = entry_id{file.facts.id.entry, sequence_of_file(file.facts)};
    if (file.position != ~u64{0} && !file.facts.knows_entry) seen.entry.reset();
    seen.in_use = file.facts.in_use && file.position == ~u64{0};
    seen.is_torn = file.record != nullptr && file.record->is_torn();
    seen.name = file.name.name;
    seen.parent = file.name.parent;
    seen.user = file.where.user;
    seen.is_in_bin = file.where.is_in_bin;
    seen.times = file.facts.times;
    seen.ranges = name_ranges(file);
    return seen;
}

// What lies after a sector that is of another write is believed only where it fits what
// is before it.
void volume_walk::clip_to_sound(deleted_file &metadata, const looked_at &file) const
{
    const stream_fact *data = file.facts.stream(attribute_type::data);
    if (file.record == nullptr || data == nullptr || !data->is_resident ||
        data->place == 0)
        return;
    const std::size_t sound = file.record->sound;
    const bool second = metadata.format == metadata_format::dollar_i_2;
    const u64 path_at = data->place + (second ? 28 : 24);
    const u64 path_end = path_at + 2 * metadata.path.size();
    if (path_end + 2 <= sound) return;
    // Zeros or a filler where the rest of the path was.
    const u64 sound_units = sound > path_at ? (sound - path_at + 1) / 2 : 0;
    const bool stops_there = metadata.path.size() <= sound_units ||
                             metadata.path.find(u'\0') != std::u16string::npos;
    if (!stops_there) return;
    metadata.path.resize(std::min<std::size_t>(metadata.path.size(), sound_units));
    metadata.path_is_whole = false;
}

void volume_walk::take_metadata(const looked_at &file)
{
    sighting seen = start_sighting(sighting_kind::metadata, file);
    file_content content;
    const bool has_stream = m_view.read_stream(content, file.facts, max_metadata);
    const stream_fact *data = file.facts.stream(attribute_type::data);
    const bool is_resident = data != nullptr && data->is_resident;
    deleted_file metadata;
    const byte_view bytes{content.bytes};
    // Clusters that are free may hold what another file left there.
    const bool is_sure = is_resident || seen.in_use;
    const bool is_read = has_stream && (is_sure ? parse_dollar_i(metadata, bytes, rules)
                                                : recognize_dollar_i(metadata, bytes));
    if (is_read) {
        clip_to_sound(metadata, file);
        if (is_resident && file.position != ~u64{0} && data->place != 0)
            content.ranges = {{file.position + data->place, content.bytes.size()}};
        if (content.is_plain)
            content.ranges = part_of(content.ranges, 0, metadata.length);
        if (!content.ranges.empty()) seen.ranges = content.ranges;
        seen.metadata = std::move(metadata);
    } else if (!seen.is_torn &&
               (is_resident || (seen.in_use && !content.bytes.empty()))) {
        return; // named like metadata, and holds something else
    }
    m_evidence.add(std::move(seen));
}

void volume_walk::take_list(const looked_at &file)
{
    file_content content;
    std::vector<listed_file> records;
    if (!file.where.is_in_bin || !m_view.read_stream(content, file.facts, max_list))
        return;
    if (file.position != ~u64{0} && content.ranges.empty()) return;
    parse_list(records, byte_view{content.bytes}, rules);
    for (listed_file &record : records) {
        sighting seen = start_sighting(sighting_kind::metadata, file);
        if (!seen.in_use) {
            deleted_file sure;
            if (!recognize_list_record(sure,
                                       byte_view{content.bytes}.from(record.offset),
                                       record.file.format))
                continue;
        }
        seen.name =
            listed_data_name(record.file.drive, record.file.number, record.file.path);
        seen.ranges = part_of(content.ranges, record.offset, record.file.length);
        seen.metadata = std::move(record.file);
        m_evidence.add(std::move(seen));
    }
}

// How much of the content of an item is still its own.
void volume_walk::judge_content(sighting &item, const stream_fact &data) const
{
    if (data.is_resident || item.in_use) {
        item.content = data_state::whole;
        return;
    }
    u64 all = 0, taken = 0;
    for (const flat_run &run : data.runs) {
        if (is_hole(run)) continue;
        for (u64 i = 0; i < run.clusters && run.lcn + i < m_view.cluster_count(); ++i) {
            ++all;
            taken += m_view.is_in_use(run.lcn + i) ? 1 : 0;
        }
    }
    item.content = taken == 0     ? data_state::whole
                   : taken == all ? data_state::gone
                                  : data_state::partly;
}

void volume_walk::take_data_item(const looked_at &file)
{
    sighting seen = start_sighting(sighting_kind::data_item, file);
    seen.is_directory = file.facts.is_directory;
    const stream_fact *data = file.facts.stream(attribute_type::data);
    if (data != nullptr) {
        seen.data_size = data->length;
        seen.data = m_view.places(data->runs, data->length);
        judge_content(seen, *data);
    }
    if (seen.is_directory && file.position == ~u64{0})
        seen.members = members_of(*seen.entry);
    m_evidence.add(std::move(seen));
}

// The files below a folder, by paths relative to it.
std::vector<std::u16string> volume_walk::members_of(const entry_id &folder) const
{
    struct pending {
        u64 reference;
        std::u16string path;
        int depth;
    };
    std::vector<std::u16string> members;
    std::vector<pending> open = {{reference_of(folder), {}, 0}};
    while (!open.empty() && members.size() < max_members) {
        const pending next = std::move(open.back());
        open.pop_back();
        const auto children = m_children.find(next.reference);
        if (children == m_children.end() || next.depth > max_depth) continue;
        for (const u64 child : children->second) {
            file_facts facts;
            record_bytes record;
            if (!m_view.read_file(facts, record, child)) continue;
            const file_name_fact *name = facts.name();
            if (name == nullptr) continue;
            const std::u16string path = next.path + name->name;
            if (facts.is_directory)
                open.push_back(
                    {reference_of(id_of(child)), path + u'\\', next.depth + 1});
            else
                members.push_back(path);
        }
    }
    std::ranges::sort(members);
    return members;
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
                            u"$I30"))
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
        if (seen.entry && m_items.contains(seen.entry->entry) && matches(*seen.entry) &&
            m_rows[seen.entry->entry].in_use)
            continue;
        seen.kind = sighting_kind::index_name;
        seen.source = at < used ? own_source() : evidence_source::index_slack;
        seen.views = {m_view.number()};
        seen.parent = folder;
        seen.user = user;
        seen.is_in_bin = true;
        seen.ranges = places(at, length);
        m_evidence.add(std::move(seen));
    }
}

// ---- The change journal

void volume_walk::read_journal()
{
    file_facts facts;
    record_bytes record;
    file_content content;
    if (!m_journal || !m_view.read_file(facts, record, *m_journal)) return;
    for (const stream_fact &stream : facts.streams) {
        if (!is_type(stream.type, attribute_type::data) || stream.name != u"$J")
            continue;
        u64 read = 0;
        for (const flat_run &run : stream.runs) {
            if (is_hole(run) || read > max_journal) continue;
            const u64 begin = run.lcn * m_view.cluster_size();
            const u64 length = u64{run.clusters} * m_view.cluster_size();
            read += length;
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
        found.content = data_state::whole;
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

void volume_walk::take_record_of_no_volume(region_evidence &evidence,
                                           const standalone_record &alone)
{
    const file_facts facts = read_facts(alone.record, std::nullopt);
    for (const file_name_fact &name : facts.names) {
        const bin_name_kind kind = kind_of_name(name.name);
        if (!is_made_by_windows(name.name)) continue;
        sighting seen;
        seen.kind = kind == bin_name_kind::metadata ? sighting_kind::metadata
                                                    : sighting_kind::data_item;
        seen.source = alone.source;
        seen.is_torn = alone.record.is_torn();
        if (facts.knows_entry)
            seen.entry = entry_id{facts.id.entry, sequence_of_file(facts)};
        seen.name = name.name;
        seen.parent = name.parent;
        seen.times = facts.times;
        seen.ranges = {{alone.position + name.place, name.length}};
        const stream_fact *data = facts.stream(attribute_type::data);
        deleted_file metadata;
        if (kind == bin_name_kind::metadata && data != nullptr && data->is_resident &&
            parse_dollar_i(metadata, byte_view{data->content}, rules)) {
            seen.ranges = {{alone.position + data->place, metadata.length}};
            seen.metadata = std::move(metadata);
        }
        if (kind == bin_name_kind::data && data != nullptr)
            seen.data_size = data->length;
        evidence.add(std::move(seen));
        return;
    }
}

void volume_walk::take_carved_record(const record_bytes &record, u64 position,
                                     evidence_source source)
{
    const file_facts facts = read_facts(record, std::nullopt);
    search_record_slack(record,
                        {evidence_source::record_slack, {}, [&](u64 at, u64 length) {
                             return std::vector<byte_range>{{position + at, length}};
                         }});
    take_slack_names();
    const file_name_fact *name = facts.name();
    if (facts.is_directory && facts.knows_entry && name != nullptr &&
        is_user_folder(name->name))
        m_evidence.add_user({facts.id.entry, sequence_of_file(facts)}, name->name,
                            facts.times.created);
    else
        look_at(facts, &record, position, source);
}

} // namespace hv

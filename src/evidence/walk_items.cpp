#include "evidence/volume_walk.h"

#include "evidence/walk_parts.h"
#include "formats/deleted_file_layout.h"

#include <algorithm>

namespace hv {

using namespace walk;

namespace {

constexpr u64 max_metadata = dollar_i::max_size_2;
constexpr u64 max_list = u64{64} << 20;
constexpr u64 max_members = 1'000'000;

// What can't be read at the end is unknown, and no zeros.
void drop_unread_end(file_content &content)
{
    auto &unread = content.unread;
    while (!unread.empty() &&
           unread.back().offset + unread.back().length >= content.bytes.size()) {
        content.bytes.resize(unread.back().offset);
        unread.pop_back();
    }
}

} // namespace

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
    const byte_view bytes = content.readable_front();
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
    } else if (!seen.is_torn && is_sure && bytes.size() > 0) {
        return; // named like metadata, and holds something else
    }
    m_evidence.add(std::move(seen));
}

void volume_walk::take_list(const looked_at &file)
{
    file_content content;
    std::vector<listed_file> records;
    if (file.where.is_in_bin && !m_view.has_clusters()) {
        const stream_fact *data = file.facts.stream(attribute_type::data);
        m_unread_lists += data != nullptr && !data->is_resident;
    }
    if (!file.where.is_in_bin || !m_view.read_stream(content, file.facts, max_list) ||
        !spend(content.bytes.size(), m_byte_budget))
        return;
    if (file.position != ~u64{0} && content.ranges.empty()) return;
    drop_unread_end(content);
    parse_list(records, byte_view{content.bytes}, rules);
    for (listed_file &record : records) {
        if (content.has_unread(record.offset, record.file.length)) continue;
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
void volume_walk::judge_content(sighting &item, const stream_fact &data)
{
    if (!m_view.has_clusters() && !data.is_resident) {
        item.content = data_state::unknown;
        return;
    }
    if (data.is_resident || item.in_use) {
        item.content = data_state::whole;
        return;
    }
    u64 all = 0, taken = 0;
    bool is_known = true;
    for (const flat_run &run : data.runs) {
        if (is_hole(run)) continue;
        if (!spend(std::min<u64>(run.clusters, m_view.cluster_count()),
                   m_cluster_budget))
            return;
        for (u64 i = 0; i < run.clusters && run.lcn + i < m_view.cluster_count(); ++i) {
            ++all;
            taken += m_view.is_in_use(run.lcn + i) ? 1 : 0;
            is_known = is_known && m_view.is_use_known(run.lcn + i);
        }
    }
    item.content = !is_known      ? data_state::unknown
                   : taken == 0   ? data_state::whole
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
    if (file.position == ~u64{0}) seen.owner = m_owners.owner_of(file.facts);
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
    std::set<u64> entered; // damaged folders may be in each other
    std::vector<pending> open = {{reference_of(folder), {}, 0}};
    while (!open.empty() && members.size() < max_members) {
        const pending next = std::move(open.back());
        open.pop_back();
        const auto children = m_children.find(next.reference);
        if (children == m_children.end() || next.depth > max_depth ||
            !entered.insert(next.reference).second)
            continue;
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

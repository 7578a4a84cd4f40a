#include "recovery/item_records.h"

#include "base/hv_parse_rules.h"
#include "disk/hv_source_bytes.h"

#include <algorithm>
#include <tuple>

namespace hv {

namespace {

const parse_rules rules = parse_rules::complete();

// Where a record may be found again.
struct candidate {
    record_origin origin = record_origin::live;
    u32 view = 0;
    const sighting *seen = nullptr;
};

bool is_of_item(const sighting &seen)
{
    return seen.kind == sighting_kind::data_item ||
           seen.kind == sighting_kind::restored_item;
}

record_origin origin_of(const sighting &seen, u32 view)
{
    if (view == 0) return seen.in_use ? record_origin::live : record_origin::freed;
    return seen.in_use ? record_origin::snapshot : record_origin::freed_snapshot;
}

// The surest ones first.
std::vector<candidate> candidates_of(const examined_region &region,
                                     const deletion &item, std::optional<u32> preferred)
{
    std::vector<candidate> found;
    for (const sighting &seen : item.sightings) {
        if (!is_of_item(seen)) continue;
        for (const u32 view : seen.views)
            found.push_back({origin_of(seen, view), view, &seen});
        if (seen.views.empty() && !seen.ranges.empty())
            found.push_back({record_origin::carved, 0, &seen});
    }
    const auto age = [&](const candidate &each) { // a later snapshot is better
        const bool is_known = each.view > 0 && each.view <= region.snapshots.size();
        return is_known ? ~region.snapshots[each.view - 1] : 0;
    };
    std::ranges::stable_sort(found, {}, [&](const candidate &each) {
        return std::tuple(each.view != preferred.value_or(each.view), each.origin,
                          age(each));
    });
    return found;
}

// The record that a view has of an entry, unless it is another file's by now. Of a
// folder whose record is another's, what is in it can still be found by its number.
std::optional<item_record> read_by_view(region_views &views, const candidate &from)
{
    item_record found;
    found.view = views.view(from.view);
    found.origin = from.origin;
    if (!found.view || !from.seen->entry) return std::nullopt;
    record_bytes record;
    const bool is_same =
        found.view->read_file(found.facts, record, from.seen->entry->entry) &&
        sequence_of_file(found.facts) == from.seen->entry->sequence &&
        (from.seen->kind == sighting_kind::restored_item ||
         found.facts.is_directory == from.seen->is_directory);
    if (is_same) {
        found.sound = record.sound;
        return found;
    }
    if (!from.seen->is_directory) return std::nullopt;
    found.facts = {};
    found.facts.id = *from.seen->entry;
    found.facts.in_use = true; // its sequence number is the file's
    found.facts.is_directory = true;
    found.facts.times = from.seen->times;
    return found;
}

// A carved record was seen by its name, which is at this place of the medium.
std::optional<item_record> read_carved(region_views &views, const sighting &seen)
{
    item_record found;
    found.view = views.view(0);
    found.origin = record_origin::carved;
    if (!found.view) return std::nullopt;
    const u64 name_at = seen.ranges.front().offset;
    const u64 size = found.view->record_size();
    const u64 begin = name_at - std::min(name_at, size);
    std::vector<u8> bytes = read_bytes(views.medium(), begin, name_at - begin + size);
    bytes.resize(name_at - begin + size); // the medium may end in the record
    for (u64 back = 0; back < size && back <= name_at; back += 2) {
        const u64 position = name_at - back;
        const byte_view raw = byte_view{bytes}.clip(position - begin, size);
        record_bytes record;
        if (!read_record(record, raw, rules)) continue;
        found.facts = read_facts(record, std::nullopt);
        const bool is_it =
            std::ranges::any_of(found.facts.names, [&](const file_name_fact &name) {
                return name.place == back && name.name == seen.name;
            });
        if (!is_it) continue;
        found.sound = record.sound;
        found.position = position;
        return found;
    }
    return std::nullopt;
}

// How much of the unnamed stream can be left, by the bitmap of the volume.
data_state state_of_data(const item_record &record, const byte_source &medium,
                         u64 &cluster_budget)
{
    if (!record.is_freed()) return data_state::whole;
    const stream_reader data(*record.view, medium, record.stream());
    if (!data.exists() || data.stream().is_resident) return data_state::whole;
    // Many hostile records can name the same clusters.
    const u64 cost = std::min(data.stored_clusters(), record.view->cluster_count());
    if (cost > cluster_budget) return data_state::gone;
    cluster_budget -= cost;
    const auto [stored, taken] = data.count_clusters();
    return taken == 0        ? data_state::whole
           : taken == stored ? data_state::gone
                             : data_state::partly;
}

} // namespace

std::optional<item_record> find_item_record(region_views &views,
                                            const examined_region &region,
                                            const deletion &item,
                                            std::optional<u32> preferred,
                                            u64 &cluster_budget)
{
    std::optional<item_record> best;
    data_state state_of_best = data_state::gone;
    for (const candidate &each : candidates_of(region, item, preferred)) {
        auto found = each.origin == record_origin::carved
                         ? read_carved(views, *each.seen)
                         : read_by_view(views, each);
        if (!found) continue;
        const data_state state = state_of_data(*found, views.medium(), cluster_budget);
        if (state == data_state::whole) return found;
        if (!best || state < state_of_best) {
            best = std::move(found);
            state_of_best = state;
        }
    }
    return best;
}

} // namespace hv

#include "recyclebin/views.h"

#include "evidence/bin_items.h"

#include <algorithm>

namespace hv {

namespace {

bool is_carving(evidence_source source)
{
    return source != evidence_source::live && source != evidence_source::snapshot &&
           source != evidence_source::journal;
}

// "1", "1-3, 5"
std::string ranges_text(const std::set<u32> &numbers)
{
    std::string text;
    for (auto first = numbers.begin(); first != numbers.end();) {
        auto last = first;
        for (auto next = std::next(first); next != numbers.end() && *next == *last + 1;)
            last = next++;
        text += (text.empty() ? "" : ", ") + std::to_string(*first);
        if (last != first) text += "-" + std::to_string(*last);
        first = std::next(last);
    }
    return text;
}

bool is_in_bin_of(const sighting &seen, u32 view)
{
    return seen.views.contains(view) && seen.in_use && seen.is_in_bin &&
           (shows_data(seen) || shows_metadata(seen));
}

} // namespace

bool seen_places::holds(seen_place place) const
{
    switch (place) {
    case seen_place::live: return is_live;
    case seen_place::snapshot: return !snapshots.empty();
    case seen_place::carved: return is_carved;
    case seen_place::journal: return is_logged;
    }
    return false;
}

std::string seen_places::text() const
{
    std::string text;
    const auto add = [&text](const std::string &place) {
        text += (text.empty() ? "" : ", ") + place;
    };
    if (is_live) add("live");
    if (!snapshots.empty())
        add((snapshots.size() == 1 ? "snapshot " : "snapshots ") +
            ranges_text(snapshots));
    if (is_carved) add("carved");
    if (is_logged) add("journal");
    return text;
}

bool needs_carving(evidence_source source)
{
    return source == evidence_source::shadow_store ||
           source == evidence_source::free_cluster ||
           source == evidence_source::file_slack || source == evidence_source::raw;
}

seen_places places_of(const deletion &item)
{
    seen_places places;
    for (const sighting &seen : item.sightings) {
        if (seen.kind == sighting_kind::journal_line) {
            places.is_logged = true;
            continue;
        }
        // Slack has no part in what a view shows.
        if (is_carving(seen.source)) {
            places.is_carved = true;
            continue;
        }
        places.is_live |= seen.source == evidence_source::live && seen.views.empty();
        for (const u32 view : seen.views)
            if (view == view_now)
                places.is_live = true;
            else
                places.snapshots.insert(view);
    }
    return places;
}

bool knows_use(const sighting &seen)
{
    return !seen.views.empty() && !is_carving(seen.source) &&
           seen.kind != sighting_kind::index_name &&
           seen.kind != sighting_kind::journal_line;
}

bool has_other_owner(const deletion &item)
{
    const std::u16string owner(item.owner.begin(), item.owner.end());
    return !owner.empty() && owner != item.user;
}

bool was_in_bin(const deletion &item, u32 view)
{
    return std::any_of(
        item.sightings.begin(), item.sightings.end(),
        [view](const sighting &seen) { return is_in_bin_of(seen, view); });
}

volume_numbers::volume_numbers(const examination &found)
{
    for (u32 region = 0; region < found.regions.size(); ++region)
        if (found.regions[region].is_volume)
            m_numbers.emplace(region, found.regions[region].number);
}

std::optional<u32> volume_numbers::number_of(u32 region) const
{
    const auto found = m_numbers.find(region);
    return found == m_numbers.end() ? std::nullopt : std::optional(found->second);
}

std::string volume_numbers::text(u32 region) const
{
    const std::optional<u32> number = number_of(region);
    return number ? std::to_string(*number) : "-";
}

} // namespace hv

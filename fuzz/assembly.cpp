// Sightings of a few items in any mixture: whatever their order, the same deletions
// come out, each sighting is in one of them, and no two have the same id.

#include "evidence/examine.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace {

using namespace hv;

// One sighting of eight bytes, out of so few values that many belong together.
sighting sighting_of(const u8 *bytes, std::size_t number)
{
    static const std::u16string names[] = {u"$IAB12CD.txt", u"$RAB12CD.txt", u"Dc1.txt",
                                           u"$RZZ12CD", u""};
    sighting made;
    made.kind = static_cast<sighting_kind>(bytes[0] % 5);
    made.source = static_cast<evidence_source>(bytes[0] / 5 % 9);
    made.name = names[bytes[1] % 5];
    if (bytes[2] % 3 != 0) made.entry = entry_id{60 + bytes[2] % 4U, 1};
    if (bytes[3] % 3 != 0) made.parent = entry_id{40 + bytes[3] % 2U, 1};
    if (bytes[3] % 4 == 1) made.user = u"S-1-5-21-1";
    made.in_use = bytes[4] % 2 != 0;
    if (bytes[4] % 3 != 0) made.views = {bytes[4] % 2U};
    made.times.record_changed = 132000000000000000 + u64{bytes[5]} % 3 * 10'000'000;
    made.times.created = made.times.record_changed;
    made.ranges = {{1024 * number, 100}};
    if (made.kind == sighting_kind::metadata && bytes[6] % 4 != 0) {
        deleted_file file;
        file.format = static_cast<metadata_format>(bytes[6] % 6);
        file.deleted = made.times.record_changed;
        file.path = bytes[7] % 2 != 0 ? u"C:\\a.txt" : u"C:\\b";
        file.path_is_whole = bytes[7] % 5 != 0;
        file.size = bytes[7] % 3;
        file.length = 100;
        made.metadata = std::move(file);
    }
    return made;
}

using outline = std::pair<std::string, std::vector<byte_range>>;

std::vector<outline> outlines(std::vector<sighting> sightings)
{
    std::vector<deletion> deletions;
    assemble(deletions, std::move(sightings), 0);
    std::vector<outline> found;
    for (const deletion &each : deletions) {
        outline made{each.id, {}};
        for (const sighting &seen : each.sightings)
            made.second.push_back(seen.ranges.front());
        found.push_back(std::move(made));
    }
    std::ranges::sort(found);
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size)
{
    constexpr std::size_t step = 8, max_sightings = 64;
    std::vector<sighting> sightings;
    for (std::size_t at = 0; at + step <= size && sightings.size() < max_sightings;
         at += step)
        sightings.push_back(sighting_of(data + at, sightings.size()));
    const std::size_t count = sightings.size();
    const std::vector<outline> forward = outlines(sightings);
    std::ranges::reverse(sightings);
    if (outlines(sightings) != forward) std::abort();
    std::rotate(sightings.begin(),
                sightings.begin() + static_cast<std::ptrdiff_t>(count / 3),
                sightings.end());
    if (outlines(sightings) != forward) std::abort();
    const auto same = std::ranges::adjacent_find(forward, {}, &outline::first);
    if (same != forward.end()) std::abort(); // two have one id
    std::size_t told = 0;
    for (const outline &each : forward) told += each.second.size();
    if (told != count) std::abort();
    return 0;
}

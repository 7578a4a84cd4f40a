#include "stress/properties.h"

#include "base/hv_byte_view.h"
#include "evidence/byte_ranges.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/row_comparison.h"
#include "stress/dependencies.h"
#include "stress/span_source.h"

#include <algorithm>
#include <sstream>

namespace stress {

namespace {

constexpr u64 sector = 512;
constexpr u64 list_header_size = 20;

std::string utf8(std::u16string_view text)
{
    std::string bytes;
    for (const char16_t unit : text) {
        const bool is_plain = unit >= 0x20 && unit < 0x7F;
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\u%04x", unsigned{unit});
        bytes += is_plain ? std::string(1, static_cast<char>(unit)) : hex;
    }
    return bytes;
}

std::string metadata_fact(u64 deleted, const std::u16string &path)
{
    return "deleted " + std::to_string(deleted) + " " + utf8(path);
}

// What a sighting states by itself; empty for what follows from others.
std::string fact_of(const hv::sighting &seen)
{
    if (seen.metadata)
        return metadata_fact(seen.metadata->deleted, seen.metadata->path);
    if (seen.kind == hv::sighting_kind::restored_item || seen.name.empty()) return {};
    return "name " + utf8(seen.name);
}

template <class Visit> void for_each_sighting(const recyclebin_run &run, Visit visit)
{
    for (const hv::deletion &item : run.found.deletions)
        for (const hv::sighting &seen : item.sightings) visit(seen);
}

std::set<std::string> facts_of(const recyclebin_run &run)
{
    std::set<std::string> facts;
    for_each_sighting(run,
                      [&](const hv::sighting &seen) { facts.insert(fact_of(seen)); });
    return facts;
}

std::string place_of(const hv::sighting &seen)
{
    std::string text;
    for (const byte_range &range : seen.ranges)
        text += " [" + std::to_string(range.offset) + ", " +
                std::to_string(range.length) + "]";
    return text.empty() ? " nowhere" : text;
}

// ---- Proofs

// A row says nothing that no sighting of it says.
std::string check_statement(const hv::deletion &item)
{
    if (!item.deleted) return {};
    const std::string wanted =
        metadata_fact(*item.deleted, item.path.value_or(std::u16string()));
    for (const hv::sighting &seen : item.sightings)
        if (seen.metadata && fact_of(seen) == wanted) return {};
    return "row " + item.id + " states what no sighting does: " + wanted;
}

std::string check_places(const hv::deletion &item, u64 medium_size)
{
    if (item.sightings.empty()) return "row " + item.id + " has no sightings";
    for (const hv::sighting &seen : item.sightings)
        for (const byte_range &range : seen.ranges)
            if (range.length == 0 || range.offset > medium_size ||
                range.length > medium_size - range.offset)
                return "row " + item.id +
                       " has a proof that isn't on the medium:" + place_of(seen);
    return {};
}

std::string check_line(const std::string &line, const hv::byte_source &medium)
{
    hv::written_row row;
    std::string problem;
    if (!hv::read_row(row, problem, line)) return "a line " + problem + ": " + line;
    hv::row_findings findings;
    hv::check_bytes(findings, row, medium, {});
    if (findings.failures().empty()) return {};
    return "proof of row " + row.id + ": " + findings.failures().front();
}

// ---- Roads

std::string first_difference(const std::string &some, const std::string &others)
{
    std::istringstream first(some), second(others);
    std::string a, b;
    while (a == b) {
        const bool has_first = static_cast<bool>(std::getline(first, a));
        const bool has_second = static_cast<bool>(std::getline(second, b));
        if (!has_first) a = "(nothing)";
        if (!has_second) b = "(nothing)";
        if (!has_first && !has_second) break;
    }
    return a + "\n  and " + b;
}

std::string check_lending(const recyclebin_run &lent, std::span<const u8> medium)
{
    const recyclebin_run read = run_recyclebin(medium, lent.carve, access::read);
    if (lent.json_lines == read.json_lines) return {};
    return "windows that are lent and read differ: " +
           first_difference(lent.json_lines, read.json_lines);
}

std::string check_carving(const recyclebin_run &live, const recyclebin_run &carved)
{
    const std::set<std::string> all = facts_of(carved);
    std::string problem;
    for_each_sighting(live, [&](const hv::sighting &seen) {
        if (!all.contains(fact_of(seen)))
            problem = "carving loses " + fact_of(seen) + " at" + place_of(seen);
    });
    return problem;
}

// What a run states and where, as it would be if the medium began `moved` bytes
// earlier.
std::multiset<std::string> moved_statements(const recyclebin_run &run, u64 moved)
{
    std::multiset<std::string> all;
    for_each_sighting(run, [&](const hv::sighting &seen) {
        hv::sighting in_disk = seen;
        for (byte_range &range : in_disk.ranges) range.offset -= moved;
        all.insert(fact_of(in_disk) + " at" + place_of(in_disk));
    });
    return all;
}

// A disk whose only partition is the medium: a volume alone.
std::vector<u8> disk_around(std::span<const u8> volume, u64 offset)
{
    std::vector<u8> disk(offset);
    disk.insert(disk.end(), volume.begin(), volume.end());
    constexpr u64 entry = 446;
    constexpr u8 ntfs = 7;
    const auto put = [&](u64 at, u64 value) {
        for (u64 i = 0; i < 4; ++i) disk[at + i] = static_cast<u8>(value >> (8 * i));
    };
    disk[entry + 4] = ntfs;
    put(entry + 8, offset / sector);
    put(entry + 12, (volume.size() + sector - 1) / sector);
    disk[510] = 0x55;
    disk[511] = 0xAA;
    return disk;
}

bool is_one_volume(const recyclebin_run &run)
{
    const auto &regions = run.found.regions;
    return regions.size() == 1 && regions[0].is_volume && regions[0].offset == 0 &&
           regions[0].found_by == "boot sector" && !regions[0].boot_from_copy;
}

std::string check_in_disk(const recyclebin_run &alone, std::span<const u8> medium)
{
    if (!is_one_volume(alone)) return {};
    constexpr u64 offset = 63 * sector;
    const recyclebin_run inside =
        run_recyclebin(disk_around(medium, offset), alone.carve);
    const auto some = moved_statements(alone, 0);
    const auto others = moved_statements(inside, offset);
    std::vector<std::string> differing;
    std::ranges::set_symmetric_difference(some, others, std::back_inserter(differing));
    if (differing.empty()) return {};
    return "a volume alone and in a disk differ: " + differing.front();
}

// ---- What the undamaged medium holds

using statements = std::vector<baseline::statement>;

statements statements_of(const recyclebin_run &run, std::span<const u8> medium,
                         const std::vector<structure> &structures)
{
    const dependencies known(medium, run.found, structures);
    statements all;
    for_each_sighting(run, [&](const hv::sighting &seen) {
        std::string fact = fact_of(seen);
        if (!fact.empty() && !seen.ranges.empty())
            all.push_back({std::move(fact), known.of(seen)});
    });
    return all;
}

// The paths of rows: the eighth cell.
std::set<std::string> paths_of(const veskit_run &run)
{
    constexpr int path_column = 8;
    std::set<std::string> paths;
    for (const std::string &row : run.rows) {
        std::istringstream cells(row);
        std::string cell;
        for (int column = 0; column < path_column; ++column)
            std::getline(cells, cell, '|');
        paths.insert(cell);
        // Of a data item that its record calls a folder now.
        if (cell.ends_with('\\')) paths.insert(cell.substr(0, cell.size() - 1));
    }
    return paths;
}

// What `-image` finds of the live statements. It depends on all that is vital, since it
// has no other way to a volume, and on the header of a list.
statements veskit_statements_of(const baseline &before, const veskit_run &run,
                                std::span<const u8> medium)
{
    const std::set<std::string> paths = paths_of(run);
    const dependencies known(medium, before.live.found, before.structures);
    statements all;
    for_each_sighting(before.live, [&](const hv::sighting &seen) {
        if (!seen.metadata || seen.source != hv::evidence_source::live) return;
        std::string path = hv::to_lossless_utf8(seen.metadata->path);
        if (!paths.contains(path)) return;
        std::vector<byte_range> needs = known.of(seen);
        for (const structure &part : before.structures) {
            if (part.is_vital) needs.push_back({part.offset, part.length});
            if (part.kind == structure_kind::bin_metadata &&
                have_common_bytes({{part.offset, part.length}}, seen.ranges))
                needs.push_back({part.offset, list_header_size});
        }
        all.push_back({std::move(path), std::move(needs)});
    });
    return all;
}

u64 first_volume(const recyclebin_run &run)
{
    for (const hv::examined_region &region : run.found.regions)
        if (region.is_volume) return region.offset;
    return 0;
}

constexpr veskit_mode all_modes[] = {veskit_mode::image, veskit_mode::image_unallocated,
                                     veskit_mode::image_shadows, veskit_mode::image_all,
                                     veskit_mode::raw_scan};

// The places of metadata that a row has, and what says how to read it: the heads of
// records, which hold the last bytes of each sector.
std::vector<byte_range> proof_and_heads(const hv::sighting &seen,
                                        const std::vector<structure> &structures)
{
    std::vector<byte_range> all = seen.ranges;
    for (const structure &part : structures) {
        if (part.kind != structure_kind::file_record) continue;
        const byte_range record{part.offset, part.length};
        if (have_common_bytes({record}, seen.ranges))
            all.push_back({part.offset, std::min(part.length, sector)});
    }
    return all;
}

} // namespace

std::string check_bounds(const recyclebin_run &run, u64 medium_size)
{
    // A medium is read a few times by passes, and again for each thing that is found on
    // it; a row states little that isn't on the medium.
    const u64 rows = run.found.deletions.size();
    const u64 max_read = (64 + 16 * rows) * medium_size + (u64{64} << 20);
    const u64 max_rows = medium_size / 16 + 1;
    const u64 max_text = 256 * medium_size + (u64{1} << 20);
    if (run.bytes_read > max_read)
        return std::to_string(run.bytes_read) + " bytes read of a medium of " +
               std::to_string(medium_size);
    if (rows > max_rows) return std::to_string(rows) + " rows";
    if (run.json_lines.size() > max_text)
        return std::to_string(run.json_lines.size()) + " bytes of rows";
    return {};
}

std::string check_proofs(const recyclebin_run &run, std::span<const u8> medium)
{
    for (const hv::deletion &item : run.found.deletions) {
        std::string problem = check_statement(item);
        if (problem.empty()) problem = check_places(item, medium.size());
        if (!problem.empty()) return problem;
    }
    const span_source source(medium);
    std::istringstream lines(run.json_lines);
    std::string line;
    while (std::getline(lines, line)) {
        std::string problem = check_line(line, source);
        if (!problem.empty()) return problem;
    }
    return {};
}

std::string check_roads(std::span<const u8> medium)
{
    const recyclebin_run live = run_recyclebin(medium, carving::off);
    const recyclebin_run carved = run_recyclebin(medium, carving::on);
    return check_roads(live, carved, medium);
}

std::string check_roads(const recyclebin_run &live, const recyclebin_run &carved,
                        std::span<const u8> medium)
{
    std::string problem = check_lending(carved, medium);
    if (problem.empty()) problem = check_carving(live, carved);
    if (problem.empty()) problem = check_in_disk(carved, medium);
    return problem;
}

baseline make_baseline(std::span<const u8> medium)
{
    baseline made;
    made.structures = find_structures(medium);
    made.live = run_recyclebin(medium, carving::off);
    made.carved = run_recyclebin(medium, carving::on);
    made.live_statements = statements_of(made.live, medium, made.structures);
    made.carved_statements = statements_of(made.carved, medium, made.structures);
    made.volume_offset = first_volume(made.carved);
    made.veskit_statements = veskit_statements_of(
        made,
        run_veskit(file_in_memory(medium), veskit_mode::image, made.volume_offset),
        medium);
    // Without boot sectors all clusters are searched, used ones as well.
    std::vector<u8> bare(medium.begin(), medium.end());
    for (const structure &part : made.structures)
        if (part.kind == structure_kind::boot_sector)
            std::fill_n(bare.begin() + static_cast<std::ptrdiff_t>(part.offset),
                        part.length, u8{0});
    for (const recyclebin_run &run :
         {made.live, made.carved, run_recyclebin(bare, carving::on)})
        made.facts.merge(facts_of(run));
    return made;
}

std::string check_invented(const baseline &before, const recyclebin_run &after,
                           const damage &done)
{
    std::string problem;
    for_each_sighting(after, [&](const hv::sighting &seen) {
        if (!problem.empty() || !seen.metadata) return;
        const std::string fact = fact_of(seen);
        if (before.facts.contains(fact)) return;
        // A path that is cut off is a part of a known one.
        const auto longer = before.facts.lower_bound(fact);
        if (!seen.metadata->path_is_whole && longer != before.facts.end() &&
            longer->starts_with(fact))
            return;
        if (!have_common_bytes(proof_and_heads(seen, before.structures), done.touched))
            problem = "invented: " + fact + " at" + place_of(seen);
    });
    return problem;
}

std::string check_lost(const baseline &before, const recyclebin_run &after,
                       const damage &done)
{
    const std::set<std::string> facts = facts_of(after);
    for (const auto &[fact, needs] :
         after.carve == carving::on ? before.carved_statements : before.live_statements)
        if (!facts.contains(fact) && !have_common_bytes(needs, done.touched))
            return (after.carve == carving::on ? "lost with carving: " : "lost: ") +
                   fact;
    return {};
}

std::string check_veskit_lost(const baseline &before, const veskit_run &after,
                              const damage &done)
{
    const std::set<std::string> paths = paths_of(after);
    for (const auto &[path, needs] : before.veskit_statements)
        if (!paths.contains(path) && !have_common_bytes(needs, done.touched))
            return "lost by veskit: " + path;
    return {};
}

std::string check_all(const baseline &before, std::span<const u8> medium,
                      const damage &done)
{
    std::string problem;
    const auto keep = [&](std::string found) {
        if (problem.empty()) problem = std::move(found);
    };
    const recyclebin_run live = run_recyclebin(medium, carving::off);
    const recyclebin_run carved = run_recyclebin(medium, carving::on);
    for (const recyclebin_run *run : {&live, &carved}) {
        keep(check_bounds(*run, medium.size()));
        keep(check_proofs(*run, medium));
        keep(check_invented(before, *run, done));
        keep(check_lost(before, *run, done));
    }
    keep(check_roads(live, carved, medium));
    const file_in_memory file(medium);
    for (const veskit_mode mode : all_modes) {
        const veskit_run run = run_veskit(file, mode, before.volume_offset);
        if (mode == veskit_mode::image) keep(check_veskit_lost(before, run, done));
    }
    return problem;
}

} // namespace stress

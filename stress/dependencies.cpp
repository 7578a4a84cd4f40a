#include "stress/dependencies.h"

#include "base/hv_byte_view.h"
#include "base/hv_parse_rules.h"
#include "evidence/byte_ranges.h"
#include "evidence/file_facts.h"
#include "evidence/source_bytes.h"
#include "formats/journal.h"
#include "stress/span_source.h"

namespace stress {

namespace {

constexpr u64 root_entry = 5;
constexpr u64 bitmap_entry = 6;
constexpr int max_depth = 32; // of folders that are followed

constexpr u64 padding = 8;           // attributes and lines end at multiples of it
constexpr u64 index_head = 64;       // of a block, with the head of its index
constexpr u64 index_entry_head = 16; // before the name
constexpr u64 record_base_offset = 32;
constexpr u64 record_number_offset = 44;
constexpr u64 entry_mask = (u64{1} << 48) - 1;

hv::byte_view view_of(std::span<const u8> bytes)
{
    return hv::byte_view{bytes};
}

bool overlap(const byte_range &a, const byte_range &b)
{
    return a.offset < hv::end_of(b) && b.offset < hv::end_of(a);
}

} // namespace

dependencies::dependencies(std::span<const u8> medium, const hv::examination &found,
                           const std::vector<structure> &structures)
    : m_medium(medium),
      m_source(std::make_shared<span_source>(medium)),
      m_structures(structures)
{
    for (const structure &part : m_structures) {
        if (part.kind != structure_kind::file_record) continue;
        const hv::byte_view record = view_of(medium).clip(part.offset, part.length);
        const byte_range range{part.offset, part.length};
        m_by_number.emplace(record.read_padded<u32>(record_number_offset), range);
        const u64 base = record.read_padded<u64>(record_base_offset) & entry_mask;
        if (base != 0) m_by_number.emplace(base, range);
    }
    for (const hv::examined_region &region : found.regions) add_volume(region);
}

void dependencies::add_volume(const hv::examined_region &region)
{
    volume_map &made = m_volumes.emplace_back();
    auto view = std::make_unique<hv::volume_view>(
        hv::patch_source(m_source, region.patches), region.offset, 0);
    if (!region.is_volume || !view->open()) return;
    made.view = std::move(view);
    made.view->for_each_record(
        [&](u64 entry, hv::byte_view raw) { note_record(made, entry, raw); });
    hv::file_facts facts;
    hv::record_bytes record;
    hv::file_content bitmap;
    if (made.view->read_file(facts, record, bitmap_entry) &&
        made.view->read_stream(bitmap, facts, m_medium.size()))
        made.bitmap = bitmap.ranges;
}

void dependencies::note_record(volume_map &of, u64 entry, hv::byte_view raw) const
{
    hv::record_bytes record;
    if (!hv::read_record(record, raw, hv::parse_rules::complete())) return;
    const hv::file_facts facts = hv::read_facts(record, entry);
    const u64 owner = facts.base ? facts.base->entry : entry;
    for (const byte_range &place :
         of.view->places_in_record(entry, 0, of.view->record_size()))
        of.records[owner].push_back(place);
    if (!facts.names.empty()) of.parents[owner] = facts.names.front().parent.entry;
    if (!facts.in_use) return;
    const u64 cluster = of.view->cluster_size();
    for (const hv::stream_fact &stream : facts.streams)
        for (const hv::flat_run &run : stream.runs)
            if (!hv::is_hole(run))
                of.owned.push_back({{of.view->offset() + run.lcn * cluster,
                                     u64{run.clusters} * cluster},
                                    owner});
}

std::vector<byte_range> dependencies::of(const hv::sighting &seen) const
{
    range_list needs = seen.ranges;
    for (const structure &part : m_structures)
        if (part.kind == structure_kind::partition_table ||
            part.kind == structure_kind::boot_sector)
            needs.push_back({part.offset, part.length});
    for (const byte_range &proof : seen.ranges) add_structure_around(needs, proof);
    // A file that is named like metadata, and holds something else, isn't metadata.
    if (seen.kind == hv::sighting_kind::metadata && !seen.metadata)
        for (const structure &part : m_structures)
            if (part.kind == structure_kind::file_record &&
                have_common_bytes({{part.offset, part.length}}, seen.ranges))
                needs.push_back({part.offset, part.length});
    const volume_map &volume = m_volumes.at(seen.volume);
    if (volume.view == nullptr) return needs;
    add_records(needs, volume, 0);
    for (const byte_range &proof : seen.ranges) add_owners(needs, volume, proof);
    add_folders(needs, volume, seen);
    if (seen.entry && seen.source == hv::evidence_source::live)
        add_records(needs, volume, seen.entry->entry);
    if (seen.source == hv::evidence_source::free_cluster) {
        add_records(needs, volume, bitmap_entry);
        for (const byte_range &proof : seen.ranges) add_bitmap(needs, volume, proof);
    }
    if (!seen.views.empty() && !seen.views.contains(0))
        add_shadows(needs, volume, seen);
    return needs;
}

// A record's attributes and a page's lines are walked from the start, so what is before
// the proof counts, and of what is after it only the padding: an attribute or a line
// that is cut off isn't read. In an index block, any entry is found without those
// before it.
void dependencies::add_structure_around(range_list &needs,
                                        const byte_range &proof) const
{
    for (const structure &part : m_structures) {
        if (!overlap({part.offset, part.length}, proof)) continue;
        const u64 used = (hv::end_of(proof) - part.offset + padding - 1) / padding;
        const u64 end = part.offset + std::min(used * padding, part.length);
        switch (part.kind) {
        case structure_kind::file_record:
        case structure_kind::journal_page:
            needs.push_back({part.offset, end - part.offset});
            break;
        case structure_kind::index_block:
            needs.push_back({part.offset, index_head});
            needs.push_back({proof.offset - index_entry_head, index_entry_head});
            break;
        default: break;
        }
    }
}

void dependencies::add_records(range_list &needs, const volume_map &of, u64 entry)
{
    const auto found = of.records.find(entry);
    if (found == of.records.end()) return;
    needs.insert(needs.end(), found->second.begin(), found->second.end());
}

// Whose run list leads to the bytes.
void dependencies::add_owners(range_list &needs, const volume_map &of,
                              const byte_range &range)
{
    for (const owned_bytes &owned : of.owned)
        if (overlap(owned.range, range)) add_records(needs, of, owned.entry);
}

// The folders that make it a part of the bin.
void dependencies::add_folders(range_list &needs, const volume_map &of,
                               const hv::sighting &seen) const
{
    if (!seen.parent) return;
    u64 entry = seen.parent->entry;
    for (int depth = 0; depth < max_depth; ++depth) {
        add_records(needs, of, entry);
        const auto above = of.parents.find(entry);
        if (entry == root_entry || above == of.parents.end()) return;
        entry = above->second;
    }
}

// A snapshot is made of its store's blocks, and has records of its own that are
// somewhere on the medium.
void dependencies::add_shadows(range_list &needs, const volume_map &of,
                               const hv::sighting &seen) const
{
    const auto add_numbered = [&](u64 number) {
        const auto [first, last] = m_by_number.equal_range(number);
        for (auto each = first; each != last; ++each) needs.push_back(each->second);
    };
    add_numbered(0);
    if (seen.entry) add_numbered(seen.entry->entry);
    if (seen.parent) add_numbered(seen.parent->entry);
    std::set<u64> files;
    for (const structure &part : m_structures) {
        if (part.kind != structure_kind::shadow_block) continue;
        needs.push_back({part.offset, part.length});
        for (const owned_bytes &owned : of.owned)
            if (overlap(owned.range, {part.offset, part.length}))
                files.insert(owned.entry);
    }
    for (const u64 file : files) add_way(needs, of, file);
}

// The catalog and the stores are looked up by their paths: the records and the indexes
// on the way.
void dependencies::add_way(range_list &needs, const volume_map &of, u64 entry)
{
    for (int depth = 0; depth < max_depth; ++depth) {
        add_records(needs, of, entry);
        const auto above = of.parents.find(entry);
        if (entry == root_entry || above == of.parents.end()) return;
        entry = above->second;
        for (const owned_bytes &owned : of.owned)
            if (owned.entry == entry) needs.push_back(owned.range);
    }
}

// Which of the clusters are free. Each is one bit.
void dependencies::add_bitmap(range_list &needs, const volume_map &of,
                              const byte_range &range)
{
    const u64 cluster = of.view->cluster_size();
    const u64 begin = (range.offset - of.view->offset()) / cluster / 8;
    const u64 end = (hv::end_of(range) - 1 - of.view->offset()) / cluster / 8 + 1;
    u64 at = 0;
    for (const byte_range &piece : of.bitmap) {
        const u64 from = std::max(at, begin);
        const u64 to = std::min(at + piece.length, end);
        if (from < to) needs.push_back({piece.offset + from - at, to - from});
        at += piece.length;
    }
}

bool have_common_bytes(const std::vector<byte_range> &some,
                       const std::vector<byte_range> &others)
{
    for (const byte_range &one : some)
        for (const byte_range &other : others)
            if (overlap(one, other)) return true;
    return false;
}

} // namespace stress

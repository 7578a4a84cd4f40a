#include "evidence/find_volumes.h"

#include "base/hv_checked_math.h"
#include "evidence/boot_candidates.h"
#include "evidence/byte_ranges.h"
#include "evidence/volume_content.h"
#include "partitions/hv_partition_buffer.h"

#include <algorithm>
#include <tuple>

namespace hv {

namespace {

constexpr u64 sector = 512;
constexpr u64 mebibyte = u64{1} << 20;
constexpr u64 old_first_sector = 63;
// Places at which volumes are looked for without reading the whole medium.
constexpr u64 max_usual_mebibytes = 64;
// How many boot sectors are looked at in one search, and volumes kept. A medium full of
// boot sectors would otherwise cost several reads for each of them.
constexpr std::size_t max_boot_sectors = 16384;
constexpr std::size_t max_volumes = 1024;

byte_range range_of(const found_volume &volume)
{
    return {volume.offset, volume.geometry.volume_size()};
}

bool overlap(byte_range a, byte_range b)
{
    return a.offset < end_of(b) && b.offset < end_of(a);
}

bool is_from_table(const found_volume &volume)
{
    return volume.how == found_by::mbr || volume.how == found_by::gpt ||
           volume.how == found_by::gpt_copy;
}

bool states_place(const found_volume &volume)
{
    return volume.geometry.states_place(volume.offset);
}

// The order in which volumes claim their bytes. One that holds another comes first: the
// other is in one of its files.
auto claim_of(const found_volume &volume)
{
    return std::tuple(volume.mft == mft_state::missing,
                      is_from_table(volume) ? volume.how : found_by::boot_sector,
                      !states_place(volume), ~volume.geometry.volume_size(),
                      volume.offset);
}

// Whether a volume can't be there because another one is.
bool excludes(const found_volume &known, const found_volume &volume)
{
    if (known.offset == volume.offset) return true;
    if (!overlap(range_of(known), range_of(volume))) return false;
    if (volume.mft == mft_state::missing) return true;
    // Two tables of different times, or a volume made over an older one: neither can be
    // in a file of the other, and both may hold evidence.
    return !(is_from_table(known) && is_from_table(volume)) &&
           !(states_place(known) && states_place(volume));
}

// Collects the volumes of one medium.
class volume_finder {
public:
    volume_finder(const byte_source &medium, const bytes_between_volumes &seen)
        : m_medium(medium),
          m_seen(seen)
    {
    }

    medium_layout find(volume_search search)
    {
        m_layout.slots = read_partition_slots(m_medium);
        read_slots();
        read_usual_places();
        if (search != volume_search::usual_places)
            for (const byte_range stretch : stretches_to_search(search))
                search_every_sector(stretch, m_seen);
        choose_volumes();
        for (found_volume &volume : m_layout.volumes) finish(volume);
        std::vector<byte_range> taken;
        for (const found_volume &volume : m_layout.volumes)
            taken.push_back({volume.offset, volume.size});
        m_layout.gaps = rest_of({0, m_medium.size()}, taken);
        return std::move(m_layout);
    }

private:
    void keep(std::optional<found_volume> volume);
    bool is_owned(u64 position) const;
    void read_slots();
    void read_usual_places();
    void look_at(u64 position);
    std::vector<byte_range> stretches_to_search(volume_search search) const;
    void search_every_sector(byte_range stretch, const bytes_between_volumes &seen);
    u64 search_chunk(u64 position, byte_view bytes);
    void choose_volumes();
    void finish(found_volume &volume) const;

    const byte_source &m_medium;
    const bytes_between_volumes &m_seen;
    medium_layout m_layout;
    std::vector<byte_range> m_owned; ///< by volumes and other file systems
    std::vector<byte_range> m_unknown_slots;
    bool m_begins_with_volume = false;
    std::size_t m_boot_sectors_seen = 0;
    u64 m_volume_begin = 0; ///< or the end of the chunk that was searched last
};

void volume_finder::keep(std::optional<found_volume> volume)
{
    if (!volume || m_layout.volumes.size() >= max_volumes) return;
    if (volume->mft != mft_state::missing) m_owned.push_back(range_of(*volume));
    m_layout.volumes.push_back(std::move(*volume));
}

bool volume_finder::is_owned(u64 position) const
{
    return std::ranges::any_of(m_owned, [position](byte_range range) {
        return position >= range.offset && position < end_of(range);
    });
}

found_by way_of(partition_table table)
{
    if (table == partition_table::mbr) return found_by::mbr;
    return table == partition_table::gpt ? found_by::gpt : found_by::gpt_copy;
}

// Whether another file system is at `offset`, whose files may hold boot sectors.
bool holds_foreign_volume(const byte_source &medium, u64 offset)
{
    const volume_content content = read_volume_content(medium, offset);
    return content != volume_content::unknown && content != volume_content::empty &&
           content != volume_content::ntfs;
}

// The partitions of the tables. A medium without a table may be a volume as a whole.
void volume_finder::read_slots()
{
    for (const partition_slot &slot : m_layout.slots) {
        std::optional<found_volume> volume =
            volume_of_slot(m_medium, slot.offset, slot.size);
        if (volume) volume->how = way_of(slot.table);
        if (!volume || volume->mft == mft_state::missing) {
            const bool is_foreign = holds_foreign_volume(m_medium, slot.offset);
            (is_foreign ? m_owned : m_unknown_slots)
                .push_back({slot.offset, slot.size});
        }
        keep(std::move(volume));
    }
    std::optional<found_volume> whole = volume_of_slot(m_medium, 0, m_medium.size());
    m_begins_with_volume = (whole && whole->mft != mft_state::missing) ||
                           holds_foreign_volume(m_medium, 0);
    if (m_layout.slots.empty() || whole) keep(std::move(whole));
}

void volume_finder::look_at(u64 position)
{
    if (position < m_medium.size() && !is_owned(position))
        keep(volume_of_boot_sector(m_medium, position));
}

// The places at which disk tools let volumes begin, and the end of the medium, where
// the last volume has the copy of its boot sector.
void volume_finder::read_usual_places()
{
    look_at(old_first_sector * sector);
    for (u64 i = 1; i <= max_usual_mebibytes; ++i) look_at(i * mebibyte);
    for (const partition_slot &slot : m_layout.slots) {
        const u64 end = saturating_sum(slot.offset, slot.size);
        look_at(end);
        look_at(saturating_sum(end, mebibyte - 1) / mebibyte * mebibyte);
    }
    const u64 sectors = m_medium.size() / sector;
    const u64 last = std::min(sectors, mebibyte / sector);
    search_every_sector({(sectors - last) * sector, last * sector}, {});
}

// Without a table nothing says where volumes are. With one, only its partitions of
// unknown content may be volumes.
std::vector<byte_range> volume_finder::stretches_to_search(volume_search search) const
{
    const bool all = search == volume_search::every_sector ||
                     (m_layout.slots.empty() && !m_begins_with_volume);
    if (all) return rest_of({0, m_medium.size()}, m_owned);
    std::vector<byte_range> stretches;
    for (const byte_range slot : m_unknown_slots)
        for (const byte_range rest : rest_of(slot, m_owned)) stretches.push_back(rest);
    return stretches;
}

void volume_finder::search_every_sector(byte_range stretch,
                                        const bytes_between_volumes &seen)
{
    const u64 end = std::min(end_of(stretch), m_medium.size());
    u64 at = saturating_sum(stretch.offset, sector - 1) / sector * sector;
    source_window window(m_medium);
    while (at < end && m_boot_sectors_seen < max_boot_sectors) {
        const u64 data = m_medium.next_data(at);
        at = std::max(at, data / sector * sector);
        if (at >= end) return;
        const u64 hole = m_medium.next_hole(data);
        const u64 last = saturating_sum(hole, bytes_into_hole) / sector * sector;
        const byte_view bytes = window.at(at, std::min(end, last) - at);
        if (bytes.empty()) return;
        const u64 position = at;
        at = search_chunk(position, bytes);
        if (seen && !seen(position, bytes.clip(0, m_volume_begin - position))) return;
    }
}

// Looks at the sectors of a chunk, and returns where to go on: after it, or after the
// volume that begins in it, at `m_volume_begin`.
u64 volume_finder::search_chunk(u64 position, byte_view bytes)
{
    for (u64 at = 0; at < bytes.size(); at += sector) {
        if (!begins_with_ntfs(bytes.clip(at, sector))) continue;
        if (is_owned(position + at)) continue;
        if (++m_boot_sectors_seen > max_boot_sectors) break;
        std::optional<found_volume> volume =
            volume_of_boot_sector(m_medium, position + at);
        if (!volume) continue;
        const byte_range range = range_of(*volume);
        keep(std::move(volume));
        if (range.offset != position + at) continue;
        m_volume_begin = range.offset;
        return end_of(range);
    }
    m_volume_begin = position + bytes.size();
    return position + (bytes.size() + sector - 1) / sector * sector;
}

void volume_finder::choose_volumes()
{
    std::ranges::sort(m_layout.volumes, {}, claim_of);
    std::vector<found_volume> chosen;
    for (found_volume &volume : m_layout.volumes) {
        const auto is_excluding = [&](const found_volume &known) {
            return excludes(known, volume);
        };
        if (std::ranges::none_of(chosen, is_excluding))
            chosen.push_back(std::move(volume));
    }
    std::ranges::sort(chosen, {}, &found_volume::offset);
    m_layout.volumes = std::move(chosen);
}

void add_trouble(std::string &trouble, const std::string &sentence)
{
    trouble += (trouble.empty() ? "" : "; ") + sentence;
}

// What is only worth its cost for a volume that was chosen.
void volume_finder::finish(found_volume &volume) const
{
    const u64 left = m_medium.size() - volume.offset;
    volume.size = std::min(volume.geometry.volume_size(), left);
    const u64 stated =
        saturating_product(volume.geometry.sectors, volume.geometry.sector_size);
    if (stated > left)
        add_trouble(volume.trouble, "the medium ends " + std::to_string(stated - left) +
                                        " bytes before the volume does");
    if (volume.mft == mft_state::missing)
        add_trouble(volume.trouble, "no $MFT is where the boot sector says");
    if (volume.mft != mft_state::rebuilt) return;
    mft_head head =
        find_mft_head(m_medium, volume.offset, volume.geometry, record_search::all);
    std::erase_if(volume.patches,
                  [](const source_patch &patch) { return !patch.bytes.empty(); });
    std::ranges::move(head.patches, std::back_inserter(volume.patches));
    volume.rebuilt_records = head.records;
    add_trouble(volume.trouble,
                "entry 0 of the $MFT and its copy are gone; the " +
                    std::to_string(head.records) +
                    " records from the first cluster of the $MFT on are read");
}

} // namespace

const char *found_by_text(found_by how)
{
    switch (how) {
    case found_by::mbr: return "MBR";
    case found_by::gpt: return "GPT";
    case found_by::gpt_copy: return "copy of the GPT";
    case found_by::boot_sector: return "boot sector";
    case found_by::boot_sector_copy: return "copy of the boot sector";
    }
    return "";
}

medium_layout find_volumes(const byte_source &medium, volume_search search,
                           const bytes_between_volumes &seen)
{
    return volume_finder(medium, seen).find(search);
}

} // namespace hv

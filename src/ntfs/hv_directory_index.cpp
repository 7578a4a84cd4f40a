#include "ntfs/hv_directory_index.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time.h"
#include "ntfs/hv_file_record.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <new>
#include <string_view>

namespace hv {

namespace {

// Reading in batches bounds the memory that the listing of a large directory takes.
constexpr u64 batch_blocks = 32;

// Limits of the live walk. Names of more than about 215 units make longer entries: they
// end the walk, and the rest of their block is searched like slack.
constexpr u64 max_bytes_in_use = 4095;
constexpr u16 max_live_entry = 512;
constexpr u16 max_next_entry = 1024;

// Limits of the walk that only wants entry numbers.
constexpr u32 max_bytes_of_names = 4096;
constexpr u16 max_next_name = 768;

constexpr u16 flag_last_entry = 2;
constexpr u16 highest_flags = 3;

constexpr u32 directory_attribute = 0x10;
constexpr u32 directory_name_attribute = 0x10000000;

bool is_last(u16 flags)
{
    return flags == flag_last_entry || flags == highest_flags;
}

// ---- Reading blocks

// How many clusters make a block, or blocks a cluster. One of the two counts is 1.
struct index_geometry {
    u32 cluster_size = 0;
    u64 clusters_per_block = 1;
    u64 blocks_per_cluster = 1;
};

bool get_geometry(index_geometry &geometry, u32 cluster_size)
{
    geometry.cluster_size = cluster_size;
    if (cluster_size == 0) return false;
    if (cluster_size < index_block::size) {
        geometry.clusters_per_block = index_block::size / cluster_size;
        return index_block::size % cluster_size == 0;
    }
    geometry.blocks_per_cluster = cluster_size / index_block::size;
    return cluster_size % index_block::size == 0;
}

u64 real_clusters(const std::vector<cluster_run> &runs)
{
    u64 clusters = 0;
    for (const cluster_run &run : runs)
        if (!run.is_sparse) clusters += run.clusters;
    return clusters;
}

u64 round_up(u64 value, u64 unit)
{
    return (value + unit - 1) / unit * unit;
}

// Appends clusters in one read or, where that fails, one by one up to the first that
// can't be read. False if not all of them were; what was read stays.
bool append_clusters(std::vector<u8> &bytes, const CNtfs &volume, u64 lcn, u64 count)
{
    const u32 cluster_size = volume.get_cluster_size();
    const std::size_t had = bytes.size();
    const auto wanted = static_cast<u32>(count * cluster_size);
    bytes.resize(had + wanted);
    u32 length = wanted;
    if (volume.read_clusters(lcn, bytes.data() + had, length) && length == wanted)
        return true;
    for (u64 i = 0; i < count; ++i) {
        const std::size_t at = had + i * cluster_size;
        length = cluster_size;
        if (!volume.read_clusters(lcn + i, bytes.data() + at, length)) length = 0;
        if (length < cluster_size) {
            bytes.resize(at + length);
            return false;
        }
    }
    return true;
}

// Gathers the blocks of a stream from its runs.
class block_reader {
public:
    block_reader(std::vector<u8> &bytes, const CNtfs &volume,
                 const index_geometry &geometry, u64 start_block)
        : m_bytes(bytes),
          m_volume(volume),
          m_geometry(geometry),
          m_cluster(start_block / geometry.blocks_per_cluster *
                    geometry.clusters_per_block),
          m_skip(start_block % geometry.blocks_per_cluster * index_block::size)
    {
    }

    u64 blocks() const { return m_bytes.size() / index_block::size; }

    // Reads what the stream has between `first` and its cluster `end`, which lie in one
    // run, until there are `count` blocks.
    void read_run(u64 lcn, u64 first, u64 end, u64 count)
    {
        while (m_cluster >= first && m_cluster < end && blocks() < count) {
            const u64 missing = std::min(count - blocks(), batch_blocks);
            const u64 bytes = missing * index_block::size + m_skip -
                              m_bytes.size() % index_block::size;
            const u64 clusters =
                std::min(end - m_cluster, round_up(bytes, m_geometry.cluster_size) /
                                              m_geometry.cluster_size);
            const std::size_t had = m_bytes.size();
            const bool good =
                append_clusters(m_bytes, m_volume, lcn + (m_cluster - first), clusters);
            drop_skipped(had);
            m_cluster += clusters;
            if (good) continue;
            // The rest of this run is given up. The next block is the first one that
            // begins after it.
            m_bytes.resize(blocks() * index_block::size);
            m_cluster = round_up(end, m_geometry.clusters_per_block);
        }
    }

private:
    // A large cluster may begin with blocks before the first wanted one.
    void drop_skipped(std::size_t at)
    {
        const std::size_t skipped = std::min<u64>(m_skip, m_bytes.size() - at);
        const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(at);
        m_bytes.erase(begin, begin + static_cast<std::ptrdiff_t>(skipped));
        m_skip = 0;
    }

    std::vector<u8> &m_bytes;
    const CNtfs &m_volume;
    index_geometry m_geometry;
    u64 m_cluster; ///< next one of the stream, sparse runs not counted
    u64 m_skip;    ///< bytes of it before the first wanted block
};

void restore_block_tails(std::span<u8> block, u32 sector_size)
{
    const byte_view view{block};
    if (!has_signature(view, index_block::signature)) return;
    const u16 count = view.read_padded<u16>(index_block::fixup_count);
    if (count < 2) return;
    restore_sector_tails(block, view.read_padded<u16>(index_block::fixup_offset), count,
                         fixup_step(count, block.size(), sector_size));
}

// The runs, cut to what the medium holds: a hostile list may claim more clusters than
// there are, or the same ones many times.
std::vector<cluster_run> runs_on_medium(const CNtfs &volume,
                                        const std::vector<cluster_run> &runs)
{
    std::vector<cluster_run> result;
    index_geometry geometry;
    const RAW_DISK_IO *disk = volume.get_disk();
    if (disk == nullptr || !get_geometry(geometry, volume.get_cluster_size()))
        return result;
    const u64 size = disk->get_size();
    if (size <= volume.get_volume_offset()) return result;
    const u64 on_medium =
        (size - volume.get_volume_offset() - 1) / geometry.cluster_size + 1;
    u64 left = on_medium;
    for (cluster_run run : runs) {
        if (run.is_sparse) continue;
        u64 kept = run.lcn < on_medium ? on_medium - run.lcn : 0;
        kept = std::min({kept, left, u64{run.clusters}});
        left -= kept;
        // Only whole blocks are cut off, so that later blocks still begin at the same
        // clusters.
        kept += (run.clusters - kept) % geometry.clusters_per_block;
        run.clusters = static_cast<u32>(kept);
        if (kept != 0) result.push_back(run);
    }
    return result;
}

// ---- Entries

// Decodes the entry that `bytes` begins with. Bytes after their end count as zero, and
// a name is cut there.
index_entry entry_at(byte_view bytes)
{
    using namespace index_entry_layout;
    index_entry entry;
    entry.reference = bytes.read_padded<u64>(reference);
    entry.entry_length = bytes.read_padded<u16>(length);
    entry.content_length = bytes.read_padded<u16>(index_entry_layout::content_length);
    entry.flags = bytes.read_padded<u16>(index_entry_layout::flags);
    const auto fixed = bytes.clip(content, file_name::fixed_size).bytes();
    std::ranges::copy(fixed, entry.content.begin());
    const u32 name_bytes = 2u * bytes.read_padded<u8>(name_length);
    entry.true_length = name_bytes + static_cast<u32>(index_entry_layout::name);
    uni::utf16_name_to_utf8(bytes.clip(index_entry_layout::name, name_bytes),
                            entry.name);
    const u32 attributes = bytes.read_padded<u32>(content + file_name::flags);
    entry.is_directory =
        (attributes & (directory_attribute | directory_name_attribute)) != 0;
    entry.is_live = true;
    return entry;
}

std::string live_key(const index_entry &entry)
{
    constexpr std::size_t digits = 10;
    std::string number = std::to_string(reference_entry(entry.parent_reference()));
    if (number.size() < digits) number.insert(0, digits - number.size(), '0');
    return number + "_" + lower_copy(entry.name);
}

// The walk over the live entries. Returns the offset at which it ended.
u64 walk_live_entries(index_live_map &live, u64 &parent_reference,
                      byte_view index_header, u64 offset, u64 position_base)
{
    using namespace index_entry_layout;
    u64 allowance = index_header.read_padded<u32>(index_header::bytes_in_use);
    while (allowance >= 1 && allowance <= max_bytes_in_use) {
        const byte_view bytes = index_header.from(offset);
        const u16 entry_length = bytes.read_padded<u16>(length);
        if (!bytes.fits(0, content) || entry_length > max_live_entry ||
            bytes.read_padded<u16>(content_length) > max_live_entry ||
            bytes.read_padded<u64>(reference) == 0 ||
            is_last(bytes.read_padded<u16>(flags)))
            break;
        index_entry entry = entry_at(bytes);
        entry.position = offset + position_base;
        if (parent_reference == 0) parent_reference = entry.parent_reference();
        if (bytes.read_padded<u8>(name_length) == 0) entry.name = "<name not present>";
        std::string key = live_key(entry);
        live.try_emplace(std::move(key), std::move(entry));

        offset += entry_length;
        if (entry_length > allowance) break;
        allowance -= entry_length;
        const u16 next = index_header.from(offset).read_padded<u16>(length);
        if (next == 0 || next > max_next_entry) break;
    }
    return offset;
}

void recover_slack_entries(index_slack_map &slack, byte_view region,
                           u64 parent_reference, u64 position)
{
    index_slack::candidate_set candidates;
    if (parent_reference != 0)
        index_slack::find_by_parent(candidates, region, parent_reference);
    index_slack::find_by_times(candidates, region);
    index_slack::harvest(slack, region, candidates, position);
}

} // namespace

bool read_index_blocks(std::vector<u8> &out_bytes, u64 &count, const CNtfs &volume,
                       const std::vector<cluster_run> &runs, u64 start_block)
{
    const u64 wanted = count;
    count = 0;
    out_bytes.clear();
    index_geometry geometry;
    if (!get_geometry(geometry, volume.get_cluster_size())) return false;
    u64 total = real_clusters(runs) / geometry.clusters_per_block;
    if (__builtin_mul_overflow(total, geometry.blocks_per_cluster, &total))
        return false;
    if (start_block >= total) return false;

    const u64 available = std::min(wanted, total - start_block);
    block_reader reader(out_bytes, volume, geometry, start_block);
    u64 first = 0;
    for (const cluster_run &run : runs) {
        if (run.is_sparse) continue;
        reader.read_run(run.lcn, first, first + run.clusters, available);
        first += run.clusters;
    }
    count = std::min(available, reader.blocks());
    out_bytes.resize(count * index_block::size);
    for (u64 i = 0; i < count; ++i)
        restore_block_tails(
            std::span(out_bytes).subspan(i * index_block::size, index_block::size),
            volume.get_bytes_per_sector());
    return true;
}

void for_each_index_block(const CNtfs &volume, const std::vector<cluster_run> &runs,
                          u64 &budget, const std::function<void(byte_view, u64)> &visit)
{
    const std::vector<cluster_run> readable = runs_on_medium(volume, runs);
    std::vector<u8> bytes;
    u64 position = 0;
    for (u64 start = 0;; start += batch_blocks) {
        u64 count = std::min(batch_blocks, budget / index_block::size);
        if (count == 0 || !read_index_blocks(bytes, count, volume, readable, start) ||
            count == 0)
            return;
        budget -= count * index_block::size;
        for (u64 i = 0; i < count; ++i) {
            // The offset inside the batch is added to the sum so far, so positions grow
            // faster than the stream. Readers compare them with other tools: they stay.
            position += i * index_block::size;
            visit(byte_view{bytes}.clip(i * index_block::size, index_block::size),
                  position);
        }
    }
}

namespace index_slack {

namespace {

constexpr u64 search_step = 8;
// After a time stamp that was found, the search goes on after all four of its entry.
constexpr u64 step_after_times = 32;
// Two entries can't begin closer to each other than the size of the fields before the
// name.
constexpr u64 min_distance = index_entry_layout::name;
// How many bytes there have to be from a parent's reference on, and from a time stamp
// on.
constexpr u64 min_from_parent = 58;
constexpr u64 min_from_time = 32;
constexpr u64 min_harvest = index_entry_layout::content + file_name::fixed_size;
// Longer names are rare, and chance hits are not: such entries fail the test.
constexpr u8 max_name = 64;
constexpr u8 highest_name_space = 3;
constexpr u16 end_entry_length = 16;

constexpr u64 times_at = index_entry_layout::content + file_name::created;
constexpr std::size_t time_count = 4;

struct time_bounds {
    u64 low = time("01/01/1986", true).filetime;
    u64 high = time("01/01/2100", true).filetime;
};

// An end marker passes as well: it may have been written over the start of an entry of
// which the rest is still there.
bool passes_entry_test(byte_view entry)
{
    using namespace index_entry_layout;
    const u64 child = entry.read_padded<u64>(reference);
    const u16 whole = entry.read_padded<u16>(length);
    const u16 inner = entry.read_padded<u16>(content_length);
    const u16 bits = entry.read_padded<u16>(flags);
    if (child == 0 && whole == end_entry_length && inner == 0 &&
        bits == flag_last_entry)
        return true;
    const u8 units = entry.read_padded<u8>(name_length);
    return bits <= flag_last_entry && inner != 0 && whole != 0 && whole >= inner &&
           entry.read_padded<u16>(padding) == 0 &&
           entry.read_padded<u8>(name_space) <= highest_name_space && units >= 1 &&
           units <= max_name &&
           entry.read_padded<u64>(content + file_name::allocated_size) >=
               entry.read_padded<u64>(content + file_name::real_size);
}

void add_apart(candidate_set &candidates, u64 start)
{
    const auto next = candidates.lower_bound(start);
    if (next != candidates.end() && start + min_distance > *next) return;
    if (next != candidates.begin() && *std::prev(next) + min_distance >= start) return;
    candidates.insert(next, start);
}

} // namespace

void find_by_parent(candidate_set &candidates, byte_view region, u64 parent_reference)
{
    u64 found = 0;
    for (u64 hit = 0; region.read(hit, found); hit += search_step) {
        if (found != parent_reference || hit < index_entry_layout::content ||
            !region.fits(hit, min_from_parent))
            continue;
        const u64 start = hit - index_entry_layout::content;
        if (passes_entry_test(region.from(start))) add_apart(candidates, start);
    }
}

void find_by_times(candidate_set &candidates, byte_view region)
{
    static const time_bounds bounds;
    u64 found = 0;
    u64 step = 0;
    for (u64 hit = 0; region.read(hit, found); hit += step) {
        step = search_step;
        if (found < bounds.low || found > bounds.high) continue;
        step = step_after_times;
        if (hit < times_at || !region.fits(hit, min_from_time)) continue;
        // If the fourth stamp from here on is plausible as well, this is the first. If
        // not, it may be any of the four.
        if (is_plausible_filetime(region.read_padded<u64>(hit + 3 * sizeof(u64)))) {
            add_apart(candidates, hit - times_at);
            continue;
        }
        for (std::size_t i = 0; i < time_count; ++i) {
            const u64 back = times_at + i * sizeof(u64);
            if (hit < back || !passes_entry_test(region.from(hit - back))) continue;
            add_apart(candidates, hit - back);
            break;
        }
    }
}

void harvest(index_slack_map &slack, byte_view region, const candidate_set &candidates,
             u64 position)
{
    for (const u64 start : candidates) {
        const byte_view bytes = region.from(start);
        const u64 units = bytes.read_padded<u8>(index_entry_layout::name_length);
        if (units == 0 || !bytes.fits(0, min_harvest) ||
            !bytes.fits(index_entry_layout::name, 2 * units))
            continue;
        index_entry entry = entry_at(bytes);
        entry.position = position + start;
        if (!trim(entry.name)) continue;
        slack.emplace(reference_entry(entry.parent_reference()), std::move(entry));
    }
}

} // namespace index_slack

bool parse_index_entries(index_live_map &live, index_slack_map &slack,
                         u64 &parent_reference, byte_view index_header,
                         u64 position_base, slack_mode mode)
{
    u32 first = 0;
    if (!index_header.read(index_header::first_entry, first) ||
        first > index_header.size())
        return false;
    const u64 end =
        walk_live_entries(live, parent_reference, index_header, first, position_base);
    if (mode == slack_mode::recover && end > 0 && end < index_header.size())
        recover_slack_entries(slack, index_header.from(end), parent_reference,
                              position_base + end);
    return true;
}

bool list_directory(const CNtfs &volume, index_live_map &live, index_slack_map &slack,
                    u64 entry, slack_mode mode, u64 &budget)
{
    live.clear();
    slack.clear();
    try {
        std::vector<attrib_info> attributes;
        if (!get_attribute_list(volume, entry, attributes,
                                attribute_scope::directory_index))
            return false;
        u64 parent_reference = 0;
        for (const attrib_info &part : attributes) {
            const byte_view root{part.content};
            if (part.is(attribute_type::index_root)) {
                if (root.size() >= index_root::min_size)
                    parse_index_entries(live, slack, parent_reference,
                                        root.from(index_root::header), 0, mode);
                continue;
            }
            for_each_index_block(
                volume, part.cluster_runs, budget, [&](byte_view block, u64 position) {
                    parse_index_entries(live, slack, parent_reference,
                                        block.from(index_block::header),
                                        position + index_block::header, mode);
                });
        }
    } catch (const std::bad_alloc &) {
        // What was found is still good.
    }
    return !live.empty() || !slack.empty();
}

bool read_index_names(std::set<u64> &children, byte_view index_header, name_walk mode)
{
    using namespace index_entry_layout;
    const u32 in_use = index_header.read_padded<u32>(index_header::bytes_in_use);
    if (in_use < 1 || in_use > max_bytes_of_names) return false;
    u64 offset = index_header.read_padded<u32>(index_header::first_entry);
    u64 remaining = in_use;
    bool any = false;
    while (remaining >= 1 && remaining <= max_bytes_in_use) {
        const byte_view bytes = index_header.from(offset);
        if (!bytes.fits(0, content)) break;
        any = true;
        const u16 entry_length = bytes.read_padded<u16>(length);
        const u16 inner = bytes.read_padded<u16>(content_length);
        const u64 child = bytes.read_padded<u64>(reference);
        if (entry_length > in_use || inner > in_use) break;
        if (mode == name_walk::strict && entry_length < inner) break;
        if (child != 0 && !is_last(bytes.read_padded<u16>(flags)))
            children.insert(reference_entry(child));
        else if (mode == name_walk::strict)
            break;
        if (entry_length > remaining) break;
        offset += entry_length;
        remaining -= entry_length;
        const u16 next = index_header.from(offset).read_padded<u16>(length);
        if (next == 0 || next > max_next_name) break;
    }
    return any;
}

} // namespace hv

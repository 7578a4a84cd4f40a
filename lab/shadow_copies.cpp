#include "lab/shadow_copies.h"

#include "samples/shadow_structures.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>

namespace lab {

namespace {

using namespace test_support;

constexpr u64 unit = shadow_block_size;
constexpr std::size_t sector = 512;
constexpr u32 sectors_in_unit = 32;
constexpr u32 all_sectors = ~u32{0};
constexpr u64 volume_header_offset = 0x1E00;
constexpr u64 bitmap_covers = 0x7F000000; // bytes of the volume
constexpr u8 filler = 0xA5;               // what a reader must never deliver

namespace block_type {
constexpr u32 catalog = 2, descriptors = 3, store = 4, ranges = 5, bitmap = 6;
} // namespace block_type

namespace descriptor_flag {
constexpr u32 forwarder = 1, overlay = 2, not_used = 4;
constexpr u32 free_block = 0x88; // as Windows marks those that the bitmap had as free
} // namespace descriptor_flag

// Of a further overlay in a block that the store has already.
constexpr u64 same_store_block = 1;

// The same numbers on every machine.
class dice {
public:
    explicit dice(u64 seed) : m_state(seed) {}

    u64 next()
    {
        m_state += 0x9E3779B97F4A7C15;
        u64 mixed = m_state;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
        return mixed ^ mixed >> 31;
    }
    u64 below(u64 limit) { return next() % limit; }

    template <class T> void shuffle(std::vector<T> &items)
    {
        for (std::size_t left = items.size(); left > 1; --left)
            std::swap(items[left - 1], items[below(left)]);
    }

private:
    u64 m_state;
};

// Blocks of images

using block_view = std::span<const u8>;

// A block of an image. The last one of a volume may be shorter.
block_view block_at(const byte_vector &image, u64 index)
{
    const u64 at = index * unit;
    return block_view(image).subspan(at, std::min(unit, image.size() - at));
}

bool same_sector(block_view a, block_view b, u32 index)
{
    const std::size_t at = index * sector;
    if (at >= a.size()) return at >= b.size();
    const std::size_t length = std::min(sector, a.size() - at);
    return std::ranges::equal(a.subspan(at, length), b.subspan(at, length));
}

bool is_zero_sector(block_view block, u32 index)
{
    return std::ranges::all_of(block.subspan(index * sector, sector),
                               [](u8 byte) { return byte == 0; });
}

// One bit for each sector that differs. The blocks have the same length.
u32 changed_sectors(block_view before, block_view after)
{
    u32 changed = 0;
    for (u32 i = 0; i < sectors_in_unit; ++i)
        changed |= u32{!same_sector(before, after, i)} << i;
    return changed;
}

byte_vector whole_block(block_view bytes)
{
    byte_vector block(bytes.begin(), bytes.end());
    block.resize(unit);
    return block;
}

// The sectors of `first` whose bits are set, and the others of `second`.
byte_vector mixed_block(block_view first, u32 sectors, const byte_vector &second)
{
    const byte_vector from = whole_block(first);
    byte_vector block = second;
    for (std::size_t at = 0; at < unit; ++at)
        if ((sectors >> at / sector & 1) != 0) block[at] = from[at];
    return block;
}

// The sectors of all pages of 4 KiB that have one of these: a record of the $MFT is
// kept whole.
u32 whole_pages(u32 sectors)
{
    u32 pages = 0;
    for (u32 page = 0xFF; page != 0; page <<= 8)
        if ((sectors & page) != 0) pages |= page;
    return pages;
}

byte_vector filler_block()
{
    return byte_vector(unit, filler);
}

u64 count_of_blocks(const byte_vector &image)
{
    return (image.size() + unit - 1) / unit;
}

// What the volume's disk had when a snapshot was taken.
const byte_vector &disk_of(const shadow_copy &copy)
{
    return copy.on_disk.empty() ? copy.volume : copy.on_disk;
}

// True for each block that has no cluster in use.
std::vector<bool> free_blocks(const shadow_copy &copy, u32 cluster_size)
{
    std::vector<bool> is_free(count_of_blocks(copy.volume));
    for (u64 i = 0; i < is_free.size() && !copy.used_clusters.empty(); ++i) {
        const u64 end = std::min<u64>((i + 1) * unit, copy.volume.size());
        bool used = false;
        for (u64 at = i * unit; at < end; at += std::min<u64>(cluster_size, unit)) {
            const u64 cluster = at / cluster_size;
            const u64 byte = cluster / 8;
            used |= byte >= copy.used_clusters.size() ||
                    (copy.used_clusters[byte] >> cluster % 8 & 1) != 0;
        }
        is_free[i] = !used;
    }
    return is_free;
}

// What one store has to keep.
struct store_plan {
    const shadow_copy &copy;
    const byte_vector &next;   // what the disk had at the next snapshot, or has now
    std::vector<bool> is_area; // blocks of the shadow copies themselves
    std::vector<bool> is_free; // at the snapshot
    std::vector<bool> wanted;  // by older snapshots
    std::vector<bool> tracked; // a change of these has to be kept

    block_view shown(u64 index) const { return block_at(copy.volume, index); }
    block_view before(u64 index) const { return block_at(disk_of(copy), index); }
    block_view after(u64 index) const { return block_at(next, index); }
    u32 changed(u64 index) const
    {
        return is_area[index] ? 0 : changed_sectors(before(index), after(index));
    }
    // The sectors that were written to the snapshot alone.
    u32 own(u64 index) const
    {
        return is_area[index] ? 0 : changed_sectors(shown(index), before(index));
    }
};

// A store

struct descriptor {
    u64 original = 0; // index of a block
    u64 relative = 0;
    u64 store = 0;
    u32 flags = 0;
    u32 sectors = 0;
};
// Descriptors whose order among each other matters.
using descriptor_group = std::vector<descriptor>;

class store_writer {
public:
    store_writer(byte_vector &volume, const store_plan &plan, const shadow_ways &ways)
        : m_volume(volume),
          m_plan(plan),
          m_ways(ways),
          m_dice(ways.seed * 1000 + plan.copy.sequence),
          m_kept(plan.tracked.size()),
          m_wanted(plan.tracked)
    {
    }

    void write();
    /// Blocks of which this store has bytes.
    const std::vector<bool> &kept() const { return m_kept; }
    /// Blocks of which this snapshot needs bytes that later stores have to keep.
    const std::vector<bool> &wanted() const { return m_wanted; }
    const shadow_counts &counts() const { return m_counts; }
    /// Of the catalog's entry: list, header, ranges, bitmap, previous bitmap.
    std::array<u64, 5> offsets() const
    {
        return {m_list, on_volume(0), m_ranges, m_bitmap, m_previous};
    }

private:
    u64 on_volume(u64 in_file) const;
    u64 take_block();
    void put_block(u64 in_file, u32 type, u64 next, const byte_vector &content,
                   u64 further_size = 0);
    descriptor keep(u64 original, u32 flags, u32 sectors, const byte_vector &content);
    descriptor keep_whole(u64 index, const byte_vector &content);

    void keep_block(u64 index);
    void keep_with_overlays(descriptor_group &group, u64 index, u32 changed);
    void add_overlays(descriptor_group &group, u64 index, u32 sectors);
    void keep_moved();
    void keep_moved_block(u64 index);
    std::optional<u64> find_destination(u64 index) const;
    bool can_move_to(u64 origin, u64 index) const;
    void add_forwarders(descriptor_group &group, u64 from, u64 to);
    void add_unused();
    std::vector<descriptor> ordered();
    void write_header();
    void write_list();
    void write_ranges();
    u64 write_bitmap(const std::vector<bool> &is_set);

    byte_vector &m_volume;
    const store_plan &m_plan;
    const shadow_ways &m_ways;
    dice m_dice;
    u64 m_taken = 0; // bytes of the store file
    std::vector<bool> m_kept;
    std::vector<bool> m_wanted;
    std::vector<descriptor_group> m_groups;
    std::set<u64> m_moves; // origins and destinations of forwarders
    shadow_counts m_counts;
    u64 m_list = 0, m_ranges = 0, m_bitmap = 0, m_previous = 0;
};

u64 store_writer::on_volume(u64 in_file) const
{
    for (const volume_range &area : m_plan.copy.areas) {
        if (in_file < area.size) return area.offset + in_file;
        in_file -= area.size;
    }
    throw std::logic_error("a store needs more room");
}

u64 store_writer::take_block()
{
    on_volume(m_taken);
    return std::exchange(m_taken, m_taken + unit);
}

void store_writer::put_block(u64 in_file, u32 type, u64 next,
                             const byte_vector &content, u64 further_size)
{
    const u64 at = on_volume(in_file);
    byte_vector block = shadow_block(type, at, next, content);
    put_layout(block, {{24, 8, in_file}, {48, 8, further_size}});
    put_bytes(m_volume, at, block);
}

// Puts bytes into the next block of the store.
descriptor store_writer::keep(u64 original, u32 flags, u32 sectors,
                              const byte_vector &content)
{
    const u64 in_file = take_block();
    put_bytes(m_volume, on_volume(in_file), content);
    return {.original = original,
            .relative = in_file,
            .store = on_volume(in_file),
            .flags = flags,
            .sectors = sectors};
}

// Keeps all of a block. `content` may have later bytes where overlays have the right
// ones.
descriptor store_writer::keep_whole(u64 index, const byte_vector &content)
{
    m_wanted[index] = false;
    m_kept[index] = true;
    ++(m_plan.tracked[index] ? m_counts.plain : m_counts.free);
    return keep(index, m_plan.tracked[index] ? 0 : descriptor_flag::free_block, 0,
                content);
}

// Keeps a block that has changed, on the disk or in the snapshot alone, if the store is
// one that has to. Overlays are the snapshot's own: blocks that older snapshots look
// for here are kept whole.
void store_writer::keep_block(u64 index)
{
    const u32 changed = m_plan.changed(index);
    const u32 own = m_plan.own(index);
    const bool tracked = m_plan.tracked[index];
    if (m_moves.contains(index) || (!tracked && !m_ways.free_blocks) ||
        (changed | own) == 0)
        return;
    descriptor_group group;
    if (!tracked) {
        group = {keep_whole(index, whole_block(m_plan.shown(index)))};
    } else if (own != 0) {
        add_overlays(group, index, whole_pages(own));
        if (changed != 0)
            group.push_back(keep_whole(index, whole_block(m_plan.before(index))));
    } else if (m_ways.overlays && !m_plan.wanted[index] && m_dice.below(4) != 0) {
        keep_with_overlays(group, index, changed);
    } else {
        group = {keep_whole(index, whole_block(m_plan.before(index)))};
    }
    m_groups.push_back(group);
}

// Overlays without, before and after the whole block. What that has in sectors of
// overlays isn't the snapshot's, so a reader must not take it.
void store_writer::keep_with_overlays(descriptor_group &group, u64 index, u32 changed)
{
    const u64 way = m_dice.below(4);
    const bool with_plain = way >= 2;
    u32 some = all_sectors;
    if (with_plain) some = m_dice.below(2) == 0 ? 0x0000FFFF : 0xFF00FF00;
    const u32 sectors = whole_pages((changed & some) != 0 ? changed & some : changed);
    if (!with_plain) {
        add_overlays(group, index, sectors);
        if (way == 0) return;
        // Of two overlays with a sector, the first one holds.
        const byte_vector later =
            mixed_block(m_plan.after(index), sectors, filler_block());
        group.push_back(keep(index, descriptor_flag::overlay, sectors, later));
        ++m_counts.overlays;
        return;
    }
    const byte_vector before = whole_block(m_plan.before(index));
    const descriptor plain =
        keep_whole(index, mixed_block(m_plan.after(index), sectors, before));
    if (way == 2) group.push_back(plain);
    add_overlays(group, index, sectors);
    if (way == 3) group.push_back(plain);
}

// Keeps sectors of a block in one block of the store, in up to four steps.
void store_writer::add_overlays(descriptor_group &group, u64 index, u32 sectors)
{
    const byte_vector content =
        mixed_block(m_plan.shown(index), sectors, filler_block());
    descriptor overlay = keep(index, descriptor_flag::overlay, 0, content);
    m_kept[index] = true;
    const u64 steps = 1 + m_dice.below(4);
    for (u64 step = 0; step < steps; ++step) {
        overlay.sectors = 0;
        for (u32 i = 0; i < sectors_in_unit; ++i)
            if ((sectors >> i & 1) != 0 && (i / 8 + index) % steps == step)
                overlay.sectors |= u32{1} << i;
        if (overlay.sectors == 0) continue;
        group.push_back(overlay);
        overlay.relative = same_store_block;
        ++m_counts.overlays;
    }
}

// Blocks that moved

void store_writer::keep_moved()
{
    for (u64 i = 0; i < m_kept.size(); ++i)
        if (m_plan.tracked[i] && m_plan.changed(i) != 0 && m_plan.own(i) == 0 &&
            !m_moves.contains(i))
            keep_moved_block(i);
}

// Keeps a block by saying where its bytes went. What was at the destination is kept
// first. If some of the bytes have changed there since, the destination is kept once
// more: as what it was when the block had come.
void store_writer::keep_moved_block(u64 index)
{
    const std::optional<u64> to = find_destination(index);
    if (!to) return;
    descriptor_group group;
    if (m_plan.tracked[*to] || m_ways.free_blocks)
        group.push_back(keep_whole(*to, whole_block(m_plan.before(*to))));
    m_moves.insert({index, *to});
    add_forwarders(group, index, *to);
    m_kept[index] = true;
    m_wanted[index] = false;
    m_wanted[*to] = true;
    if (changed_sectors(m_plan.before(index), m_plan.after(*to)) != 0) {
        group.push_back(keep(*to, 0, 0, whole_block(m_plan.before(index))));
        m_wanted[*to] = false;
        ++m_counts.plain;
    }
    m_groups.push_back(group);
}

// A forwarder, or two by way of a free block that no store knows.
void store_writer::add_forwarders(descriptor_group &group, u64 from, u64 to)
{
    const auto forwarder = [](u64 original, u64 destination) {
        return descriptor{.original = original,
                          .relative = destination * unit,
                          .flags = descriptor_flag::forwarder};
    };
    u64 between = m_kept.size();
    if (m_dice.below(2) == 0)
        for (between = 0; between < m_kept.size(); ++between)
            if (!m_plan.tracked[between] && !m_plan.is_area[between] &&
                m_plan.changed(between) == 0 && !m_moves.contains(between))
                break;
    if (between < m_kept.size()) {
        m_moves.insert(between);
        group.push_back(forwarder(from, between));
        from = between;
        ++m_counts.forwarders;
    }
    group.push_back(forwarder(from, to));
    ++m_counts.forwarders;
}

// The block that now has most of the sectors of a block that has changed.
std::optional<u64> store_writer::find_destination(u64 index) const
{
    std::optional<u64> best;
    u32 most = sectors_in_unit / 2;
    for (u64 i = 0; i < m_kept.size(); ++i) {
        if (!can_move_to(index, i)) continue;
        u32 same = 0;
        for (u32 k = 0; k < sectors_in_unit; ++k)
            same += u32{same_sector(m_plan.before(index), m_plan.after(i), k) &&
                        !is_zero_sector(m_plan.after(i), k)};
        if (same <= most) continue;
        most = same;
        best = i;
    }
    return best;
}

bool store_writer::can_move_to(u64 origin, u64 index) const
{
    return index != origin && m_plan.changed(index) != 0 && m_plan.own(index) == 0 &&
           !m_moves.contains(index) && m_plan.after(index).size() == unit &&
           m_plan.before(origin).size() == unit;
}

// Descriptors that aren't used: before and after those of a block, and of a block that
// hasn't changed.
void store_writer::add_unused()
{
    const auto unused = [&](u64 index) {
        ++m_counts.unused;
        return keep(index, descriptor_flag::not_used, 0, filler_block());
    };
    for (descriptor_group &group : m_groups) {
        const u64 where = m_dice.below(8);
        if (where == 0) group.insert(group.begin(), unused(group.front().original));
        if (where == 1) group.push_back(unused(group.front().original));
    }
    for (u64 i = 0; i < m_kept.size(); ++i)
        if (m_plan.tracked[i] && m_plan.changed(i) == 0 && !m_moves.contains(i) &&
            m_dice.below(32) == 0)
            m_groups.push_back({unused(i)});
}

// The list itself

// All descriptors. Those of one group stay in their order, with others between them if
// the order is a shuffled one.
std::vector<descriptor> store_writer::ordered()
{
    std::ranges::stable_sort(m_groups, {}, [](const descriptor_group &group) {
        return group.front().original;
    });
    if (m_ways.order == shadow_order::descending) std::ranges::reverse(m_groups);
    std::vector<std::size_t> turns;
    for (std::size_t i = 0; i < m_groups.size(); ++i)
        turns.insert(turns.end(), m_groups[i].size(), i);
    if (m_ways.order == shadow_order::shuffled) m_dice.shuffle(turns);
    std::vector<std::size_t> done(m_groups.size());
    std::vector<descriptor> list;
    list.reserve(turns.size());
    for (const std::size_t group : turns)
        list.push_back(m_groups[group][done[group]++]);
    return list;
}

void store_writer::write_list()
{
    const std::vector<descriptor> list = ordered();
    const std::size_t share = std::min<std::size_t>(m_ways.descriptors_in_block, 508);
    u64 block = unit; // the second of the file
    m_list = on_volume(block);
    std::size_t done = 0;
    do {
        byte_vector content;
        for (const std::size_t end = std::min(done + share, list.size()); done < end;
             ++done) {
            const descriptor &one = list[done];
            put_layout(content,
                       {{0, 8, one.original * unit},
                        {8, 8, one.relative},
                        {16, 8, one.store},
                        {24, 4, one.flags},
                        {28, 4, one.sectors}},
                       content.size());
        }
        const u64 next = done < list.size() ? take_block() : 0;
        put_block(block, block_type::descriptors, next == 0 ? 0 : on_volume(next),
                  content);
        ++m_counts.list_blocks;
        block = next;
    } while (block != 0);
}

// The ranges begin after the first three blocks of the file.
void store_writer::write_ranges()
{
    constexpr u64 skipped = 3 * unit;
    byte_vector content;
    u64 in_file = 0;
    for (const volume_range &area : m_plan.copy.areas) {
        const u64 begin = in_file == 0 ? skipped : 0;
        put_layout(content,
                   {{0, 8, area.offset + begin},
                    {8, 8, in_file + begin},
                    {16, 8, area.size - begin}},
                   content.size());
        in_file += area.size;
    }
    put_block(2 * unit, block_type::ranges, 0, content);
    m_ranges = on_volume(2 * unit);
}

// Returns where the first block of the bitmap is.
u64 store_writer::write_bitmap(const std::vector<bool> &is_set)
{
    constexpr u64 bits_in_block = bitmap_covers / unit;
    const u64 first = take_block();
    u64 block = first;
    for (u64 bit = 0; bit < is_set.size(); bit += bits_in_block) {
        byte_vector bits(bits_in_block / 8);
        for (u64 i = 0; i < bits_in_block && bit + i < is_set.size(); ++i)
            if (is_set[bit + i]) set_bit(bits, i);
        const bool is_last = bit + bits_in_block >= is_set.size();
        const u64 next = is_last ? 0 : take_block();
        put_block(block, block_type::bitmap, is_last ? 0 : on_volume(next), bits);
        block = next;
    }
    return on_volume(first);
}

void store_writer::write_header()
{
    constexpr std::u16string_view machine = u"WORKSTATION";
    dice ids(m_plan.copy.sequence * 77 + m_ways.seed);
    byte_vector content(64);
    for (std::size_t at = 0; at < 48; at += 8) put_number(content, at, ids.next(), 8);
    put_layout(content, {{48, 4, 9}, {52, 4, 1}, {56, 4, 0x00420009}});
    for (int i = 0; i < 2; ++i) { // where it was taken, and by which service
        const std::size_t at = content.size();
        put_number(content, at, machine.size() * 2, 2);
        put_utf16(content, at + 2, machine);
    }
    put_block(0, block_type::store, 0, content, content.size());
}

void store_writer::write()
{
    for (int i = 0; i < 3; ++i) take_block(); // header, list, ranges
    if (m_ways.forwarders) keep_moved();
    for (u64 i = 0; i < m_kept.size(); ++i) keep_block(i);
    if (m_ways.unused) add_unused();
    std::vector<bool> untracked = m_plan.tracked;
    std::vector<bool> free_at_start = m_plan.is_free;
    for (u64 i = 0; i < m_kept.size(); ++i) {
        untracked[i] = !m_plan.tracked[i] && !m_kept[i];
        free_at_start[i] = m_plan.is_free[i] || m_plan.is_area[i];
    }
    m_bitmap = write_bitmap(untracked);
    if (m_ways.free_at_start) m_previous = write_bitmap(free_at_start);
    write_list();
    write_ranges();
    write_header();
}

// The volume

byte_vector volume_header(const volume_range &catalog, u64 seed)
{
    byte_vector header = shadow_block(1, volume_header_offset, 0, {});
    header.resize(sector);
    put_layout(header, {{24, 8, volume_header_offset}, {48, 8, catalog.offset}});
    const shadow_id volume_id = shadow_store_id(seed, 0);
    const byte_vector id(volume_id.begin(), volume_id.end());
    put_bytes(header, 64, id); // the volume, and the one that has the stores
    put_bytes(header, 80, id);
    return header;
}

// The two entries of a store.
byte_vector catalog_entries(const shadow_copy &copy, const store_writer &store,
                            u64 index)
{
    byte_vector entries(256);
    if (copy.state == shadow_state::cleared) return entries;
    const bool live = copy.state == shadow_state::live;
    const auto [list, header, ranges, bitmap, previous] = store.offsets();
    const byte_vector id(copy.id.begin(), copy.id.end());
    put_bytes(entries, 16, id);
    put_bytes(entries, 128 + 16, id);
    put_layout(entries, {{0, 8, live ? 2U : 1U},
                         {8, 8, copy.volume.size()},
                         {32, 8, copy.sequence},
                         {40, 8, 0x40},
                         {48, 8, copy.created}});
    put_layout(entries,
               {{0, 8, live ? 3U : 1U},
                {8, 8, list},
                {32, 8, header},
                {40, 8, ranges},
                {48, 8, bitmap},
                {56, 8, copy.file_reference},
                {72, 8, previous},
                {80, 8, index}},
               128);
    return entries;
}

void write_catalog(byte_vector &volume, const volume_range &area,
                   const byte_vector &entries)
{
    constexpr u64 room = unit - shadow_header_size;
    if (entries.size() > area.size / unit * room)
        throw std::logic_error("the catalog needs more room");
    for (u64 in_file = 0; in_file < area.size; in_file += unit) {
        const u64 done = std::min<u64>(in_file / unit * room, entries.size());
        const u64 count = std::min<u64>(room, entries.size() - done);
        const auto begin = entries.begin() + static_cast<std::ptrdiff_t>(done);
        const u64 at = area.offset + in_file;
        const u64 next = in_file + unit < area.size ? at + unit : 0;
        byte_vector block =
            shadow_block(block_type::catalog, at, next,
                         {begin, begin + static_cast<std::ptrdiff_t>(count)});
        put_number(block, 24, in_file, 8);
        put_bytes(volume, at, block);
    }
}

// True for each block of the shadow copies themselves.
std::vector<bool> area_blocks(const byte_vector &volume, const volume_range &catalog,
                              const std::vector<shadow_copy> &copies)
{
    std::vector<bool> is_area(count_of_blocks(volume));
    const auto mark = [&](const volume_range &area) {
        if (area.size == 0 || area.offset % unit != 0 || area.size % unit != 0 ||
            area.end() > volume.size())
            throw std::logic_error("an area of shadow copies isn't whole blocks");
        for (u64 at = area.offset; at < area.end(); at += unit)
            is_area[at / unit] = true;
    };
    mark(catalog);
    for (const shadow_copy &copy : copies) {
        if (copy.volume.size() != volume.size() || copy.areas.empty() ||
            copy.areas.front().size < 5 * unit)
            throw std::logic_error("a shadow copy of another volume, or without room");
        for (const volume_range &area : copy.areas) mark(area);
    }
    return is_area;
}

// The image that tells what a store has to keep: that of the next snapshot which counts
// for it, or that of now. A live store keeps for itself what a deleted one had.
const byte_vector &next_image(const std::vector<shadow_copy> &copies, std::size_t of,
                              const byte_vector &now)
{
    for (std::size_t i = of + 1; i < copies.size(); ++i)
        if (copies[of].state != shadow_state::live ||
            copies[i].state == shadow_state::live)
            return disk_of(copies[i]);
    return now;
}

snapshot_view view_of(const store_plan &plan, const store_writer &store)
{
    snapshot_view view{.created = plan.copy.created,
                       .sequence = plan.copy.sequence,
                       .volume = plan.copy.volume,
                       .unknown = {},
                       .counts = store.counts()};
    for (u64 i = 0; i < plan.tracked.size(); ++i) {
        if (plan.tracked[i] || store.kept()[i]) continue;
        const volume_range block{i * unit, plan.before(i).size()};
        std::fill_n(view.volume.begin() + static_cast<std::ptrdiff_t>(block.offset),
                    block.size, u8{0});
        if (!view.unknown.empty() && view.unknown.back().end() == block.offset)
            view.unknown.back().size += block.size;
        else
            view.unknown.push_back(block);
    }
    return view;
}

// A store follows all that was in use, and what an older snapshot looks for here.
store_plan plan_store(const std::vector<shadow_copy> &copies, std::size_t index,
                      const byte_vector &now, const std::vector<bool> &is_area,
                      u32 cluster_size)
{
    store_plan plan{.copy = copies[index],
                    .next = next_image(copies, index, now),
                    .is_area = is_area,
                    .is_free = free_blocks(copies[index], cluster_size),
                    .wanted = std::vector<bool>(is_area.size()),
                    .tracked = {}};
    for (u64 i = 0; i < is_area.size(); ++i)
        plan.tracked.push_back(!is_area[i] && !plan.is_free[i]);
    return plan;
}

} // namespace

std::vector<snapshot_view> write_shadow_copies(byte_vector &volume, u32 cluster_size,
                                               const std::vector<shadow_copy> &copies,
                                               volume_range catalog,
                                               const shadow_ways &ways)
{
    const std::vector<bool> is_area = area_blocks(volume, catalog, copies);
    // The service writes its header beneath the snapshots: all of them have it.
    const byte_vector header = volume_header(catalog, ways.seed);
    put_bytes(volume, volume_header_offset, header);
    std::vector<shadow_copy> moments = copies;
    for (shadow_copy &moment : moments) {
        put_bytes(moment.volume, volume_header_offset, header);
        if (!moment.on_disk.empty())
            put_bytes(moment.on_disk, volume_header_offset, header);
    }
    const byte_vector now = volume;

    std::vector<snapshot_view> views;
    byte_vector entries;
    std::vector<bool> wanted(is_area.size());
    for (std::size_t i = 0; i < moments.size(); ++i) {
        const bool live = moments[i].state == shadow_state::live;
        store_plan plan = plan_store(moments, i, now, is_area, cluster_size);
        for (u64 k = 0; live && k < wanted.size(); ++k)
            if (wanted[k]) plan.wanted[k] = plan.tracked[k] = true;
        store_writer store(volume, plan, ways);
        store.write();
        append(entries, catalog_entries(moments[i], store, i));
        if (!live) continue;
        views.push_back(view_of(plan, store));
        wanted = store.wanted();
    }
    write_catalog(volume, catalog, entries);
    return views;
}

shadow_id shadow_store_id(u64 seed, u64 number)
{
    dice bytes(seed);
    const u64 low = bytes.next(), high = bytes.next();
    shadow_id id{};
    for (std::size_t i = 0; i < 8; ++i) {
        id[i] = static_cast<u8>(low >> 8 * i);
        id[8 + i] = static_cast<u8>(high >> 8 * i);
    }
    id[0] = static_cast<u8>(number * 5 + 1);
    id[7] = 0x11; // a version 1 GUID: made of time and of an address
    return id;
}

std::string shadow_catalog_name()
{
    return shadow_name;
}

std::string shadow_file_name(const shadow_id &id)
{
    static constexpr std::array<std::size_t, 16> order = {3, 2, 1,  0,  5,  4,  7,  6,
                                                          8, 9, 10, 11, 12, 13, 14, 15};
    std::string text = "{";
    for (std::size_t i = 0; i < order.size(); ++i) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", unsigned{id[order[i]]});
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += digits.data();
    }
    return text + "}" + shadow_name;
}

} // namespace lab

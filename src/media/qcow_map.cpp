#include "media/qcow_map.h"

#include "disk/hv_source_bytes.h"
#include "media/big_endian.h"
#include "media/inflate.h"
#include "media/qcow_layout.h"

#include <algorithm>

namespace hv {

namespace {

// Clusters that are looked up at once: more than one read takes of the usual size.
constexpr u64 max_row = 32;

// The entry as a number; zeros after the end of the table.
u64 entry_of(const std::vector<u8> &table, u64 number)
{
    return __builtin_bswap64(
        byte_view{table}.read_padded<u64>(number * qcow_entry::size));
}

} // namespace

qcow_facts read_qcow_facts(const byte_source &file)
{
    using namespace qcow_header;
    const std::vector<u8> bytes = read_bytes(file, 0, qcow_header::size);
    const byte_view header{bytes};
    qcow_facts facts;
    facts.version = big_endian(header, version, 4);
    facts.encryption =
        big_endian(header, facts.version == 1 ? l1_entries : encryption, 4);
    if (facts.version >= 3) facts.features = big_endian(header, incompatible, 8);
    const u64 length = big_endian(header, backing_length, 4);
    const u64 offset = big_endian(header, backing_offset, 8);
    if (offset == 0 || length == 0) return facts;
    const std::vector<u8> name =
        read_bytes(file, offset, std::min<u64>(length, max_name));
    facts.backing_name = name.empty() ? "?" : std::string(name.begin(), name.end());
    return facts;
}

std::shared_ptr<const qcow_map> qcow_map::open(byte_source_ptr file)
{
    using namespace qcow_header;
    const auto map = std::make_shared<qcow_map>();
    const std::vector<u8> bytes = read_bytes(*file, 0, qcow_header::size);
    const byte_view header{bytes};
    const u64 format = big_endian(header, version, 4);
    map->m_knows_zeros = format >= 3;
    map->m_cluster_bits = big_endian(header, cluster_bits, 4);
    map->m_size = big_endian(header, disk_size, 8);
    const u64 offset = big_endian(header, l1_offset, 8);
    if (format < 2 || format > 3 || map->m_cluster_bits < min_cluster_bits ||
        map->m_cluster_bits > max_cluster_bits || offset >= file->size())
        return nullptr;
    const u64 room = (file->size() - offset) / qcow_entry::size;
    const u64 table_span_bits = 2 * map->m_cluster_bits - 3;
    const u64 needed = (map->m_size >> table_span_bits) + 1;
    const u64 entries = std::min({big_endian(header, l1_entries, 4), needed, room});
    if (entries > max_first_table / qcow_entry::size) return nullptr;
    map->m_directory = read_bytes(*file, offset, entries * qcow_entry::size);
    map->m_file = std::move(file);
    return map;
}

// The place of the table for a byte; 0 if there is none.
u64 qcow_map::table_place(u64 offset) const
{
    const u64 table = (offset >> m_cluster_bits) / entries_of_table();
    return entry_of(m_directory, table) & qcow_entry::offset_mask;
}

// Of those that aren't cut off with the file.
u64 qcow_map::table_bytes() const
{
    u64 bytes = 0;
    for (u64 at = 0; at < m_directory.size(); at += qcow_entry::size) {
        const u64 place = big_endian(byte_view{m_directory}, at, qcow_entry::size) &
                          qcow_entry::offset_mask;
        if (place != 0 && place < m_file->size()) bytes += block_bytes();
    }
    return bytes;
}

u64 qcow_map::entries_of_table() const
{
    return block_bytes() / qcow_entry::size;
}

// A table that the file doesn't have is empty.
const qcow_map::kept_table &qcow_map::table_at(u64 place) const
{
    kept_table &kept = m_tables[(place >> m_cluster_bits) % m_tables.size()];
    if (kept.place == place) return kept;
    kept.place = place;
    kept.bytes = read_table(*m_file, place, block_bytes());
    kept.is_empty = std::ranges::all_of(kept.bytes, [](u8 byte) { return byte == 0; });
    return kept;
}

u64 qcow_map::cluster_entry(u64 offset) const
{
    const u64 place = table_place(offset);
    if (place == 0) return 0;
    return entry_of(table_at(place).bytes,
                    (offset >> m_cluster_bits) % entries_of_table());
}

// How many clusters from this one on are read in one way: each is after the one before
// it in the file, or all of them are holes.
u64 qcow_map::row_of(const kept_table &table, u64 number) const
{
    const u64 facts = qcow_entry::offset_mask | qcow_entry::is_compressed |
                      (m_knows_zeros ? qcow_entry::is_zero : 0);
    const u64 first = entry_of(table.bytes, number) & facts;
    const bool is_plain = (first & qcow_entry::offset_mask) == first && first != 0;
    const u64 step = is_plain ? block_bytes() : 0;
    const u64 last = std::min(entries_of_table() - number, max_row);
    u64 count = 1;
    while (count < last &&
           (entry_of(table.bytes, number + count) & facts) == first + count * step)
        ++count;
    return count;
}

// What a missing, an empty or the rest of a table that is cut off would list is passed
// over at once.
block_map::answer qcow_map::find(u64 offset) const
{
    const u64 rest = m_size - offset;
    const u64 span = block_bytes() * entries_of_table();
    const u64 place = table_place(offset);
    if (offset / span >= m_directory.size() / qcow_entry::size) return {.bytes = rest};
    const kept_table *table = place == 0 ? nullptr : &table_at(place);
    if (table == nullptr || table->is_empty)
        return {.bytes = std::min(rest, span - offset % span)};
    const u64 in_cluster = offset & (block_bytes() - 1);
    answer found{.bytes = std::min(rest, block_bytes() - in_cluster)};
    const u64 number = (offset >> m_cluster_bits) % entries_of_table();
    const bool is_cut_off = number * qcow_entry::size >= table->bytes.size();
    if (is_cut_off) return {.bytes = std::min(rest, span - offset % span)};
    const u64 entry = entry_of(table->bytes, number);
    if ((entry & qcow_entry::is_compressed) != 0) {
        found.what = holding::packed;
        return found;
    }
    found.bytes = std::min(rest, row_of(*table, number) * block_bytes() - in_cluster);
    found.place = (entry & qcow_entry::offset_mask) + in_cluster;
    if (m_knows_zeros && (entry & qcow_entry::is_zero) != 0)
        found.what = holding::zeros;
    else if ((entry & qcow_entry::offset_mask) != 0)
        found.what = holding::plain;
    return found;
}

u64 qcow_map::expected_end() const
{
    u64 end = 0;
    for (u64 offset = 0; offset < m_size;) {
        const answer found = find(offset);
        if (found.what == holding::plain)
            end = std::max(end, found.place + found.bytes);
        if (found.what == holding::packed)
            end = std::max(end, packed_place(offset) + 1);
        offset += found.bytes;
    }
    return end;
}

// The entry of a compressed cluster has its offset in the lower bits, and in those
// above them how many sectors it touches after its first one.
u64 qcow_map::packed_place(u64 offset) const
{
    const u64 offset_bits = qcow_entry::packed_bits - (m_cluster_bits - 8);
    return cluster_entry(offset) & ((u64{1} << offset_bits) - 1);
}

std::span<const u8> qcow_map::unpack(u64 offset) const
{
    const u64 entry = cluster_entry(offset);
    if (entry == m_cluster_entry) return m_cluster;
    m_cluster_entry = 0;
    const u64 offset_bits = qcow_entry::packed_bits - (m_cluster_bits - 8);
    const u64 place = packed_place(offset);
    const u64 sectors =
        (entry >> offset_bits & ((u64{1} << (m_cluster_bits - 8)) - 1)) + 1;
    const u64 bytes =
        sectors * qcow_entry::packed_unit - place % qcow_entry::packed_unit;
    const std::vector<u8> packed = read_bytes(*m_file, place, bytes);
    if (packed.size() < block_bytes() / max_inflation) return {};
    m_cluster.assign(block_bytes(), 0);
    if (inflate_block(m_cluster, byte_view{packed}, deflate_form::raw) !=
        m_cluster.size())
        return {};
    m_cluster_entry = entry;
    return m_cluster;
}

} // namespace hv

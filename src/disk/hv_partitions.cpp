#include "disk/hv_partitions.h"

#include "base/hv_text_convert.h"
#include "disk/hv_raw_disk_io.h"
#include "partitions/hv_partition_layout.h"

#include <algorithm>
#include <array>
#include <new>
#include <span>
#include <utility>

namespace hv {

namespace {

constexpr std::size_t head_size = 16384; ///< the table signature lies in these bytes
constexpr u64 last_scanned_position = 0x100000;
// Old partition tools leave the first track before an extended partition unused.
constexpr u64 lost_volume_sector = 63;
constexpr std::size_t lost_volume_read = 36;
constexpr u64 long_probe = 2048;
constexpr u32 array_window = 32768;
// Tables have 128 slots. A header with more than this, or more than the medium can
// hold, leads through bytes that aren't entries, and in the end past the medium.
constexpr u64 max_gpt_slots = 65536;

// Fills `buffer` from a position: with fewer bytes at the end of the medium, with none
// if the read fails.
byte_view read_at(const RAW_DISK_IO &disk, std::span<u8> buffer, u64 position)
{
    u32 length = static_cast<u32>(buffer.size());
    if (!disk.read_checked(buffer.data(), length, position)) return {};
    return byte_view(buffer.first(length));
}

bool is_zero(byte_view bytes)
{
    return std::ranges::all_of(bytes.bytes(), [](u8 byte) { return byte == 0; });
}

void add_reserved(partition_list &partitions, u64 start, u64 sectors, u8 type,
                  u32 sector_size, const char *name)
{
    partitions.emplace_back(start, sectors, type, sector_size);
    partitions.back().is_gpt = type == partition_type::gpt;
    partitions.back().name = name;
    partitions.back().file_system = name;
}

// ---- MBR

// Walks an extended partition, then looks for a volume in the track before it.
bool walk_extended_on_disk(partition_list &partitions, const RAW_DISK_IO &disk,
                           u64 base, u32 sector_size)
{
    std::array<u8, mbr::size> buffer{};
    u8 last_type = 0;
    const auto read_sector = [&](u64 at) { return read_at(disk, buffer, at); };
    if (!walk_extended(partitions, last_type, base, sector_size, read_sector))
        return false;
    const auto boot = std::span(buffer).first(lost_volume_read);
    if (begins_with_ntfs(read_at(disk, boot, lost_volume_sector * sector_size)))
        partitions.emplace_front(
            lost_volume_sector, base - std::min(base, lost_volume_sector),
            last_type | partition_entry::guessed_type, sector_size);
    return true;
}

bool walk_lost_table(partition_list &partitions, const RAW_DISK_IO &disk)
{
    std::array<u8, mbr::size> buffer{};
    for (u64 at = mbr::size; at <= last_scanned_position; at += mbr::size)
        if (is_table_sector(read_at(disk, buffer, at)))
            return walk_extended_on_disk(partitions, disk, at / mbr::size, mbr::size);
    return false;
}

void recognise_volumes(partition_list &partitions, const RAW_DISK_IO &disk)
{
    std::array<u8, mbr::size> buffer{};
    for (partition_entry &entry : partitions) {
        const byte_view front = read_at(disk, buffer, entry.byte_offset());
        if (!front.empty()) read_volume_signature(entry, front);
    }
}

// ---- GPT

// The entry array, read many slots at a time. If such a read fails, its slots are read
// one by one, so that only the damaged ones are lost.
class gpt_array {
public:
    gpt_array(const RAW_DISK_IO &disk, u64 position, u32 entry_size, u64 slots)
        : m_disk(disk),
          m_position(position),
          m_entry_size(entry_size),
          m_slots(slots)
    {
    }

    // The fields of an entry that are used. False if the slot can't be read.
    bool read_slot(byte_view &out, u64 slot)
    {
        const u64 wanted = std::min<u64>(m_entry_size, gpt_entry::size);
        if (wanted == 0) return false;
        if (slot >= m_first + m_count) load_window(slot);
        if (m_is_loaded)
            out = byte_view(m_window).clip((slot - m_first) * m_entry_size, wanted);
        else
            out = read_at(m_disk, std::span(m_window).first(wanted), position_of(slot));
        return !out.empty();
    }

private:
    u64 position_of(u64 slot) const
    {
        return saturating_sum(m_position, slot * m_entry_size);
    }
    void load_window(u64 slot)
    {
        m_first = slot;
        m_count =
            std::min(std::max(array_window / m_entry_size, u64{1}), m_slots - slot);
        const u64 length = m_count * m_entry_size;
        m_is_loaded = length <= m_window.size() &&
                      m_disk.read_exact(m_window.data(), length, position_of(slot));
    }

    const RAW_DISK_IO &m_disk;
    u64 m_position;
    u64 m_entry_size;
    u64 m_slots;
    std::vector<u8> m_window = std::vector<u8>(array_window);
    u64 m_first = 0;
    u64 m_count = 0;
    bool m_is_loaded = false;
};

bool add_gpt_entry(partition_list &partitions, const RAW_DISK_IO &disk, byte_view slot,
                   u32 sector_size)
{
    const u64 first = read_field(slot, gpt_entry::first_lba);
    const u64 last = read_field(slot, gpt_entry::last_lba);
    const u64 sectors = last < first ? 0 : saturating_sum(last - first, 1);
    partition_entry entry(first, last == 0 ? 0 : sectors, partition_type::gpt,
                          sector_size);
    std::array<u8, head_size> buffer{};
    const bool is_long = saturating_product(sectors, sector_size) > long_probe;
    const byte_view probe =
        read_at(disk, std::span(buffer).first(is_long ? long_probe : sector_size),
                entry.byte_offset());
    if (probe.empty()) return false;

    const byte_view type = slot.clip(gpt_entry::type_guid, gpt_entry::guid_size);
    const byte_view own = slot.clip(gpt_entry::partition_guid, gpt_entry::guid_size);
    std::ranges::copy(type.bytes(), entry.type_guid.begin());
    std::ranges::copy(own.bytes(), entry.partition_guid.begin());
    entry.is_gpt = true;
    entry.gpt_attributes = read_field(slot, gpt_entry::attributes_low);
    uni::utf16_name_to_utf8(slot.clip(gpt_entry::name, gpt_entry::name_size),
                            entry.name);
    if (probe.size() >= mbr::size) read_volume_signature(entry, probe);
    partitions.push_back(std::move(entry));
    return true;
}

// The header in the second sector of a disk. Disks of 4096-byte sectors often have the
// signature of the first one at 510, as if their sectors were smaller: then the header
// is found by its own signature, and corrects `sector_size`. Empty if there is none.
byte_view find_gpt_header(const RAW_DISK_IO &disk, std::span<u8> buffer,
                          u32 &sector_size)
{
    const byte_view header = read_at(disk, buffer, sector_size);
    if (read_field(header, gpt_header::own_lba) == 1) return header;
    for (const u32 size : {1024U, 2048U, 4096U, 8192U, 16384U}) {
        const byte_view other = read_at(disk, buffer, size);
        if (!holds_text(other, gpt_header::signature, gpt_header::signature_text) ||
            read_field(other, gpt_header::own_lba) != 1)
            continue;
        sector_size = size;
        return other;
    }
    return {};
}

// `out_sector_size` is the unit of the table, whatever its volumes say of themselves.
bool walk_gpt(partition_list &partitions, u32 &out_sector_size, const RAW_DISK_IO &disk,
              table_gaps gaps)
{
    std::vector<u8> buffer(head_size);
    u32 sector_size = find_sector_size(read_at(disk, buffer, 0));
    if (sector_size == 0) return false;
    const byte_view header = find_gpt_header(disk, buffer, sector_size);
    if (header.empty()) return false;
    out_sector_size = sector_size;
    const u64 array_lba = read_field(header, gpt_header::array_lba);
    const u64 slots = read_field(header, gpt_header::entry_count);
    const u32 entry_size = read_field(header, gpt_header::entry_size);
    if (gaps == table_gaps::on) {
        constexpr u8 type = partition_type::gpt;
        add_reserved(partitions, 0, 1, type, sector_size, "protective_mbr");
        add_reserved(partitions, 1, 1, type, sector_size, "gpt header");
        add_reserved(partitions, 2, 32, type, sector_size, "gpt partition entries");
    }
    const u64 max_slots = std::min(max_gpt_slots, disk.get_size() / gpt_entry::size);
    gpt_array array(disk, saturating_product(array_lba, sector_size), entry_size,
                    slots);
    for (u64 slot = 0; slot < slots; ++slot) {
        byte_view entry;
        if (slot >= max_slots || !array.read_slot(entry, slot)) return false;
        if (is_zero(entry.clip(gpt_entry::type_guid, gpt_entry::guid_size))) continue;
        if (!add_gpt_entry(partitions, disk, entry, sector_size)) return false;
    }
    return !partitions.empty();
}

// ---- Any table

// `sector_size` is that of the MBR, and becomes that of the GPT if one takes its place.
bool walk_table(partition_list &partitions, u32 &sector_size, const RAW_DISK_IO &disk,
                byte_view head, table_gaps gaps)
{
    for (unsigned i = 0; i < mbr::record_count; ++i) {
        const table_record record = read_table_record(head, i);
        if (record.type == partition_type::gpt) {
            partitions.clear();
            return walk_gpt(partitions, sector_size, disk, gaps);
        }
        if (!record.is_usable()) continue;
        if (partitions.empty() && gaps == table_gaps::on)
            add_reserved(partitions, 0, 1, 0, sector_size, "mbr");
        partitions.emplace_back(record.first_sector, record.sectors, record.type,
                                sector_size);
        if (record.is_extended())
            return walk_extended_on_disk(partitions, disk, record.first_sector,
                                         sector_size);
    }
    return true;
}

// ---- Gaps

// Adds an entry for each gap between the end of an entry and the start of the next one,
// and for what follows the last one. `sector_size` is that of the table.
void add_unallocated(partition_list &partitions, u64 disk_size, u32 sector_size,
                     bool is_gpt)
{
    partition_list found;
    found.swap(partitions);
    u64 end = 0;
    const auto add_gap = [&](u64 next, u32 size) {
        if (end >= next) return;
        partitions.emplace_back(end, next - end, 0, size);
        partitions.back().name = "unalloc";
        partitions.back().is_gpt = is_gpt;
    };
    for (partition_entry &entry : found) {
        add_gap(entry.start_sector, entry.m_sector_size);
        end = saturating_sum(entry.start_sector, entry.sectors);
        partitions.push_back(std::move(entry));
    }
    add_gap(disk_size / sector_size, sector_size);
}

bool holds_a_volume(const partition_list &partitions)
{
    return std::ranges::any_of(partitions, &partition_entry::is_volume);
}

// Where the signature lies says how large a sector is, but disks of 4096-byte sectors
// often have it at 510 as well. If no partition holds a volume at 512 bytes a sector,
// and one does at 4096, the latter is believed.
void try_wide_sectors(partition_list &partitions, const RAW_DISK_IO &disk,
                      byte_view head, table_gaps gaps, u32 &sector_size)
{
    partition_list found;
    u32 wide_size = 4096;
    if (sector_size != mbr::size || holds_a_volume(partitions) ||
        !walk_table(found, wide_size, disk, head, gaps))
        return;
    recognise_volumes(found, disk);
    if (!holds_a_volume(found)) return;
    partitions.swap(found);
    sector_size = wide_size;
}

bool find_by_table(partition_list &partitions, const RAW_DISK_IO &disk, byte_view head,
                   u32 sector_size, table_gaps gaps)
{
    const bool has_table = sector_size != 0;
    if (!has_table) sector_size = mbr::size;
    const bool good = has_table ? walk_table(partitions, sector_size, disk, head, gaps)
                                : walk_lost_table(partitions, disk);
    if (!good || partitions.empty()) return false;
    const bool is_gpt = partitions.front().is_gpt;
    // The walk of a GPT has done this already. The types of a lost table stay as it has
    // them: they are the only evidence of what it said.
    if (has_table && !is_gpt) {
        recognise_volumes(partitions, disk);
        try_wide_sectors(partitions, disk, head, gaps, sector_size);
    }
    if (gaps == table_gaps::on)
        add_unallocated(partitions, disk.get_size(), sector_size, is_gpt);
    return true;
}

} // namespace

bool find_partitions(partition_list &out_partitions, const RAW_DISK_IO &disk,
                     table_scan scan, table_gaps gaps)
try {
    out_partitions.clear();
    std::vector<u8> buffer(head_size);
    const byte_view head = read_at(disk, buffer, 0);
    if (head.empty()) return false;
    if (begins_with_volume(head)) {
        out_partitions.push_back(make_volume_entry(head.clip(0, mbr::size)));
        return true;
    }
    const u32 sector_size = find_sector_size(head);
    // An ext volume would replace whatever a scan for a lost table finds.
    if (sector_size == 0 && begins_with_ext(head)) {
        out_partitions.push_back(
            make_volume_entry(head.clip(0, superblock::needed_size)));
        return true;
    }
    if (sector_size == 0 && scan == table_scan::off) return false;
    return find_by_table(out_partitions, disk, head, sector_size, gaps);
} catch (const std::bad_alloc &) {
    return false;
}

bool find_partitions_gpt(partition_list &out_partitions, const RAW_DISK_IO &disk,
                         table_gaps gaps)
try {
    out_partitions.clear();
    u32 sector_size = 0;
    return walk_gpt(out_partitions, sector_size, disk, gaps);
} catch (const std::bad_alloc &) {
    return false;
}

} // namespace hv

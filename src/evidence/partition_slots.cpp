#include "evidence/partition_slots.h"

#include "base/hv_checked_math.h"
#include "base/hv_text_convert.h"
#include "evidence/source_bytes.h"
#include "evidence/volume_content.h"
#include "partitions/hv_partition_buffer.h"
#include "partitions/hv_partition_layout.h"

#include <algorithm>
#include <array>
#include <set>

namespace hv {

namespace {

constexpr std::array<u32, 2> sector_sizes = {512, 4096};
// More tables in a chain, or entries in a table, than any disk has.
constexpr std::size_t max_chained_tables = 256;
constexpr u32 max_gpt_entries = 1024;
constexpr u32 max_gpt_entry_size = 4096;

using slot_list = std::vector<partition_slot>;

// Collects slots of one disk by sectors of one size.
class slot_collector {
public:
    slot_collector(const byte_source &disk, u32 sector_size)
        : m_disk(disk),
          m_sector_size(sector_size)
    {
    }

    slot_list read_all()
    {
        read_mbr();
        read_gpt(m_sector_size, partition_table::gpt);
        if (m_disk.size() >= m_sector_size)
            read_gpt(m_disk.size() / m_sector_size * m_sector_size - m_sector_size,
                     partition_table::gpt_copy);
        return std::move(m_slots);
    }

private:
    std::vector<u8> read_sector(u64 sector) const
    {
        return read_bytes(m_disk, saturating_product(sector, m_sector_size), mbr::size);
    }
    void add(u64 first, u64 sectors, partition_slot slot);
    void read_mbr();
    void read_chain(u64 base);
    void read_gpt(u64 header_position, partition_table table);
    void add_gpt_entry(byte_view entry, partition_table table);

    const byte_source &m_disk;
    u32 m_sector_size;
    slot_list m_slots;
};

bool is_extended_type(u8 type)
{
    constexpr u8 linux_extended = 0x85;
    constexpr u8 hidden = 0x10;
    const u8 shown = type & ~hidden;
    return type == linux_extended || shown == partition_type::extended ||
           shown == partition_type::extended_lba;
}

void slot_collector::add(u64 first, u64 sectors, partition_slot slot)
{
    slot.offset = saturating_product(first, m_sector_size);
    if (first == 0 || slot.offset >= m_disk.size()) return;
    slot.size = std::min(saturating_product(sectors, m_sector_size),
                         m_disk.size() - slot.offset);
    const auto is_same = [&](const partition_slot &known) {
        return known.offset == slot.offset;
    };
    if (slot.size != 0 && std::ranges::none_of(m_slots, is_same))
        m_slots.push_back(std::move(slot));
}

void slot_collector::read_mbr()
{
    const std::vector<u8> sector = read_sector(0);
    if (!is_table_sector(byte_view{sector})) return;
    for (unsigned i = 0; i < mbr::record_count; ++i) {
        const table_record record = read_table_record(byte_view{sector}, i);
        if (record.type == 0 || record.type == partition_type::gpt) continue;
        // A volume in place of a table: only the type of the record is wrong.
        const bool is_chain =
            is_extended_type(record.type) &&
            !begins_with_ntfs(byte_view{read_sector(record.first_sector)});
        if (is_chain)
            read_chain(record.first_sector);
        else
            add(record.first_sector, record.sectors,
                {.table = partition_table::mbr, .type = record.type, .name = {}});
    }
}

// The tables of logical partitions. Links count from the extended partition's start,
// volumes from their own table. The entries of all links are followed, as damage may
// have moved them from their usual place.
void slot_collector::read_chain(u64 base)
{
    std::vector<u64> waiting = {base};
    std::set<u64> seen = {0};
    while (!waiting.empty() && seen.size() <= max_chained_tables) {
        const u64 here = waiting.back();
        waiting.pop_back();
        if (!seen.insert(here).second) continue;
        const std::vector<u8> sector = read_sector(here);
        if (!is_table_sector(byte_view{sector})) continue;
        for (unsigned i = 0; i < mbr::record_count; ++i) {
            const table_record record = read_table_record(byte_view{sector}, i);
            if (record.type == 0 || record.sectors == 0) continue;
            if (is_extended_type(record.type))
                waiting.push_back(base + record.first_sector);
            else
                add(here + record.first_sector, record.sectors,
                    {.table = partition_table::mbr, .type = record.type, .name = {}});
        }
    }
}

void slot_collector::read_gpt(u64 header_position, partition_table table)
{
    const std::vector<u8> header = read_bytes(m_disk, header_position, mbr::size);
    const byte_view fields{header};
    if (!holds_text(fields, gpt_header::signature, gpt_header::signature_text)) return;
    // A copy that isn't where it says it is belongs to another disk.
    if (table == partition_table::gpt_copy &&
        saturating_product(read_field(fields, gpt_header::own_lba), m_sector_size) !=
            header_position)
        return;
    const u64 array =
        saturating_product(read_field(fields, gpt_header::array_lba), m_sector_size);
    const u32 size = read_field(fields, gpt_header::entry_size);
    const u32 count =
        std::min(read_field(fields, gpt_header::entry_count), max_gpt_entries);
    if (size < gpt_entry::size || size > max_gpt_entry_size) return;
    for (u32 i = 0; i < count; ++i) {
        const u64 position = saturating_sum(array, u64{i} * size);
        if (position >= m_disk.size()) return;
        add_gpt_entry(byte_view{read_bytes(m_disk, position, gpt_entry::size)}, table);
    }
}

void slot_collector::add_gpt_entry(byte_view entry, partition_table table)
{
    const auto guid = entry.clip(gpt_entry::type_guid, gpt_entry::guid_size).bytes();
    if (std::ranges::all_of(guid, [](u8 byte) { return byte == 0; })) return;
    const u64 first = read_field(entry, gpt_entry::first_lba);
    const u64 last = read_field(entry, gpt_entry::last_lba);
    if (last < first) return;
    partition_slot slot{.table = table, .name = {}};
    uni::utf16_name_to_utf8(entry.clip(gpt_entry::name, gpt_entry::name_size),
                            slot.name);
    add(first, saturating_sum(last - first, 1), std::move(slot));
}

// How many of the slots begin with something that is known.
std::ptrdiff_t count_known(const byte_source &disk, const slot_list &slots)
{
    return std::ranges::count_if(slots, [&](const partition_slot &slot) {
        const volume_content content = read_volume_content(disk, slot.offset);
        return content != volume_content::unknown && content != volume_content::empty;
    });
}

} // namespace

std::vector<partition_slot> read_partition_slots(const byte_source &disk)
{
    slot_list best;
    std::ptrdiff_t best_count = -1;
    for (const u32 sector_size : sector_sizes) {
        slot_list slots = slot_collector(disk, sector_size).read_all();
        const std::ptrdiff_t count = slots.empty() ? -1 : count_known(disk, slots);
        if (count <= best_count) continue;
        best_count = count;
        best = std::move(slots);
    }
    return best;
}

const char *table_name(partition_table table)
{
    switch (table) {
    case partition_table::mbr: return "MBR";
    case partition_table::gpt: return "GPT";
    case partition_table::gpt_copy: return "copy of the GPT";
    case partition_table::none: break;
    }
    return "no table";
}

} // namespace hv

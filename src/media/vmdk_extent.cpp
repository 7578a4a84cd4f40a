#include "media/vmdk_extent.h"

#include "base/hv_byte_view.h"
#include "disk/hv_source_bytes.h"
#include "media/inflate.h"
#include "media/vmdk_layout.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 max_descriptor = u64{1} << 20;
constexpr u64 max_grain = u64{16} << 20;  // files in use have 64 KiB
constexpr u64 max_entries = u64{1} << 16; // files in use have 512 or 4096

std::vector<u32> numbers_of(byte_view bytes)
{
    std::vector<u32> numbers(bytes.size() / vmdk_entry_size);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = bytes.read_padded<u32>(i * vmdk_entry_size);
    return numbers;
}

u64 divide_up(u64 value, u64 by)
{
    return value / by + (value % by == 0 ? 0 : 1);
}

} // namespace

std::shared_ptr<vmdk_extent> vmdk_extent::open(byte_source_ptr file,
                                               std::string &problem)
{
    auto extent = std::make_shared<vmdk_extent>();
    extent->m_file = std::move(file);
    if (extent->read_header(problem)) return extent;
    if (problem.empty()) problem = "its header is damaged, or the file is cut off";
    return nullptr;
}

bool vmdk_extent::set_sizes(u64 sectors, u64 grain_sectors, u64 entries)
{
    m_entries = entries;
    return grain_sectors != 0 && entries != 0 && entries <= max_entries &&
           grain_sectors <= max_grain / vmdk_sector_size &&
           !__builtin_mul_overflow(sectors, vmdk_sector_size, &m_size) &&
           !__builtin_mul_overflow(grain_sectors, vmdk_sector_size, &m_grain_bytes);
}

bool vmdk_extent::read_header(std::string &problem)
{
    using namespace vmdk_header;
    std::vector<u8> head = read_bytes(*m_file, 0, vmdk_header::size);
    byte_view header{head};
    if (header.read_padded<u32>(0) != vmdk_header::signature) return read_cowd_header();
    const auto get = [&header](auto field) {
        return header.read_padded<typename decltype(field)::value_type>(field.offset);
    };
    if (get(descriptor_offset) < m_file->size() / vmdk_sector_size &&
        get(descriptor_size) != 0) {
        const u64 bytes =
            std::min(get(descriptor_size), max_descriptor / vmdk_sector_size) *
            vmdk_sector_size;
        const std::vector<u8> text =
            read_bytes(*m_file, get(descriptor_offset) * vmdk_sector_size, bytes);
        m_descriptor = parse_vmdk_descriptor(byte_view{text});
    }
    if (get(directory_offset) == directory_at_end) {
        problem = "its end, where its directory is, is missing; the file is cut off";
        if (m_file->size() < vmdk_footer_from_end) return false;
        head = read_bytes(*m_file, m_file->size() - vmdk_footer_from_end,
                          vmdk_header::size);
        header = byte_view{head};
        if (header.read_padded<u32>(0) != vmdk_header::signature ||
            get(directory_offset) == directory_at_end)
            return false;
        problem.clear();
    }
    m_packed = (get(flags) & vmdk_flags::is_compressed) != 0;
    m_has_markers = (get(flags) & vmdk_flags::has_markers) != 0;
    if (m_packed && !can_inflate()) {
        problem = "its grains are compressed, and this program was built without "
                  "zlib1g-dev";
        return false;
    }
    if (!set_sizes(get(capacity), get(grain_size), get(entries_per_table)))
        return false;
    read_directory(get(directory_offset), ~u64{0});
    return m_size == 0 || !m_directory.empty();
}

bool vmdk_extent::read_cowd_header()
{
    const std::vector<u8> head = read_bytes(*m_file, 0, cowd_header::size);
    const byte_view header{head};
    if (head.size() != cowd_header::size ||
        !std::equal(head.begin(), head.begin() + 4, "COWD"))
        return false;
    const auto get = [&header](le_field<u32> field) {
        return u64{header.read_padded<u32>(field.offset)};
    };
    if (!set_sizes(get(cowd_header::capacity), get(cowd_header::grain_size),
                   cowd_header::entries_per_table))
        return false;
    read_directory(get(cowd_header::directory_offset),
                   get(cowd_header::directory_entries));
    return m_size == 0 || !m_directory.empty();
}

// No more of the directory than the extent needs, and than the file has.
void vmdk_extent::read_directory(u64 sector, u64 entries)
{
    const u64 needed = divide_up(divide_up(m_size, m_grain_bytes), m_entries);
    if (sector >= m_file->size() / vmdk_sector_size) return;
    const u64 place = sector * vmdk_sector_size;
    const u64 count =
        std::min({needed, entries, (m_file->size() - place) / vmdk_entry_size});
    if (count > max_first_table / vmdk_entry_size) return;
    m_directory =
        numbers_of(byte_view{read_bytes(*m_file, place, count * vmdk_entry_size)});
}

// Of those that aren't cut off with the file.
u64 vmdk_extent::table_bytes() const
{
    const u64 sectors = m_file->size() / vmdk_sector_size;
    const auto tables = std::ranges::count_if(
        m_directory, [sectors](u32 sector) { return sector != 0 && sector < sectors; });
    return static_cast<u64>(tables) * m_entries * vmdk_entry_size;
}

const vmdk_extent::kept_table &vmdk_extent::table(u64 number) const
{
    kept_table &kept = m_tables[number % m_tables.size()];
    if (kept.number == number) return kept;
    kept.number = number;
    const u64 place = u64{m_directory[number]} * vmdk_sector_size;
    kept.entries =
        numbers_of(byte_view{read_table(*m_file, place, m_entries * vmdk_entry_size)});
    kept.is_empty =
        std::ranges::all_of(kept.entries, [](u32 each) { return each == 0; });
    return kept;
}

// A table that the file doesn't have, or that isn't read whole, holds nothing.
vmdk_extent::answer vmdk_extent::find(u64 offset) const
{
    const u64 span = m_grain_bytes * m_entries;
    const u64 number = offset / span;
    const u64 rest = m_size - offset;
    if (number >= m_directory.size()) return {.bytes = rest};
    if (m_directory[number] == 0 || table(number).is_empty)
        return {.bytes = std::min(rest, span - offset % span)};
    const std::vector<u32> &grains = table(number).entries;
    const u64 entry = offset % span / m_grain_bytes;
    if (entry >= grains.size()) return {.bytes = std::min(rest, span - offset % span)};
    const u64 in_grain = offset % m_grain_bytes;
    answer found{.bytes = std::min(rest, m_grain_bytes - in_grain)};
    const u32 sector = grains[entry];
    if (sector == 0) return found;
    found.what = sector == vmdk_zero_grain ? holding::zeros
                 : m_packed                ? holding::packed
                                           : holding::plain;
    found.place = u64{sector} * vmdk_sector_size + (m_packed ? 0 : in_grain);
    return found;
}

std::span<const u8> vmdk_extent::unpack(u64 offset) const
{
    const u64 start = offset - offset % m_grain_bytes;
    if (m_grain_start == start) return m_grain;
    m_grain_start = ~u64{0};
    if (!unpack_into(m_grain, start, find(offset).place)) return {};
    m_grain_start = start;
    return m_grain;
}

bool vmdk_extent::unpack_into(std::vector<u8> &grain, u64 start, u64 place) const
{
    u64 packed_bytes = 2 * m_grain_bytes;
    if (m_has_markers) {
        const std::vector<u8> bytes =
            read_bytes(*m_file, place, vmdk_grain_marker::size);
        const byte_view marker{bytes};
        u64 sector = 0;
        u32 stated = 0;
        if (!marker.read(vmdk_grain_marker::sector.offset, sector) ||
            !marker.read(vmdk_grain_marker::packed_bytes.offset, stated) ||
            sector != start / vmdk_sector_size || stated > packed_bytes)
            return false;
        packed_bytes = stated;
        place += vmdk_grain_marker::size;
    }
    const std::vector<u8> packed = read_bytes(*m_file, place, packed_bytes);
    const u64 wanted = std::min(m_grain_bytes, m_size - start);
    if (packed.size() < wanted / max_inflation) return false;
    grain.assign(wanted, 0);
    return inflate_block(grain, byte_view{packed}, deflate_form::zlib) >= wanted;
}

} // namespace hv

#include "media/vhd_map.h"

#include "disk/hv_source_bytes.h"
#include "media/big_endian.h"
#include "media/signature.h"

#include <algorithm>

namespace hv {

namespace {

// clang-format off

/// At the end of the file, with a copy at its start. Numbers are big endian, in bytes.
namespace vhd_footer {
inline constexpr std::size_t bytes         = 512;
inline constexpr std::size_t header_offset = 16; ///< u64
inline constexpr std::size_t disk_size     = 48; ///< u64
inline constexpr std::size_t disk_type     = 60; ///< u32
inline constexpr u64 type_that_grows = 3;
} // namespace vhd_footer

namespace vhd_header { // "cxsparse"
inline constexpr std::size_t bytes         = 1024;
inline constexpr std::size_t table_offset  = 16; ///< u64
inline constexpr std::size_t table_entries = 28; ///< u32
inline constexpr std::size_t block_bytes   = 32; ///< u32
} // namespace vhd_header

constexpr u64 sector_bytes = 512;
constexpr u64 entry_bytes = 4;
constexpr u64 no_block = 0xFFFF'FFFF;
constexpr u64 max_block = u64{256} << 20; // files in use have 2 MiB or 512 KiB

// clang-format on

} // namespace

std::shared_ptr<const vhd_map> vhd_map::open(byte_source_ptr file)
{
    const auto map = std::make_shared<vhd_map>();
    const u64 size = file->size();
    const auto read_footer = [&](u64 offset) {
        std::vector<u8> bytes = read_bytes(*file, offset, vhd_footer::bytes);
        if (!holds_text(byte_view{bytes}, 0, "conectix")) bytes.clear();
        return bytes;
    };
    std::vector<u8> footer = read_footer(size - std::min(size, sector_bytes));
    map->m_lost_footer = footer.empty();
    if (footer.empty()) footer = read_footer(0);
    if (big_endian(byte_view{footer}, vhd_footer::disk_type, 4) !=
        vhd_footer::type_that_grows)
        return nullptr;
    map->m_size = big_endian(byte_view{footer}, vhd_footer::disk_size, 8);
    const std::vector<u8> bytes =
        read_bytes(*file, big_endian(byte_view{footer}, vhd_footer::header_offset, 8),
                   vhd_header::bytes);
    const byte_view header{bytes};
    map->m_block_bytes = big_endian(header, vhd_header::block_bytes, 4);
    const u64 table = big_endian(header, vhd_header::table_offset, 8);
    if (!holds_text(header, 0, "cxsparse") || map->m_block_bytes < sector_bytes ||
        map->m_block_bytes > max_block || map->m_block_bytes % sector_bytes != 0 ||
        table >= size)
        return nullptr;
    const u64 bitmap = map->m_block_bytes / sector_bytes / 8;
    map->m_bitmap_bytes = (bitmap + sector_bytes - 1) / sector_bytes * sector_bytes;
    const u64 entries = std::min(
        {big_endian(header, vhd_header::table_entries, 4), (size - table) / entry_bytes,
         map->m_size / map->m_block_bytes + 1, max_first_table / entry_bytes});
    map->m_table = read_bytes(*file, table, entries * entry_bytes);
    map->m_file = std::move(file);
    return map;
}

// The bitmap of a block says which sectors were written. A block is made of zeros, so
// nothing depends on it, and some programs leave it empty.
block_map::answer vhd_map::find(u64 offset) const
{
    const u64 number = offset / m_block_bytes;
    const u64 in_block = offset % m_block_bytes;
    answer found{.bytes = std::min(m_size - offset, m_block_bytes - in_block)};
    if (number >= m_table.size() / entry_bytes) return {.bytes = m_size - offset};
    const u64 sector =
        big_endian(byte_view{m_table}, number * entry_bytes, entry_bytes);
    if (sector == no_block) return found;
    found.what = holding::plain;
    found.place = sector * sector_bytes + m_bitmap_bytes + in_block;
    return found;
}

} // namespace hv

#include "media/disk_tables.h"

#include "base/hv_byte_view.h"
#include "disk/hv_source_bytes.h"

#include <algorithm>

namespace hv {

namespace {

// clang-format off

namespace vdi_header {
inline constexpr std::size_t   size = 400;
inline constexpr le_field<u32> data_offset      {344};
inline constexpr le_field<u32> block_size       {376};
inline constexpr le_field<u32> allocated_blocks {388};
} // namespace vdi_header

/// Sizes and offsets are in sectors of 512 bytes.
namespace parallels_header {
inline constexpr std::size_t   size = 64;
inline constexpr le_field<u32> tracks         {28}; ///< size of a block
inline constexpr le_field<u32> table_entries  {32};
inline constexpr u64           sector_bytes = 512;
} // namespace parallels_header

// clang-format on

} // namespace

u64 vdi_end(const byte_source &file)
{
    const std::vector<u8> bytes = read_bytes(file, 0, vdi_header::size);
    const byte_view header{bytes};
    const auto get = [&header](le_field<u32> field) {
        return u64{header.read_padded<u32>(field.offset)};
    };
    return get(vdi_header::data_offset) +
           get(vdi_header::block_size) * get(vdi_header::allocated_blocks);
}

// In the older form ("WithoutFreeSpace") an entry counts sectors, later blocks.
u64 parallels_end(const byte_source &file)
{
    using namespace parallels_header;
    const std::vector<u8> head = read_bytes(file, 0, parallels_header::size);
    const byte_view header{head};
    const u64 block = header.read_padded<u32>(tracks.offset) * sector_bytes;
    // "WithoutFreeSpace", later "WithouFreSpacExt"
    const bool counts_sectors = header.read_padded<u8>(6) == 't';
    const u64 unit = counts_sectors ? sector_bytes : block;
    const u64 room = file.size() - std::min<u64>(file.size(), parallels_header::size);
    const u64 entries = std::min<u64>(header.read_padded<u32>(table_entries.offset),
                                      room / sizeof(u32));
    const std::vector<u8> table =
        read_bytes(file, parallels_header::size, entries * sizeof(u32));
    u64 last = 0;
    for (u64 at = 0; at < table.size(); at += sizeof(u32))
        last = std::max<u64>(last, byte_view{table}.read_padded<u32>(at));
    return last == 0 ? 0 : last * unit + block;
}

} // namespace hv

#pragma once

#include "samples/ntfs_volume_builder.h"
#include "samples/record_builders.h"

#include <string>

/// The structures of shadow copies. The layouts are written down here a second time, so
/// that a slip in the program's tables can't hide. That they are those of Windows is
/// checked by the tests that read a volume of Windows with the same program.
namespace test_support {

inline constexpr std::size_t shadow_block_size = 16384;
inline constexpr std::size_t shadow_header_size = 128;

/// The name of the catalog file. That of a store's file has the identifier before it.
inline const std::string shadow_name = "{3808876b-c176-4e48-b7ae-04046e6cc752}";

/// A GUID whose sixteen bytes are all `id`: its text is the same in every byte order.
inline byte_vector shadow_guid(u8 id)
{
    return byte_vector(16, id);
}

/// A block of a type with its header. `offset` is its place on the volume in bytes,
/// `next` that of the next block of its chain or 0.
inline byte_vector shadow_block(u32 type, u64 offset, u64 next,
                                const byte_vector &content)
{
    byte_vector block(shadow_block_size);
    put_bytes(block, 0,
              {0x6B, 0x87, 0x08, 0x38, 0x76, 0xC1, 0x48, 0x4E, //
               0xB7, 0xAE, 0x04, 0x04, 0x6E, 0x6C, 0xC7, 0x52});
    put_layout(block, {{16, 4, 1}, {20, 4, type}, {32, 8, offset}, {40, 8, next}});
    put_bytes(block, shadow_header_size, content);
    block.resize(shadow_block_size);
    return block;
}

/// One store. Offsets are bytes on the volume.
struct shadow_store {
    u8 id = 1;       ///< each byte of its identifier
    u8 snapshot = 2; ///< each byte of the snapshot's identifier
    u64 number = 1;
    u64 created = sample_filetime;
    u64 block_list = 0;
    u64 header = 0;
    u64 ranges = 0;
    u64 bitmap = 0;
    u64 previous_bitmap = 0;
    u64 reference = 0; ///< of the store file
};

/// A catalog file of one block. Of each store it has the entry of type 3, then that of
/// type 2.
inline byte_vector shadow_catalog(const std::vector<shadow_store> &stores)
{
    byte_vector content;
    for (const shadow_store &store : stores) {
        const std::size_t third = content.size(), second = third + 128;
        content.resize(second + 128);
        put_bytes(content, third + 16, shadow_guid(store.id));
        put_layout(content,
                   {{0, 8, 3},
                    {8, 8, store.block_list},
                    {32, 8, store.header},
                    {40, 8, store.ranges},
                    {48, 8, store.bitmap},
                    {56, 8, store.reference},
                    {72, 8, store.previous_bitmap}},
                   third);
        put_bytes(content, second + 16, shadow_guid(store.id));
        put_layout(content,
                   {{0, 8, 2},
                    {8, 8, 0x40000000}, // size of the volume
                    {32, 8, store.number},
                    {48, 8, store.created}},
                   second);
    }
    return shadow_block(2, 0, 0, content);
}

/// One descriptor of a block list.
struct shadow_descriptor {
    u64 original = 0;
    u64 store = 0; ///< where the kept bytes are
    u32 flags = 0;
    u32 sectors = 0;
    u64 relative = 1;
};

/// A block of a block list.
inline byte_vector shadow_descriptors(const std::vector<shadow_descriptor> &list,
                                      u64 offset, u64 next = 0)
{
    byte_vector content(32 * list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        put_layout(content,
                   {{0, 8, list[i].original},
                    {8, 8, list[i].relative},
                    {16, 8, list[i].store},
                    {24, 4, list[i].flags},
                    {28, 4, list[i].sectors}},
                   32 * i);
    }
    return shadow_block(3, offset, next, content);
}

/// A bitmap block in which the bits of some volume offsets of its segment are set.
inline byte_vector shadow_bitmap(const std::vector<u64> &free_offsets, u64 offset)
{
    byte_vector content(shadow_block_size - shadow_header_size);
    for (const u64 free_offset : free_offsets)
        set_bit(content, free_offset / shadow_block_size);
    return shadow_block(6, offset, 0, content);
}

/// The block of a store's header.
inline byte_vector shadow_store_header(const shadow_store &store,
                                       std::u16string_view operating_machine = {},
                                       std::u16string_view service_machine = {})
{
    byte_vector content(64);
    put_bytes(content, 16, shadow_guid(store.snapshot));
    put_number(content, 48, 29, 4);
    put_number(content, 56, 0x5, 4);
    for (const std::u16string_view machine : {operating_machine, service_machine}) {
        const std::size_t at = content.size();
        put_number(content, at, machine.size() * 2, 2);
        put_utf16(content, at + 2, machine);
    }
    return shadow_block(4, store.header, 0, content);
}

/// The entry of the folder of the shadow copies.
inline constexpr u64 shadow_folder = 40;

/// Puts that folder and the catalog on a volume. The store files are the caller's.
inline ntfs_volume_builder &add_catalog(ntfs_volume_builder &volume,
                                        const byte_vector &catalog,
                                        const ntfs_storage &stored = {})
{
    return volume
        .directory({.entry = shadow_folder, .name = "System Volume Information"})
        .file({.entry = shadow_folder + 1,
               .parent = shadow_folder,
               .name = shadow_name,
               .data = catalog,
               .stored = stored});
}

/// What a store of `shadow_volume` has.
struct shadow_store_plan {
    std::vector<shadow_descriptor> first = {};
    std::vector<shadow_descriptor> second = {}; ///< of the list's second block
    std::vector<u64> free = {};                 ///< offsets whose bits are set
    std::vector<u64> free_before = {};          ///< in the previous bitmap
    u64 next = 0; ///< of the list's first block; 0: the second, if used
};

/// Where the area of a store begins: header, block list, its second block, bitmap,
/// previous bitmap, and five blocks that it has kept.
constexpr u64 shadow_area(u64 store)
{
    return 0x80000 + store * 0x80000;
}
constexpr u64 shadow_kept(u64 store, u64 index)
{
    return shadow_area(store) + (5 + index) * shadow_block_size;
}
/// Where the four blocks of a live file begin.
inline constexpr u64 shadow_live = 0x200000;

/// Sectors that each begin with their own offset on the volume.
inline byte_vector stamped_sectors(u64 offset, u64 bytes)
{
    byte_vector data(bytes);
    for (u64 at = 0; at < bytes; at += 512) put_number(data, at, offset + at, 8);
    return data;
}

inline byte_vector shadow_store_file(const shadow_store &store,
                                     const shadow_store_plan &plan)
{
    constexpr std::size_t block = shadow_block_size;
    const u64 second = store.block_list + block;
    byte_vector file = stamped_sectors(store.header, 10 * block);
    const u64 next = plan.second.empty() ? plan.next : second;
    put_bytes(file, 0, shadow_store_header(store));
    put_bytes(file, block, shadow_descriptors(plan.first, store.block_list, next));
    put_bytes(file, 2 * block, shadow_descriptors(plan.second, second));
    put_bytes(file, 3 * block, shadow_bitmap(plan.free, store.bitmap));
    put_bytes(file, 4 * block, shadow_bitmap(plan.free_before, store.previous_bitmap));
    return file;
}

/// A volume of 3 MiB with a catalog, up to two stores, and a live file. Whatever is
/// kept or live is stamped.
inline byte_vector shadow_volume(const std::vector<shadow_store_plan> &plans,
                                 u64 first_number = 1)
{
    const auto at = [](u64 offset, u64 blocks) {
        return ntfs_storage{.non_resident = true,
                            .runs = {{offset / 4096, 4 * blocks}}};
    };
    ntfs_volume_builder builder;
    std::vector<shadow_store> stores;
    for (u64 number = 1; number <= plans.size(); ++number) {
        const u64 area = shadow_area(number);
        // Identifiers go down as the numbers go up: their order must not matter.
        std::string id = "{00000000-0000-0000-0000-000000000000}";
        std::replace(id.begin(), id.end(), '0', static_cast<char>('9' - number));
        stores.push_back({.id = static_cast<u8>(0x99 - 0x11 * number),
                          .number = first_number + number - 1,
                          .block_list = area + shadow_block_size,
                          .header = area,
                          .bitmap = area + 3 * shadow_block_size,
                          .previous_bitmap = area + 4 * shadow_block_size});
        builder.file({.entry = 50 + number,
                      .parent = shadow_folder,
                      .name = id + shadow_name,
                      .data = shadow_store_file(stores.back(), plans[number - 1]),
                      .stored = at(area, 10)});
    }
    return add_catalog(builder, shadow_catalog(stores))
        .clusters(768)
        .file({.entry = 42,
               .name = "live",
               .data = stamped_sectors(shadow_live, 4 * shadow_block_size),
               .stored = at(shadow_live, 4)})
        .build();
}

} // namespace test_support

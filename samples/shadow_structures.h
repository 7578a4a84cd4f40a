#pragma once

#include "samples/ntfs_volume_builder.h"
#include "samples/record_builders.h"

#include <string>
#include <utility>

/// The structures of shadow copies, as Windows writes them. They know the layouts on
/// their own, so that a slip in the program's tables can't hide.
namespace test_support {

inline constexpr std::size_t shadow_block_size = 16384;
inline constexpr std::size_t shadow_header_size = 128;

/// The name of the catalog file, and with a store's identifier ahead that of its file.
inline const std::string shadow_name = "{3808876b-c176-4e48-b7ae-04046e6cc752}";

/// A GUID whose sixteen bytes are all `id`: its text is the same in every byte order.
inline byte_vector shadow_guid(std::uint8_t id)
{
    return byte_vector(16, id);
}

inline void put_bytes(byte_vector &bytes, std::size_t at, const byte_vector &what)
{
    if (bytes.size() < at + what.size()) bytes.resize(at + what.size());
    for (std::size_t i = 0; i < what.size(); ++i) bytes[at + i] = what[i];
}

/// A block of a type with its header; `offset` is its own place on the volume, `next`
/// that of the block behind it.
inline byte_vector shadow_block(std::uint32_t type, std::uint64_t offset,
                                std::uint64_t next, const byte_vector &content)
{
    byte_vector block(shadow_block_size);
    put_bytes(block, 0,
              {0x6B, 0x87, 0x08, 0x38, 0x76, 0xC1, 0x48, 0x4E, //
               0xB7, 0xAE, 0x04, 0x04, 0x6E, 0x6C, 0xC7, 0x52});
    put_number(block, 16, 1, 4);
    put_number(block, 20, type, 4);
    put_number(block, 32, offset, 8);
    put_number(block, 40, next, 8);
    put_bytes(block, shadow_header_size, content);
    block.resize(shadow_block_size);
    return block;
}

/// One store. Offsets are bytes on the volume.
struct shadow_store {
    std::uint8_t id = 1;       ///< each byte of its identifier
    std::uint8_t snapshot = 2; ///< each byte of the snapshot's identifier
    std::uint64_t number = 1;
    std::uint64_t created = sample_filetime;
    std::uint64_t block_list = 0;
    std::uint64_t header = 0;
    std::uint64_t ranges = 0;
    std::uint64_t bitmap = 0;
    std::uint64_t previous_bitmap = 0;
    std::uint64_t reference = 0; ///< of the store file
};

/// The catalog entries of a store: of type 2 and of type 3.
inline std::pair<byte_vector, byte_vector> shadow_entries(const shadow_store &store)
{
    byte_vector second(128);
    put_number(second, 0, 2, 8);
    put_number(second, 8, 0x40000000, 8);
    put_bytes(second, 16, shadow_guid(store.id));
    put_number(second, 32, store.number, 8);
    put_number(second, 48, store.created, 8);
    byte_vector third(128);
    put_number(third, 0, 3, 8);
    put_number(third, 8, store.block_list, 8);
    put_bytes(third, 16, shadow_guid(store.id));
    put_number(third, 32, store.header, 8);
    put_number(third, 40, store.ranges, 8);
    put_number(third, 48, store.bitmap, 8);
    put_number(third, 56, store.reference, 8);
    put_number(third, 72, store.previous_bitmap, 8);
    return {second, third};
}

/// A catalog file of one block with the entries of some stores, type 3 ahead of type 2.
inline byte_vector shadow_catalog(const std::vector<shadow_store> &stores)
{
    byte_vector content;
    for (const shadow_store &store : stores) {
        const auto [second, third] = shadow_entries(store);
        content.insert(content.end(), third.begin(), third.end());
        content.insert(content.end(), second.begin(), second.end());
    }
    return shadow_block(2, 0, 0, content);
}

/// One descriptor of a block list.
struct shadow_descriptor {
    std::uint64_t original = 0;
    std::uint64_t store = 0; ///< where the kept bytes lie
    std::uint32_t flags = 0;
    std::uint32_t sectors = 0;
    std::uint64_t relative = 1;
};

/// A block of a block list.
inline byte_vector shadow_descriptors(const std::vector<shadow_descriptor> &list,
                                      std::uint64_t offset, std::uint64_t next = 0)
{
    byte_vector content(32 * list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        put_number(content, 32 * i, list[i].original, 8);
        put_number(content, 32 * i + 8, list[i].relative, 8);
        put_number(content, 32 * i + 16, list[i].store, 8);
        put_number(content, 32 * i + 24, list[i].flags, 4);
        put_number(content, 32 * i + 28, list[i].sectors, 4);
    }
    return shadow_block(3, offset, next, content);
}

/// A bitmap block in which the bits of some volume offsets of its segment are set.
inline byte_vector shadow_bitmap(const std::vector<std::uint64_t> &free_offsets,
                                 std::uint64_t offset, std::uint64_t next = 0)
{
    byte_vector content(shadow_block_size - shadow_header_size);
    for (const std::uint64_t one : free_offsets) {
        const std::uint64_t bit = one / shadow_block_size;
        content.at(bit / 8) |= static_cast<std::uint8_t>(1 << bit % 8);
    }
    return shadow_block(6, offset, next, content);
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
inline constexpr std::uint64_t shadow_folder = 40;

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

/// What a store of `shadow_volume` holds.
struct shadow_store_plan {
    std::vector<shadow_descriptor> first = {};
    std::vector<shadow_descriptor> second = {};  ///< of the list's second block
    std::vector<std::uint64_t> free = {};        ///< offsets whose bits are set
    std::vector<std::uint64_t> free_before = {}; ///< in the previous bitmap
    std::uint64_t next = 0; ///< of the list's first block; 0: the second, if used
};

/// Where the area of a store lies: header, block list, its second block, bitmap,
/// previous bitmap, and five blocks that it has kept.
constexpr std::uint64_t shadow_area(std::uint64_t store)
{
    return 0x80000 + store * 0x80000;
}
constexpr std::uint64_t shadow_kept(std::uint64_t store, std::uint64_t index)
{
    return shadow_area(store) + (5 + index) * shadow_block_size;
}
/// Where the four blocks of a live file lie.
inline constexpr std::uint64_t shadow_live = 0x200000;

/// Sectors that each begin with their own offset on the volume.
inline byte_vector stamped_sectors(std::uint64_t offset, std::uint64_t bytes)
{
    byte_vector data(bytes);
    for (std::uint64_t at = 0; at < bytes; at += 512)
        put_number(data, at, offset + at, 8);
    return data;
}

inline byte_vector shadow_store_file(const shadow_store &store,
                                     const shadow_store_plan &plan)
{
    constexpr std::size_t block = shadow_block_size;
    const std::uint64_t second = store.block_list + block;
    byte_vector file = stamped_sectors(store.header, 10 * block);
    const std::uint64_t next = plan.second.empty() ? plan.next : second;
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
                                 std::uint64_t first_number = 1)
{
    const auto at = [](std::uint64_t offset, std::uint64_t blocks) {
        return ntfs_storage{.non_resident = true,
                            .runs = {{offset / 4096, 4 * blocks}}};
    };
    ntfs_volume_builder builder;
    std::vector<shadow_store> stores;
    for (std::uint64_t number = 1; number <= plans.size(); ++number) {
        const std::uint64_t area = shadow_area(number);
        // Identifiers go down as the numbers go up: their order must not matter.
        const std::string digit = std::to_string(9 - number);
        std::string name = "{00000000-0000-0000-0000-000000000000}" + shadow_name;
        for (std::size_t i = 0; i < 38; ++i)
            if (name[i] == '0') name[i] = digit[0];
        stores.push_back({.id = static_cast<std::uint8_t>(0x99 - 0x11 * number),
                          .number = first_number + number - 1,
                          .block_list = area + shadow_block_size,
                          .header = area,
                          .bitmap = area + 3 * shadow_block_size,
                          .previous_bitmap = area + 4 * shadow_block_size});
        builder.file({.entry = 50 + number,
                      .parent = shadow_folder,
                      .name = name,
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

#pragma once

#include "support/record_builders.h"

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

} // namespace test_support

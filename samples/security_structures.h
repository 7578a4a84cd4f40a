#pragma once

#include "samples/record_builders.h"

#include <vector>

/// Security descriptors and their store on a volume, as Windows writes them. They know
/// the layouts on their own, so that a slip in the program's tables can't hide.
namespace test_support {

inline byte_vector joined(const std::vector<byte_vector> &parts)
{
    byte_vector all;
    for (const byte_vector &one : parts) all.insert(all.end(), one.begin(), one.end());
    return all;
}

/// A little-endian number of `width` bytes.
inline byte_vector number_bytes(std::uint64_t value, std::size_t width)
{
    byte_vector bytes;
    put_number(bytes, 0, value, width);
    return bytes;
}

inline byte_vector sid(std::uint8_t authority,
                       const std::vector<std::uint32_t> &subauthorities)
{
    byte_vector bytes = {1, static_cast<std::uint8_t>(subauthorities.size())};
    put_number(bytes, 7, authority, 1);
    for (const std::uint32_t one : subauthorities)
        put_number(bytes, bytes.size(), one, 4);
    return bytes;
}

inline byte_vector ace(std::uint8_t type, std::uint8_t flags, std::uint32_t mask,
                       const byte_vector &trustee)
{
    return joined({{type, flags},
                   number_bytes(8 + trustee.size(), 2),
                   number_bytes(mask, 4),
                   trustee});
}

inline byte_vector acl(const std::vector<byte_vector> &aces)
{
    const byte_vector all = joined(aces);
    return joined(
        {{2, 0}, number_bytes(8 + all.size(), 2), number_bytes(aces.size(), 4), all});
}

/// Owner, group, SACL, DACL, one behind the other; an empty one is left out.
inline byte_vector descriptor(const std::vector<byte_vector> &parts)
{
    byte_vector bytes = {1, 0, 0x14, 0x80};
    bytes.resize(20);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (!parts[i].empty()) put_number(bytes, 4 + 4 * i, bytes.size(), 4);
        bytes.insert(bytes.end(), parts[i].begin(), parts[i].end());
    }
    return bytes;
}

/// An entry of "$SDS". The hash is turned by three bits, and each word added.
inline byte_vector sds_of(std::uint32_t id, std::uint64_t position,
                          const byte_vector &content)
{
    std::uint32_t hash = 0;
    for (std::size_t i = 0; i < content.size(); i += 4) {
        std::uint32_t word = 0;
        for (std::size_t k = 4; k-- > 0;) word = word << 8 | content.at(i + k);
        hash = (hash << 3 | hash >> 29) + word;
    }
    byte_vector bytes =
        joined({number_bytes(hash, 4), number_bytes(id, 4), number_bytes(position, 8),
                number_bytes(20 + content.size(), 4), content});
    bytes.resize((bytes.size() + 15) / 16 * 16);
    return bytes;
}

/// "$SDS" with one block of entries and its mirror.
inline byte_vector sds_stream(byte_vector entries)
{
    constexpr std::size_t block = 0x40000;
    byte_vector mirror = entries;
    entries.resize(block);
    return joined({entries, mirror});
}

} // namespace test_support

#pragma once

#include "samples/record_builders.h"

#include <vector>

/// Security descriptors and their store on a volume. The layouts are written down here
/// a second time, so that a slip in the program's tables can't hide. That they are
/// those of Windows is checked by a test that reads the owners on a real volume.
namespace test_support {

/// A little-endian number of `width` bytes.
inline byte_vector number_bytes(u64 value, std::size_t width)
{
    byte_vector bytes;
    put_number(bytes, 0, value, width);
    return bytes;
}

inline byte_vector sid(u8 authority, const std::vector<u32> &subauthorities)
{
    byte_vector bytes = {1, static_cast<u8>(subauthorities.size())};
    put_number(bytes, 7, authority, 1);
    for (const u32 part : subauthorities) put_number(bytes, bytes.size(), part, 4);
    return bytes;
}

inline byte_vector ace(u8 type, u8 flags, u32 mask, const byte_vector &trustee)
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

/// Owner, group, SACL and DACL in this order. An empty part is left out.
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
inline byte_vector sds_of(u32 id, u64 position, const byte_vector &content)
{
    u32 hash = 0;
    for (std::size_t i = 0; i < content.size(); i += 4) {
        u32 word = 0;
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

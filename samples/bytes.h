#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// What all makers of samples write with: little-endian numbers and text in a vector of
/// bytes. Whatever is put beyond the end of the vector makes it longer.
namespace test_support {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using byte_vector = std::vector<u8>;

/// Puts the low `width` bytes of a number.
inline void put_number(byte_vector &bytes, std::size_t at, u64 value, std::size_t width)
{
    if (bytes.size() < at + width) bytes.resize(at + width);
    for (std::size_t i = 0; i < width; ++i)
        bytes[at + i] = static_cast<u8>(value >> (8 * i));
}

/// One row of a layout: where a number is, its width, both in bytes, and the number.
struct layout_row {
    std::size_t offset, width;
    u64 value;
};

/// Puts the rows of a layout that starts at `base`.
inline void put_layout(byte_vector &bytes, std::initializer_list<layout_row> rows,
                       std::size_t base = 0)
{
    for (const auto &[offset, width, value] : rows)
        put_number(bytes, base + offset, value, width);
}

inline void put_utf16(byte_vector &bytes, std::size_t at, std::u16string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        put_number(bytes, at + 2 * i, text[i], 2);
}

inline void put_bytes(byte_vector &bytes, std::size_t at, const byte_vector &what)
{
    if (bytes.size() < at + what.size()) bytes.resize(at + what.size());
    std::copy(what.begin(), what.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

inline byte_vector bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline void put_text(byte_vector &bytes, std::size_t at, std::string_view text)
{
    put_bytes(bytes, at, bytes_of(text));
}

inline void set_bit(byte_vector &bits, u64 number)
{
    bits[number / 8] |= static_cast<u8>(1U << number % 8);
}

inline void append(byte_vector &bytes, const byte_vector &more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline byte_vector joined(const std::vector<byte_vector> &parts)
{
    byte_vector all;
    for (const byte_vector &part : parts) append(all, part);
    return all;
}

/// The `count` bytes at `at`, which are there.
inline byte_vector cut(const byte_vector &bytes, u64 at, u64 count)
{
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

inline std::string text(const byte_vector &bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace test_support

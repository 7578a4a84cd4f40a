#pragma once

#include "base/hv_types.h"

#include <cstddef>
#include <span>
#include <string_view>

/// Reading numbers and texts out of media, for what looks for structures there.
namespace stress {

/// The little-endian number of `width` bytes; 0 if it isn't all there.
inline hv::u64 number_at(std::span<const hv::u8> bytes, hv::u64 at, std::size_t width)
{
    if (at > bytes.size() || width > bytes.size() - at) return 0;
    hv::u64 value = 0;
    for (std::size_t i = 0; i < width; ++i) value |= hv::u64{bytes[at + i]} << 8 * i;
    return value;
}

inline bool has_text(std::span<const hv::u8> bytes, hv::u64 at, std::string_view text)
{
    if (at > bytes.size() || text.size() > bytes.size() - at) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (bytes[at + i] != static_cast<hv::u8>(text[i])) return false;
    return true;
}

/// Bytes of a medium, fewer at its end.
template <class Byte>
std::span<Byte> clipped(std::span<Byte> medium, hv::u64 offset, hv::u64 length)
{
    if (offset >= medium.size()) return {};
    const hv::u64 left = medium.size() - offset;
    return medium.subspan(offset, length < left ? length : left);
}

} // namespace stress

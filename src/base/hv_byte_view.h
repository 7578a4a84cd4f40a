#pragma once

#include "base/hv_types.h"

#include <array>
#include <concepts>
#include <span>
#include <utility>

namespace hv {

/// The little-endian number in the first sizeof(T) bytes at `bytes`. The caller has
/// checked that they are there.
template <std::unsigned_integral T> constexpr T little_endian(const u8 *bytes)
{
    T value = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
        value = static_cast<T>(static_cast<u64>(value) << 8 | bytes[i]);
    return value;
}

/// One field of an on-disk layout: its width is the type, `offset` is in bytes from
/// the start of the structure.
template <std::unsigned_integral T> struct le_field {
    using value_type = T;
    std::size_t offset;
};

/// A header of exactly N bytes that are known to be there. The compiler checks fields
/// against N.
template <std::size_t N> class fixed_view {
public:
    /// The number in `field`, for example `header.get<dollar_i::version>()`.
    template <auto field> constexpr auto get() const
    {
        using T = typename decltype(field)::value_type;
        static_assert(field.offset + sizeof(T) <= N, "the field leaves the header");
        return little_endian<T>(m_bytes + field.offset);
    }

private:
    friend class byte_view;
    const u8 *m_bytes = nullptr;
};

/// Bytes that nobody vouches for: read only, little endian, every access checked. All
/// input from a disk or a file is read through this class. It doesn't own the bytes.
class byte_view {
public:
    constexpr byte_view() = default;
    constexpr byte_view(std::span<const u8> bytes) : m_bytes(bytes) {}
    constexpr byte_view(const u8 *bytes, std::size_t count) : m_bytes(bytes, count) {}

    constexpr std::size_t size() const { return m_bytes.size(); }
    constexpr bool empty() const { return m_bytes.empty(); }
    constexpr std::span<const u8> bytes() const { return m_bytes; }

    /// True if there are `count` bytes from offset `at` on. Can't wrap, whatever the
    /// numbers.
    constexpr bool fits(u64 at, u64 count) const
    {
        return at <= size() && count <= size() - at;
    }

    /// Reads the number at `at`. False, with `out` untouched, if it passes the end.
    template <std::unsigned_integral T> constexpr bool read(u64 at, T &out) const
    {
        if (!fits(at, sizeof(T))) return false;
        out = little_endian<T>(m_bytes.data() + at);
        return true;
    }

    /// Reads the number at `at`, taking bytes after the end as zero.
    template <std::unsigned_integral T> constexpr T read_padded(u64 at) const
    {
        std::array<u8, sizeof(T)> bytes{};
        const byte_view available = clip(at, sizeof(T));
        for (std::size_t i = 0; i < available.size(); ++i)
            bytes[i] = available.m_bytes[i];
        return little_endian<T>(bytes.data());
    }

    /// Sets `out` to the N bytes at `at`. False, with `out` untouched, if not all of
    /// them are there.
    template <std::size_t N> constexpr bool fixed(u64 at, fixed_view<N> &out) const
    {
        if (!fits(at, N)) return false;
        out.m_bytes = m_bytes.data() + at;
        return true;
    }

    /// Sets `out` to the `count` bytes at `at`. False, with `out` untouched, if not all
    /// of them are there.
    constexpr bool sub(u64 at, u64 count, byte_view &out) const
    {
        if (!fits(at, count)) return false;
        out = byte_view(m_bytes.subspan(at, count));
        return true;
    }

    /// Those of the `count` bytes at `at` that are there.
    constexpr byte_view clip(u64 at, u64 count) const
    {
        if (at >= size()) return {};
        const u64 left = size() - at;
        return byte_view(m_bytes.subspan(at, count < left ? count : left));
    }

    /// Everything from `at` on; empty after the end.
    constexpr byte_view from(u64 at) const { return clip(at, size()); }

private:
    std::span<const u8> m_bytes;
};

} // namespace hv

#include "media/stitched_source.h"

#include <algorithm>

namespace hv {

bool stitched_source::append(byte_source_ptr from, u64 offset, u64 length)
{
    u64 size = 0;
    if (__builtin_add_overflow(m_size, length, &size)) return false;
    if (length == 0) return true;
    if (from && std::ranges::find(m_sources, from) == m_sources.end())
        m_sources.push_back(from);
    m_stretches.push_back(
        {.begin = m_size, .length = length, .from = std::move(from), .offset = offset});
    m_size = size;
    return true;
}

bool stitched_source::append_missing(u64 length)
{
    if (!append(nullptr, 0, length)) return false;
    if (length != 0) m_stretches.back().is_missing = true;
    m_missing += length;
    return true;
}

// The number of the stretch with the byte at `offset`, which is before the end.
std::size_t stitched_source::find(u64 offset) const
{
    const auto after =
        std::ranges::upper_bound(m_stretches, offset, {}, &stretch::begin);
    return static_cast<std::size_t>(after - m_stretches.begin()) - 1;
}

std::size_t stitched_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= m_size) return 0;
    out = out.first(std::min<u64>(out.size(), m_size - offset));
    std::span<u8> rest = out;
    for (std::size_t number = find(offset); !rest.empty(); ++number) {
        const stretch &from = m_stretches[number];
        const u64 skipped = offset - from.begin;
        const std::span<u8> part =
            rest.first(std::min<u64>(rest.size(), from.length - skipped));
        const std::size_t count =
            from.from ? from.from->read(from.offset + skipped, part) : 0;
        std::ranges::fill(part.subspan(count), u8{0});
        rest = rest.subspan(part.size());
        offset += part.size();
    }
    return out.size();
}

std::span<const u8> stitched_source::view(u64 offset, std::size_t length) const
{
    if (offset >= m_size) return {};
    const stretch &from = m_stretches[find(offset)];
    const u64 skipped = offset - from.begin;
    if (!from.from || length > from.length - skipped) return {};
    return from.from->view(from.offset + skipped, length);
}

u64 stitched_source::next_data(u64 offset) const
{
    if (offset >= m_size) return m_size;
    for (std::size_t number = find(offset); number < m_stretches.size(); ++number) {
        const stretch &from = m_stretches[number];
        const u64 skipped = std::max(offset, from.begin) - from.begin;
        if (!from.from) continue;
        const u64 next = from.from->next_data(from.offset + skipped) - from.offset;
        if (next < from.length && from.offset + next < from.from->size())
            return from.begin + next;
    }
    return m_size;
}

u64 stitched_source::stored_size() const
{
    u64 bytes = 0;
    for (const byte_source_ptr &source : m_sources) bytes += source->stored_size();
    return std::min(bytes, m_size);
}

u64 stitched_source::unreadable() const
{
    u64 bytes = m_missing;
    for (const byte_source_ptr &source : m_sources) bytes += source->unreadable();
    return bytes;
}

unread_parts stitched_source::unreadable_in(u64 offset, u64 length) const
{
    unread_parts parts;
    if (offset >= m_size || unreadable() == 0) return parts;
    length = std::min(length, m_size - offset);
    std::size_t number = find(offset);
    for (u64 done = 0; done < length; ++number) {
        const stretch &from = m_stretches[number];
        const u64 skipped = offset + done - from.begin;
        const u64 count = std::min(length - done, from.length - skipped);
        if (from.is_missing)
            parts.push_back({offset + done, count});
        else if (from.from)
            add_unread(parts, *from.from, from.offset + skipped, count, offset + done);
        done += count;
    }
    return parts;
}

} // namespace hv

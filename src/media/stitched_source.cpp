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
    m_stretches.push_back({m_size, length, std::move(from), offset});
    m_size = size;
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

} // namespace hv

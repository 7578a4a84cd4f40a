#include "disk/hv_patched_source.h"

#include <algorithm>
#include <utility>

namespace hv {

bool patched_source::holds(u64 offset, u64 length) const
{
    return offset <= size() && length <= size() - offset;
}

bool patched_source::replace(u64 offset, u64 length, u64 from)
{
    if (!holds(offset, length) || !holds(from, length)) return false;
    m_patches.push_back(
        {.offset = offset, .length = length, .from = from, .bytes = {}});
    return true;
}

bool patched_source::replace(u64 offset, std::vector<u8> bytes)
{
    const u64 length = bytes.size();
    if (!holds(offset, length)) return false;
    m_patches.push_back(
        {.offset = offset, .length = length, .from = 0, .bytes = std::move(bytes)});
    return true;
}

// The latest patch over a byte, up to where it or a patch over it changes that.
patched_source::stretch patched_source::stretch_at(u64 offset) const
{
    stretch found{.origin = nullptr, .length = size() - offset};
    for (const patch &candidate : m_patches) {
        if (candidate.offset > offset)
            found.length = std::min(found.length, candidate.offset - offset);
        else if (offset - candidate.offset < candidate.length)
            found = {.origin = &candidate,
                     .length = candidate.length - (offset - candidate.offset)};
    }
    return found;
}

std::size_t patched_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= size()) return 0;
    out = out.first(std::min<u64>(out.size(), size() - offset));
    for (std::size_t done = 0; done < out.size();) {
        const u64 position = offset + done;
        const auto [origin, length] = stretch_at(position);
        const std::span<u8> part =
            out.subspan(done, std::min<u64>(length, out.size() - done));
        if (origin == nullptr)
            m_base->read(position, part);
        else if (origin->bytes.empty())
            m_base->read(origin->from + (position - origin->offset), part);
        else
            std::copy_n(origin->bytes.begin() +
                            static_cast<std::ptrdiff_t>(position - origin->offset),
                        part.size(), part.begin());
        done += part.size();
    }
    return out.size();
}

std::span<const u8> patched_source::view(u64 offset, std::size_t length) const
{
    if (offset >= size()) return {};
    const auto [origin, whole] = stretch_at(offset);
    if (origin != nullptr || length > whole) return {};
    return m_base->view(offset, length);
}

byte_source::place patched_source::locate(u64 offset) const
{
    const auto [origin, length] = stretch_at(offset);
    if (origin != nullptr && !origin->bytes.empty())
        return {.position = 0, .length = length, .is_stored = false};
    place found = m_base->locate(
        origin == nullptr ? offset : origin->from + (offset - origin->offset));
    found.length = std::min(found.length, length);
    return found;
}

std::vector<byte_source::unread_part> patched_source::unreadable_in(u64 offset,
                                                                    u64 length) const
{
    std::vector<unread_part> parts;
    if (offset >= size()) return parts;
    for (const u64 end = offset + std::min(length, size() - offset); offset < end;) {
        const auto [origin, whole] = stretch_at(offset);
        const u64 count = std::min(whole, end - offset);
        if (origin == nullptr || origin->bytes.empty()) {
            const u64 from =
                origin == nullptr ? offset : origin->from + (offset - origin->offset);
            for (const unread_part &bad : m_base->unreadable_in(from, count))
                parts.push_back({offset + (bad.offset - from), bad.length});
        }
        offset += count;
    }
    return parts;
}

u64 patched_source::next_data(u64 offset) const
{
    u64 next = m_base->next_data(offset);
    for (const patch &candidate : m_patches)
        if (candidate.offset + candidate.length > offset)
            next = std::min(next, std::max(candidate.offset, offset));
    return next;
}

// A patch may be in a hole: the data ends with it there, or with the next patch.
u64 patched_source::next_hole(u64 offset) const
{
    if (offset >= size()) return size();
    const auto [origin, length] = stretch_at(offset);
    return origin != nullptr ? offset + length : m_base->next_hole(offset);
}

} // namespace hv

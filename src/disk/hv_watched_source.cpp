#include "disk/hv_watched_source.h"

#include <algorithm>

namespace hv {

namespace {

// Large enough to make the requests cheap; a medium of 100 KB/s needs some seconds.
constexpr u64 max_piece = u64{256} << 10;

} // namespace

bool watched_source::goes_on(u64 next_piece) const
{
    if (!m_is_ended) m_is_ended = !m_goes_on(m_last_piece);
    m_last_piece = next_piece;
    return !m_is_ended;
}

std::size_t watched_source::read(u64 offset, std::span<u8> out) const
{
    std::size_t done = 0;
    while (done < out.size()) {
        const std::span<u8> part =
            out.subspan(done, std::min<u64>(max_piece, out.size() - done));
        if (!goes_on(part.size())) break;
        const std::size_t count = m_base->read(offset + done, part);
        done += count;
        if (count < part.size()) break;
    }
    // Callers may read into bytes that they had before.
    if (m_is_ended) std::ranges::fill(out.subspan(done), u8{0});
    return done;
}

std::span<const u8> watched_source::view(u64 offset, std::size_t length) const
{
    if (!goes_on(0)) return {};
    const std::span<const u8> bytes = m_base->view(offset, length);
    m_last_piece = bytes.size();
    return bytes;
}

// Nobody knows which bytes were read before the end of reading.
std::vector<byte_source::unread_part> watched_source::unreadable_in(u64 offset,
                                                                    u64 length) const
{
    if (!m_is_ended) return m_base->unreadable_in(offset, length);
    if (offset >= size() || length == 0) return {};
    return {{offset, std::min(length, size() - offset)}};
}

} // namespace hv

#include "disk/hv_bad_sectors.h"

#include <algorithm>
#include <iterator>

namespace hv {

void bad_sectors::read(u64 offset, std::span<u8> out, const read_some &from)
{
    constexpr u64 sector = 512, step = 8;
    u64 piece = out.size(); // of one request
    while (!out.empty()) {
        piece = std::min<u64>(piece, out.size());
        const u64 rest_of_sector = sector - offset % sector;
        const i64 count = from(offset, out.first(piece));
        if (count < 0 && piece > rest_of_sector) {
            piece = std::max(piece / step / sector * sector, rest_of_sector);
            continue;
        }
        u64 done = std::min<u64>(piece, static_cast<u64>(std::max<i64>(count, 0)));
        if (count <= 0) {
            done = count == 0 ? out.size() : piece;
            std::ranges::fill(out.first(done), u8{0});
            add(offset, offset + done);
        } else {
            piece *= step;
        }
        offset += done;
        out = out.subspan(done);
    }
}

std::vector<byte_source::unread_part> bad_sectors::within(u64 offset, u64 length) const
{
    std::vector<byte_source::unread_part> parts;
    const u64 limit = offset + std::min(length, ~offset);
    auto next = m_stretches.upper_bound(offset);
    if (next != m_stretches.begin()) --next;
    for (; next != m_stretches.end() && next->first < limit; ++next) {
        const u64 begin = std::max(offset, next->first);
        const u64 end = std::min(limit, next->second);
        if (begin < end) parts.push_back({begin, end - begin});
    }
    return parts;
}

// Joins a stretch to those that it overlaps or touches, so that none is counted twice.
void bad_sectors::add(u64 begin, u64 end)
{
    auto next = m_stretches.upper_bound(begin);
    if (next != m_stretches.begin() && std::prev(next)->second >= begin) --next;
    while (next != m_stretches.end() && next->first <= end) {
        begin = std::min(begin, next->first);
        end = std::max(end, next->second);
        m_bytes -= next->second - next->first;
        next = m_stretches.erase(next);
    }
    m_stretches.emplace(begin, end);
    m_bytes += end - begin;
}

} // namespace hv

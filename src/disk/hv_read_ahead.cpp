#include "disk/hv_read_ahead.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/uio.h>

namespace hv {

namespace {

// Whether the system has the byte in memory. "No" where it can't tell without waiting.
bool is_cached(int descriptor, u64 offset)
{
    char byte = 0;
    const iovec place{&byte, 1};
    return preadv2(descriptor, &place, 1, static_cast<off_t>(offset), RWF_NOWAIT) == 1;
}

} // namespace

void read_ahead::pass(int descriptor, u64 offset, u64 length, u64 end)
{
    if (offset != m_position) m_begin = m_requested = offset;
    m_position = offset + length;
    m_requested = std::max(m_requested, m_position);
    if (m_position >= end) return;
    const u64 depth = std::min(m_position - m_begin, max_depth);
    const u64 target = m_position + std::min(depth, end - m_position);
    // Half at a time: a request costs as much as looking at some hundred kilobytes.
    if (target - m_requested < depth / 2) return;
    // A request for what is there costs a look at each of its pages.
    if (!is_cached(descriptor, target - 1))
        posix_fadvise(descriptor, static_cast<off_t>(m_requested),
                      static_cast<off_t>(target - m_requested), POSIX_FADV_WILLNEED);
    m_requested = target;
}

} // namespace hv

#include "disk/hv_medium_reader.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace hv {

namespace {

// Large enough to make the requests cheap, small enough to stay in the caches. Windows
// end at its multiples: the system can map such a piece of a file at one stroke.
constexpr u64 window_size = u64{2} << 20;
constexpr u64 buffer_size = u64{256} << 10;

// Mapping a shorter stretch costs more than copying it.
constexpr u64 min_mapping = u64{64} << 10;

} // namespace

medium_reader::medium_reader(const RAW_DISK_IO &disk)
    : m_disk(disk),
      m_descriptor(disk.mappable_descriptor())
{
}

bool medium_reader::covers(u64 offset, u32 length) const
{
    if (m_window.is_mapped()) return m_window.covers(offset, length);
    return offset >= m_buffer_offset &&
           byte_view(m_buffer).fits(offset - m_buffer_offset, length);
}

bool medium_reader::map_window(u64 offset, u64 length)
{
    if (m_window.map(m_descriptor, offset, length)) return true;
    m_descriptor = -1;
    return false;
}

bool medium_reader::read_window(u64 offset, u64 length)
{
    m_buffer.resize(length);
    m_buffer_offset = offset;
    if (m_disk.read_exact(m_buffer.data(), length, offset)) return true;
    m_buffer.clear();
    return false;
}

byte_view medium_reader::view(u64 offset, u32 length, u64 wanted_in_all)
{
    const u64 medium_size = m_disk.get_size();
    if (length == 0 || offset >= medium_size || length > medium_size - offset)
        return {};
    // A page that failed while it was in use is one of zeros now, and must not be used
    // again.
    if (m_window.has_failed() || !covers(offset, length)) {
        m_window.unmap();
        const u64 end = (offset + length + window_size - 1) / window_size * window_size;
        const u64 wanted = std::clamp<u64>(wanted_in_all, length, end - offset);
        const u64 stretch = std::min(wanted, medium_size - offset);
        if (m_descriptor < 0 || stretch < min_mapping || !map_window(offset, stretch)) {
            const u64 piece = std::min(stretch, std::max<u64>(buffer_size, length));
            if (!read_window(offset, piece) && !read_window(offset, length)) return {};
        }
    }
    if (!m_window.is_mapped())
        return byte_view(m_buffer).clip(offset - m_buffer_offset, length);
    const byte_view bytes = m_window.view(offset, length);
    if (bytes.empty()) m_window.unmap();
    return bytes;
}

u64 medium_reader::next_data(u64 offset)
{
    const u64 medium_size = m_disk.get_size();
    if (m_descriptor < 0 || offset >= medium_size) return offset;
    if (offset >= m_data_begin && offset < m_data_end) return offset;
    if (offset >= m_last_hole) return medium_size;
    const off_t data = lseek(m_descriptor, static_cast<off_t>(offset), SEEK_DATA);
    if (data < 0 && errno == ENXIO) {
        m_last_hole = offset;
        return medium_size;
    }
    if (data < 0) { // the system knows no holes here
        m_data_begin = 0;
        m_data_end = medium_size;
        return offset;
    }
    const off_t hole = lseek(m_descriptor, data, SEEK_HOLE);
    m_data_begin = static_cast<u64>(data);
    m_data_end = hole > data ? static_cast<u64>(hole) : medium_size;
    return std::min(m_data_begin, medium_size);
}

} // namespace hv

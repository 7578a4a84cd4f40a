#include "disk/hv_file_source.h"

#include "base/hv_open_file.h"

#include <algorithm>
#include <cerrno>

namespace hv {

file_source::file_source(const std::string &path)
    : m_descriptor(open_source_file(path.c_str()))
{
    if (m_descriptor < 0) {
        m_failure = explain_failed_open(path.c_str());
        return;
    }
    const off_t end = lseek(m_descriptor, 0, SEEK_END);
    if (end < 0) m_failure = open_failure::unreadable;
    if (end > 0) m_size = static_cast<u64>(end);
    m_is_mappable = mapped_window::is_useful_for(m_descriptor);
}

file_source::~file_source()
{
    if (m_descriptor >= 0) ::close(m_descriptor);
}

u64 file_source::stored_size() const
{
    return stored_bytes(m_descriptor, m_size);
}

std::size_t file_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= m_size) return 0;
    out = out.first(std::min<u64>(out.size(), m_size - offset));
    m_bad.read(offset, out, [this](u64 position, std::span<u8> part) {
        return read_fully(m_descriptor, part.data(), part.size(), position);
    });
    return out.size();
}

std::span<const u8> file_source::view(u64 offset, std::size_t length) const
{
    count_failed_window();
    if (!m_is_mappable || length == 0 || offset >= m_size || length > m_size - offset)
        return {};
    if (!m_window.map(m_descriptor, offset, length)) return {};
    const byte_view bytes = m_window.view(offset, length);
    // The caller reads these bytes again, and what can't be read is counted then.
    if (bytes.empty()) m_window.unmap();
    return bytes.bytes();
}

u64 file_source::unreadable() const
{
    count_failed_window();
    return m_bad.bytes();
}

// A window may also fail while its bytes are in use. Reading it says which are lost.
void file_source::count_failed_window() const
{
    if (!m_window.is_mapped() || !m_window.has_failed()) return;
    std::vector<u8> bytes(m_window.size());
    read(m_window.offset(), bytes);
    m_window.unmap();
}

u64 file_source::next_data(u64 offset) const
{
    if (offset >= m_size) return m_size;
    // After the last data the system reports that there is none; any other error means
    // that it knows no holes.
    const off_t data = lseek(m_descriptor, static_cast<off_t>(offset), SEEK_DATA);
    if (data < 0) return errno == ENXIO ? m_size : offset;
    return std::min(static_cast<u64>(data), m_size);
}

u64 file_source::next_hole(u64 offset) const
{
    if (offset >= m_size) return m_size;
    const off_t hole = lseek(m_descriptor, static_cast<off_t>(offset), SEEK_HOLE);
    if (hole < 0 || static_cast<u64>(hole) <= offset) return m_size;
    return std::min(static_cast<u64>(hole), m_size);
}

} // namespace hv

#include "disk/hv_medium_reader.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

namespace hv {

namespace {

// Large enough to make the requests cheap, small enough to stay in the caches.
constexpr u64 window_size = u64{2} << 20;
constexpr u64 buffer_size = u64{256} << 10;

// Mapping a shorter stretch costs more than copying it.
constexpr u64 min_mapping = u64{64} << 10;

// Touching a page of a mapped file that can't be read, because of a bad sector or
// because the file was truncated meanwhile, raises a signal. The handler maps a page of
// zeros in its place and remembers the fault, and the scan goes back to plain reads.
// The handler knows the window from these plain variables: there is one thread and one
// window.
const u8 *guarded_begin = nullptr;
const u8 *guarded_end = nullptr;
volatile std::sig_atomic_t fault_seen = 0;
u64 page_size = 4096;

void replace_faulting_page(int number, siginfo_t *info, void *)
{
    const auto *fault = static_cast<const u8 *>(info->si_addr);
    if (fault >= guarded_begin && fault < guarded_end) {
        const u64 page_offset =
            static_cast<u64>(fault - guarded_begin) / page_size * page_size;
        void *page = const_cast<u8 *>(guarded_begin) + page_offset;
        if (mmap(page, page_size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED,
                 -1, 0) != MAP_FAILED) {
            fault_seen = 1;
            return;
        }
    }
    // Not our window: the instruction runs again and the system handles the fault.
    std::signal(number, SIG_DFL);
}

void guard_mappings()
{
    static bool installed = false;
    if (installed) return;
    installed = true;
    page_size = static_cast<u64>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = replace_faulting_page;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

// Reads a byte of each page, so that a fault occurs before the bytes are used.
bool touch_pages(const u8 *bytes, u64 length)
{
    fault_seen = 0;
    volatile u8 sink = 0;
    for (u64 at = 0; at < length; at += page_size) sink = bytes[at];
    sink = bytes[length - 1];
    static_cast<void>(sink);
    return fault_seen == 0;
}

} // namespace

medium_reader::medium_reader(const RAW_DISK_IO &disk)
    : m_disk(disk),
      m_descriptor(disk.mappable_descriptor())
{
    if (m_descriptor >= 0) guard_mappings();
}

medium_reader::~medium_reader()
{
    unmap();
}

void medium_reader::unmap()
{
    if (m_mapped) munmap(const_cast<u8 *>(m_window), m_window_size);
    m_mapped = false;
    m_window = nullptr;
    guarded_begin = guarded_end = nullptr;
}

bool medium_reader::covers(u64 offset, u32 length) const
{
    return m_window != nullptr && offset >= m_window_offset &&
           offset - m_window_offset <= m_window_size &&
           length <= m_window_size - (offset - m_window_offset);
}

bool medium_reader::map_window(u64 offset, u64 length)
{
    const u64 begin = offset / page_size * page_size;
    length += offset - begin;
    void *window = mmap(nullptr, length, PROT_READ, MAP_SHARED, m_descriptor,
                        static_cast<off_t>(begin));
    if (window == MAP_FAILED) {
        m_descriptor = -1;
        return false;
    }
    madvise(window, length, MADV_SEQUENTIAL);
    m_mapped = true;
    m_window = static_cast<const u8 *>(window);
    m_window_offset = begin;
    m_window_size = length;
    guarded_begin = m_window;
    guarded_end = m_window + length;
    return true;
}

bool medium_reader::read_window(u64 offset, u64 length)
{
    m_buffer.resize(std::max<u64>(m_buffer.size(), length));
    if (!m_disk.read_exact(m_buffer.data(), length, offset)) return false;
    m_window = m_buffer.data();
    m_window_offset = offset;
    m_window_size = length;
    return true;
}

byte_view medium_reader::view(u64 offset, u32 length, u64 wanted_in_all)
{
    const u64 medium_size = m_disk.get_size();
    if (length == 0 || offset >= medium_size || length > medium_size - offset)
        return {};
    // A page that failed while it was in use is one of zeros now, and must not be used
    // again.
    if (m_mapped && fault_seen != 0) unmap();
    if (!covers(offset, length)) {
        unmap();
        const u64 wanted =
            std::clamp<u64>(wanted_in_all, length, std::max<u64>(window_size, length));
        const u64 stretch = std::min(wanted, medium_size - offset);
        if (m_descriptor < 0 || stretch < min_mapping || !map_window(offset, stretch)) {
            const u64 piece = std::min(stretch, std::max<u64>(buffer_size, length));
            if (!read_window(offset, piece) && !read_window(offset, length)) return {};
        }
    }
    const u8 *bytes = m_window + (offset - m_window_offset);
    if (m_mapped && !touch_pages(bytes, length)) {
        unmap();
        return {};
    }
    return {bytes, length};
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

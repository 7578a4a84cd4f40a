#include "disk/hv_mapped_window.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace hv {

namespace {

const u64 page_size = static_cast<u64>(sysconf(_SC_PAGESIZE));

// Reads a byte of each page, so that a fault occurs before the bytes are used.
void touch_pages(const u8 *bytes, u64 length)
{
    volatile u8 sink = 0;
    for (u64 at = 0; at < length; at += page_size) sink = bytes[at];
    if (length != 0) sink = bytes[length - 1];
    static_cast<void>(sink);
}

} // namespace

// Touching a page of a mapped file that can't be read raises a signal. A page of zeros
// takes its place, and the window remembers the fault.
void mapped_window::replace_faulting_page(int number, siginfo_t *info, void *)
{
    const auto *fault = static_cast<const u8 *>(info->si_addr);
    for (mapped_window *window = first; window != nullptr; window = window->m_next)
        if (window->replace_page_at(fault)) return;
    // In no window: the instruction runs again and the system handles the fault.
    std::signal(number, SIG_DFL);
}

bool mapped_window::replace_page_at(const u8 *fault)
{
    if (fault < m_bytes || fault >= m_bytes + m_size) return false;
    const u64 page_offset = static_cast<u64>(fault - m_bytes) / page_size * page_size;
    void *page = const_cast<u8 *>(m_bytes) + page_offset;
    if (mmap(page, page_size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
             0) == MAP_FAILED)
        return false;
    m_failed = 1;
    return true;
}

void mapped_window::guard_mappings()
{
    static bool installed = false;
    if (installed) return;
    installed = true;
    struct sigaction action {};
    action.sa_sigaction = replace_faulting_page;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

bool mapped_window::is_useful_for(int descriptor)
{
    struct stat status {};
    struct statfs system {};
    return descriptor >= 0 && fstat(descriptor, &status) == 0 &&
           S_ISREG(status.st_mode) && fstatfs(descriptor, &system) == 0 &&
           system.f_type != FUSE_SUPER_MAGIC;
}

bool mapped_window::map(int descriptor, u64 offset, u64 length)
{
    unmap();
    guard_mappings();
    const u64 begin = offset / page_size * page_size;
    length += offset - begin;
    void *bytes = mmap(nullptr, length, PROT_READ, MAP_SHARED, descriptor,
                       static_cast<off_t>(begin));
    if (bytes == MAP_FAILED) return false;
    m_bytes = static_cast<const u8 *>(bytes);
    m_offset = begin;
    m_size = length;
    m_next = first;
    first = this;
    madvise(bytes, length, MADV_SEQUENTIAL);
    // The system reads ahead of the window as well, twice as far as it usually does. To
    // request that in so many words would cost more than it brings: what is requested
    // comes in single pages, and to map those takes ten times as long.
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    return true;
}

void mapped_window::unmap()
{
    if (m_bytes == nullptr) return;
    munmap(const_cast<u8 *>(m_bytes), m_size);
    mapped_window **link = &first;
    while (*link != this) link = &(*link)->m_next;
    *link = m_next;
    m_next = nullptr;
    m_bytes = nullptr;
    m_size = 0;
    m_failed = 0;
}

bool mapped_window::covers(u64 offset, u64 length) const
{
    return m_bytes != nullptr && offset >= m_offset && offset - m_offset <= m_size &&
           length <= m_size - (offset - m_offset);
}

byte_view mapped_window::view(u64 offset, u64 length) const
{
    const byte_view bytes(m_bytes + (offset - m_offset), length);
    touch_pages(bytes.bytes().data(), length);
    if (has_failed()) return {};
    return bytes;
}

} // namespace hv

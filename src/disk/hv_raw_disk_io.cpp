#include "disk/hv_raw_disk_io.h"

#include "base/hv_checked_math.h"
#include "base/hv_console.h"
#include "base/hv_open_file.h"
#include "disk/hv_cluster_delivery.h"
#include "vmdk/hv_vmdk_disk.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace hv {

namespace {

constexpr u32 sector_size = 512;
constexpr u32 first_refused_drive = 20;
constexpr u32 first_unknown_drive = 25;

} // namespace

RAW_DISK_IO::RAW_DISK_IO(std::string_view path, disk_access access)
{
    if (path.empty() || access > disk_access::drive) return;
    m_type = disk_access::file;
    open_target(std::string(path));
    // Callers expect a missing file to make the first read fail, not the opening.
    m_open = true;
}

RAW_DISK_IO::RAW_DISK_IO(u32 drive_number, disk_access access)
{
    if (drive_number >= first_unknown_drive) return;
    m_type = access;
    if (access != disk_access::drive) {
        constexpr u32 refused_access = 5;
        m_open = static_cast<u32>(access) != refused_access;
        return;
    }
    if (drive_number >= first_refused_drive) return;
    const std::string device =
        std::string("/dev/sd") + static_cast<char>('a' + drive_number);
    errno = 0;
    m_open = open_target(device);
    if (!m_open) print_error("prob opening %s, error %d\n", device.c_str(), errno);
}

RAW_DISK_IO::RAW_DISK_IO(const std::vector<std::string> &paths)
{
    if (paths.empty()) return;
    m_type = disk_access::vmdk;
    try {
        auto chain = std::make_unique<vmdk_disk>();
        const bool good = chain->add_files(paths) && chain->link();
        m_failure = chain->failure();
        if (!good || !chain->is_linked()) return;
        m_vmdk = std::move(chain);
    } catch (const std::bad_alloc &) {
        m_failure = open_failure::no_memory;
        return;
    }
    m_fd = m_vmdk->base()->descriptor();
    m_size = m_vmdk->base()->get_capacity_bytes();
    m_bytes_per_sector = sector_size;
    m_open = true;
}

RAW_DISK_IO::RAW_DISK_IO(byte_source_ptr source) : m_source(std::move(source))
{
    if (m_source == nullptr) return;
    m_type = disk_access::file;
    m_size = m_source->size();
    m_bytes_per_sector = sector_size;
    m_failure = open_failure::none;
    m_open = true;
}

RAW_DISK_IO::~RAW_DISK_IO()
{
    // A chain's descriptor belongs to one of its files, which closes it.
    if (m_vmdk == nullptr && m_fd >= 0) ::close(m_fd);
}

bool RAW_DISK_IO::open_target(const std::string &path)
{
    m_fd = open_source_file(path.c_str());
    if (m_fd < 0) {
        m_failure = explain_failed_open(path.c_str());
        return false;
    }
    m_bytes_per_sector = sector_size;
    const off_t end = lseek(m_fd, 0, SEEK_END);
    if (end > 0) m_size = static_cast<u64>(end);
    if (end >= 0) m_failure = open_failure::none;
    return end >= 0;
}

u64 RAW_DISK_IO::get_size() const
{
    return m_open ? m_size : 0;
}

u64 RAW_DISK_IO::get_stored_size() const
{
    if (m_source != nullptr) return m_source->stored_size();
    if (m_vmdk == nullptr) return stored_bytes(m_fd, get_size());
    u64 bytes = 0;
    for (const vmdk_file *file : m_vmdk->files()) bytes += file->get_stored_size();
    return std::min(bytes, get_size());
}

u64 RAW_DISK_IO::first_volume_offset() const
{
    return m_vmdk == nullptr ? 0 : m_vmdk->first_volume_offset();
}

byte_source::place RAW_DISK_IO::locate(u64 offset) const
{
    if (m_source != nullptr) return m_source->locate(offset);
    return {.position = offset, .length = get_size() - offset, .is_stored = true};
}

std::vector<byte_source::unread_part> RAW_DISK_IO::unreadable_in(u64 offset,
                                                                 u64 length) const
{
    if (m_source == nullptr) return {};
    return m_source->unreadable_in(offset, length);
}

void RAW_DISK_IO::set_volume_offset(u64 offset)
{
    constexpr u32 kept_bits = 0x0FFFFFFF;
    m_volume_offset_hi = static_cast<u32>(offset >> 32) & kept_bits;
    m_volume_offset_lo = static_cast<u32>(offset) & kept_bits;
}

// The one place where bytes are read, for all kinds of targets. Returns how many were
// read, or -1 for an error before the first one. A chain delivers them all, a source
// those before its end.
i64 RAW_DISK_IO::fetch(u8 *buffer, u64 length, u64 offset) const
{
    if (m_source != nullptr)
        return static_cast<i64>(m_source->read(offset, {buffer, length}));
    if (m_vmdk == nullptr) return read_fully(m_fd, buffer, length, offset);
    return m_vmdk->read(buffer, offset, length) ? static_cast<i64>(length) : -1;
}

bool RAW_DISK_IO::read(u8 *buffer, u32 &length, u64 offset, bool mapped) const
{
    if (buffer == nullptr || !can_read() || length == 0) return false;
    if (mapped && m_use_runs) {
        // A truncated medium may be smaller than a file that it holds parts of: its
        // size says nothing about positions in the file.
        u64 status = 0;
        return read_mapped(m_runs, m_cluster_size, offset, buffer, length, status);
    }
    if (offset >= m_size) return false;
    if (m_type == disk_access::drive) return read_sectors(buffer, length, offset);
    return read_clipped(buffer, length, offset);
}

bool RAW_DISK_IO::read_checked(u8 *buffer, u32 &length, u64 offset) const
{
    return read(buffer, length, offset, false);
}

bool RAW_DISK_IO::read_unbounded(u8 *buffer, u32 &length, u64 offset,
                                 bool ignore_size) const
{
    if (!ignore_size) return read_checked(buffer, length, offset);
    if (buffer == nullptr || !can_read() || length == 0) return false;
    if (m_type == disk_access::drive) return read_sectors(buffer, length, offset);
    const i64 count = fetch(buffer, length, offset);
    if (count < 0) return false;
    length = static_cast<u32>(count);
    return true;
}

bool RAW_DISK_IO::read_exact(u8 *buffer, u64 length, u64 offset) const
{
    if (buffer == nullptr || !can_read() || length == 0) return false;
    if (m_type == disk_access::drive && (offset | length) % m_bytes_per_sector != 0)
        return false;
    const i64 count = fetch(buffer, length, offset);
    return count >= 0 && static_cast<u64>(count) == length;
}

bool RAW_DISK_IO::read_clipped(u8 *buffer, u32 &length, u64 offset) const
{
    length = static_cast<u32>(std::min<u64>(length, m_size - offset));
    const i64 count = fetch(buffer, length, offset);
    if (count < 0) return false;
    // A short read counts as a whole one, since the target is known to be longer. The
    // missing bytes must not be left over from an earlier read.
    std::fill(buffer + count, buffer + length, u8{0});
    return true;
}

bool RAW_DISK_IO::read_sectors(u8 *buffer, u32 &length, u64 offset) const
{
    const u32 before = static_cast<u32>(offset % m_bytes_per_sector);
    u64 sectors = u64{before} + length + m_bytes_per_sector - 1;
    sectors -= sectors % m_bytes_per_sector;
    std::vector<u8> bounce;
    u8 *target = buffer;
    if (sectors != length) {
        try {
            bounce.resize(sectors);
        } catch (const std::bad_alloc &) {
            return false;
        }
        target = bounce.data();
    }
    const i64 count = fetch(target, sectors, offset - before);
    if (count == 0) return false;
    // An error isn't a failure here: a scan of a drive goes on after its bad sectors.
    const u64 wanted_part = count > i64{before} ? static_cast<u64>(count) - before : 0;
    const u32 delivered = static_cast<u32>(std::min<u64>(length, wanted_part));
    if (target != buffer) std::copy_n(target + before, delivered, buffer);
    if (count < 0)
        std::fill_n(buffer, length, u8{0});
    else
        length = delivered;
    return true;
}

bool RAW_DISK_IO::read_run_cluster(u64 position, u8 *buffer, u32 &length) const
{
    u64 offset = 0;
    if (m_cluster_size == 0 || length % m_cluster_size != 0 ||
        __builtin_add_overflow(position, m_map_base, &offset))
        return false;
    return read_checked(buffer, length, offset);
}

bool RAW_DISK_IO::read_mapped(const run_index &runs, u32 cluster_size, u64 offset,
                              u8 *buffer, u32 &length, u64 &status) const
{
    const bool leave_out = (status & mapped_status::leave_out_sparse) != 0;
    if (leave_out) status &= ~mapped_status::filled_sparse;
    if (buffer == nullptr || length == 0 || !runs.has_runs() || cluster_size == 0 ||
        !can_read())
        return false;
    try {
        const cluster_plan plan =
            plan_range(runs, cluster_size, offset, length, leave_out);
        status = plan.status;
        cluster_delivery delivery(*this, m_map_base, plan, {buffer, length},
                                  unreadable_cluster::repeats_the_one_before);
        const bool good = delivery.deliver();
        if (delivery.filled_sparse()) status |= mapped_status::filled_sparse;
        if (good) length = delivery.copied();
        return good;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

u64 RAW_DISK_IO::next_on_medium(u64 mapped_position) const
{
    if (!m_use_runs) return mapped_position < m_size ? mapped_position : not_on_medium;
    const u64 vcn = mapped_position / m_cluster_size;
    const auto &pieces = m_runs.pieces();
    for (std::size_t i = m_runs.find_from(vcn); i < pieces.size(); ++i) {
        const u64 present =
            clusters_on_medium(pieces[i], m_cluster_size, m_map_base, m_size).begun;
        const u64 candidate = std::max(pieces[i].vcn, vcn);
        if (candidate - pieces[i].vcn < present)
            return std::max(saturating_product(candidate, m_cluster_size),
                            mapped_position);
    }
    return not_on_medium;
}

void RAW_DISK_IO::attach_runs(u32 cluster_size, const std::vector<disk_run> &runs,
                              u64 mapped_size, u64 volume_offset)
{
    m_cluster_size = cluster_size;
    m_runs = run_index(runs);
    m_map_base = volume_offset;
    m_use_runs = mapped_size != 0 && m_runs.has_runs() && cluster_size != 0;
}

} // namespace hv

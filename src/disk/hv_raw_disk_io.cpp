#include "disk/hv_raw_disk_io.h"

#include "base/hv_console.h"
#include "base/hv_open_file.h"
#include "vmdk/hv_vmdk_disk.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <span>

namespace hv {

namespace {

constexpr u32 sector_size = 512;
constexpr u32 first_refused_drive = 20;
constexpr u32 first_unknown_drive = 25;

// Delivers a plan as if each cluster went through one scratch buffer. Clusters in a row
// are read in one go, straight to where they belong; the scratch buffer is then only
// remembered, and filled when a cluster turns up that can't be read.
class mapped_delivery {
public:
    mapped_delivery(const RAW_DISK_IO &disk, const cluster_plan &plan,
                    std::span<u8> out)
        : m_disk(disk),
          m_plan(plan),
          m_out(out)
    {
    }

    bool deliver()
    {
        for (const disk_piece &piece : m_plan.pieces) {
            if (left() == 0) break;
            if (piece.is_sparse)
                fill_sparse(piece);
            else if (!deliver_piece(piece))
                return false;
        }
        return true;
    }
    u32 copied() const { return static_cast<u32>(m_copied); }
    bool filled_sparse() const { return m_filled_sparse; }

private:
    u64 left() const { return m_out.size() - m_copied; }
    void fill_sparse(const disk_piece &piece);
    bool deliver_piece(const disk_piece &piece);
    u64 deliver_stretch(const disk_piece &piece);
    bool deliver_cluster(const disk_piece &piece, u64 index);
    void prepare_scratch();
    void copy_from_scratch(u64 from, u64 count);

    const RAW_DISK_IO &m_disk;
    const cluster_plan &m_plan;
    std::span<u8> m_out;
    u64 m_copied = 0;
    u64 m_cluster = 0; ///< clusters of the plan that are done
    bool m_filled_sparse = false;
    std::vector<u8> m_scratch;
    bool m_scratch_is_due = false;
    u64 m_scratch_position = 0; ///< of the cluster that it would hold
};

void mapped_delivery::fill_sparse(const disk_piece &piece)
{
    const u64 bytes =
        std::min(m_plan.share_of(m_cluster, piece.clusters).bytes, left());
    std::ranges::fill(m_out.subspan(m_copied, bytes), u8{0});
    m_copied += bytes;
    m_cluster += piece.clusters;
    m_filled_sparse = true;
}

bool mapped_delivery::deliver_piece(const disk_piece &piece)
{
    for (u64 i = deliver_stretch(piece); i < piece.clusters && left() != 0; ++i)
        if (!deliver_cluster(piece, i)) return false;
    return true;
}

// Reads what lies on the medium in one go. Returns the clusters done: all or none.
u64 mapped_delivery::deliver_stretch(const disk_piece &piece)
{
    const u64 count = clusters_on_medium(piece, m_plan.cluster_size, m_disk.map_base(),
                                         m_disk.get_size());
    u64 position = 0;
    if (count == 0 ||
        !cluster_position(piece, 0, m_plan.cluster_size, m_disk.map_base(), position))
        return 0;
    const cluster_plan::share share = m_plan.share_of(m_cluster, count);
    const u64 bytes = std::min(share.bytes, left());
    if (!m_disk.read_exact(m_out.data() + m_copied, bytes, position + share.begin))
        return 0;
    const u64 last_touched = (share.begin + bytes - 1) / m_plan.cluster_size;
    m_scratch_position = position + last_touched * m_plan.cluster_size;
    m_scratch_is_due = true;
    m_copied += bytes;
    m_cluster += count;
    return count;
}

bool mapped_delivery::deliver_cluster(const disk_piece &piece, u64 index)
{
    prepare_scratch();
    const cluster_plan::share share = m_plan.share_of(m_cluster, 1);
    u64 bytes = std::min(share.bytes, left());
    u64 position = 0;
    u32 got = static_cast<u32>(m_scratch.size());
    if (cluster_position(piece, index, m_plan.cluster_size, m_disk.map_base(),
                         position) &&
        m_disk.read_checked(m_scratch.data(), got, position)) {
        if (got == 0) return false;
        if (m_plan.is_middle(m_cluster)) bytes = std::min<u64>(bytes, got);
    }
    copy_from_scratch(share.begin, bytes);
    ++m_cluster;
    return true;
}

// Brings the scratch buffer to what it would hold had it been used all the time. No
// read fills more of it than the medium has, so it needn't be longer, whatever the
// cluster size claims.
void mapped_delivery::prepare_scratch()
{
    if (m_scratch.empty())
        m_scratch.resize(std::min<u64>(m_plan.cluster_size, m_disk.get_size()));
    if (!m_scratch_is_due) return;
    m_scratch_is_due = false;
    u32 length = static_cast<u32>(m_scratch.size());
    m_disk.read_checked(m_scratch.data(), length, m_scratch_position);
}

void mapped_delivery::copy_from_scratch(u64 from, u64 count)
{
    const auto target = m_out.subspan(m_copied, count);
    const u64 there =
        from < m_scratch.size() ? std::min(count, m_scratch.size() - from) : 0;
    if (there != 0) std::copy_n(m_scratch.data() + from, there, target.data());
    std::ranges::fill(target.subspan(there), u8{0});
    m_copied += count;
}

} // namespace

RAW_DISK_IO::RAW_DISK_IO(std::string_view path, disk_access access)
{
    if (path.empty() || access > disk_access::drive) return;
    m_type = disk_access::file;
    open_target(std::string(path));
    // The flag says that path and access were acceptable; a file that is missing shows
    // in the first read.
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
        if (!chain->add_files(paths) || !chain->link() || !chain->is_linked()) return;
        m_vmdk = std::move(chain);
    } catch (const std::bad_alloc &) {
        return;
    }
    m_fd = m_vmdk->base()->descriptor();
    m_size = m_vmdk->base()->get_capacity_bytes();
    m_bytes_per_sector = sector_size;
    m_open = true;
}

RAW_DISK_IO::~RAW_DISK_IO()
{
    // The descriptor of a chain is that of one of its files, which closes it.
    if (m_vmdk == nullptr && m_fd >= 0) ::close(m_fd);
}

bool RAW_DISK_IO::open_target(const std::string &path)
{
    m_fd = open_source_file(path.c_str());
    if (m_fd < 0) return false;
    m_bytes_per_sector = sector_size;
    const off_t end = lseek(m_fd, 0, SEEK_END);
    if (end > 0) m_size = static_cast<u64>(end);
    return end >= 0;
}

u64 RAW_DISK_IO::get_size() const
{
    return m_open ? m_size : 0;
}

u64 RAW_DISK_IO::get_stored_size() const
{
    if (m_vmdk == nullptr) return stored_bytes(m_fd, get_size());
    u64 bytes = 0;
    for (const vmdk_file *file : m_vmdk->files()) bytes += file->get_stored_size();
    return std::min(bytes, get_size());
}

u64 RAW_DISK_IO::first_volume_offset() const
{
    return m_vmdk == nullptr ? 0 : m_vmdk->first_volume_offset();
}

void RAW_DISK_IO::set_volume_offset(u64 offset)
{
    constexpr u32 kept_bits = 0x0FFFFFFF;
    m_volume_offset_hi = static_cast<u32>(offset >> 32) & kept_bits;
    m_volume_offset_lo = static_cast<u32>(offset) & kept_bits;
}

// The one place where bytes come from, for all kinds of targets. Returns those that are
// there, or -1 for an error ahead of the first one. A chain delivers them all.
i64 RAW_DISK_IO::fetch(u8 *buffer, u64 length, u64 offset) const
{
    if (m_vmdk == nullptr) return read_fully(m_fd, buffer, length, offset);
    return m_vmdk->read(buffer, offset, length) ? static_cast<i64>(length) : -1;
}

bool RAW_DISK_IO::read(u8 *buffer, u32 &length, u64 offset, bool mapped) const
{
    if (buffer == nullptr || m_fd < 0 || length == 0 || offset >= m_size) return false;
    if (mapped && m_use_runs) {
        u64 status = 0;
        return read_mapped(m_runs, m_cluster_size, offset, buffer, length, status);
    }
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
    if (buffer == nullptr || m_fd < 0 || length == 0) return false;
    if (m_type == disk_access::drive) return read_sectors(buffer, length, offset);
    const i64 got = fetch(buffer, length, offset);
    if (got < 0) return false;
    length = static_cast<u32>(got);
    return true;
}

bool RAW_DISK_IO::read_exact(u8 *buffer, u64 length, u64 offset) const
{
    if (buffer == nullptr || m_fd < 0 || length == 0) return false;
    if (m_type == disk_access::drive && (offset | length) % m_bytes_per_sector != 0)
        return false;
    const i64 got = fetch(buffer, length, offset);
    return got >= 0 && static_cast<u64>(got) == length;
}

bool RAW_DISK_IO::read_clipped(u8 *buffer, u32 &length, u64 offset) const
{
    length = static_cast<u32>(std::min<u64>(length, m_size - offset));
    const i64 got = fetch(buffer, length, offset);
    if (got < 0) return false;
    // A short read passes for a whole one, since the target is known to reach further;
    // what it lacks must not be left over from an earlier read.
    std::fill(buffer + got, buffer + length, u8{0});
    return true;
}

bool RAW_DISK_IO::read_sectors(u8 *buffer, u32 &length, u64 offset) const
{
    const u32 ahead = static_cast<u32>(offset % m_bytes_per_sector);
    u64 sectors = u64{ahead} + length + m_bytes_per_sector - 1;
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
    const i64 got = fetch(target, sectors, offset - ahead);
    if (got == 0) return false;
    // An error isn't a failure here: a scan of a drive passes over its bad places.
    const u64 there = got > i64{ahead} ? static_cast<u64>(got) - ahead : 0;
    const u32 delivered = static_cast<u32>(std::min<u64>(length, there));
    if (target != buffer) std::copy_n(target + ahead, delivered, buffer);
    if (got < 0)
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
        m_fd < 0)
        return false;
    try {
        const cluster_plan plan =
            plan_range(runs, cluster_size, offset, length, leave_out);
        status = plan.status;
        mapped_delivery delivery(*this, plan, {buffer, length});
        const bool good = delivery.deliver();
        if (delivery.filled_sparse()) status |= mapped_status::filled_sparse;
        if (good) length = delivery.copied();
        return good;
    } catch (const std::bad_alloc &) {
        return false;
    }
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

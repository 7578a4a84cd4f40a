#pragma once

#include "base/hv_open_failure.h"
#include "base/hv_types.h"
#include "disk/hv_byte_source.h"
#include "disk/hv_run_index.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hv {

class vmdk_disk;

/// How a target is accessed.
enum class disk_access : u32 {
    file = 0,             ///< plain file or image
    drive = 3,            ///< physical drive, read in whole sectors
    vmdk = 4,             ///< chain of virtual disk files
    device_namespace = 6, ///< refused on this platform
    closed = 8,
};

/// The one object through which bytes of a file, a device or a virtual disk are read.
/// The target is only ever opened for reading. A run list can be attached: mapped reads
/// then take positions inside the file that it describes, and gather the file's
/// clusters from the disk. Positions and lengths are in bytes.
class RAW_DISK_IO {
public:
    /// By path, always as a plain file. `is_open` is false for an empty path and for an
    /// access above `drive`. A path that can't be opened, or that names a folder, a
    /// FIFO or a socket, makes the first read fail.
    explicit RAW_DISK_IO(std::string_view path, disk_access access = disk_access::file);
    /// By drive number: "/dev/sda" is 0. Numbers from 20 up fail. A device that can't
    /// be opened is reported on standard error. With another access than `drive`
    /// nothing is opened.
    explicit RAW_DISK_IO(u32 drive_number, disk_access access = disk_access::drive);
    /// By the files of a chain of virtual disks, in any order. Pass a vector by its
    /// name: a list in braces would be ambiguous. `is_open` is true if all were read
    /// and make up a chain; the size is that of the base's disk. What can't be read of
    /// the chain is zeros.
    explicit RAW_DISK_IO(const std::vector<std::string> &paths);
    /// Over any bytes, such as a snapshot of a volume: all reads come from `source`,
    /// which may be null; `is_open` is false then. What the source can't read is zeros,
    /// and no read fails for it.
    explicit RAW_DISK_IO(byte_source_ptr source);
    virtual ~RAW_DISK_IO();
    RAW_DISK_IO(const RAW_DISK_IO &) = delete;
    RAW_DISK_IO &operator=(const RAW_DISK_IO &) = delete;

    /// True if the arguments were acceptable; see the constructors.
    bool is_open() const { return m_open; }
    /// Why nothing can be read; `none` if the target is open. For a path this says at
    /// once what `is_open` leaves to the first read.
    open_failure failure() const { return m_failure; }
    /// The size of the target when it was opened, in bytes; 0 if it isn't open.
    u64 get_size() const;
    /// The bytes that the target takes up: fewer than its size for a sparse file or a
    /// chain; for a source, what that says. What hostile structures may cost is bounded
    /// by this.
    u64 get_stored_size() const;
    u32 bytes_per_sector() const { return m_bytes_per_sector; }
    /// Where the first partition of a chain begins; 0 if its first sector lists none,
    /// and for other targets.
    u64 first_volume_offset() const;
    /// Where the byte at `offset`, which is before the end, is on the medium: the same
    /// offset, unless all reads come from a source, which may know another place.
    byte_source::place locate(u64 offset) const;
    /// What a source, if all reads come from one, couldn't deliver of these bytes so
    /// far; nothing is known of other targets.
    std::vector<byte_source::unread_part> unreadable_in(u64 offset, u64 length) const;
    /// Keeps where the volume begins that was opened, but only the low 28 bits of each
    /// half. No read depends on it.
    void set_volume_offset(u64 offset);
    u64 volume_offset() const
    {
        return u64{m_volume_offset_hi} << 32 | m_volume_offset_lo;
    }

    /// Reads `length` bytes at `offset` of the target or, with `mapped` and an attached
    /// run list, of the mapped file. `length` comes back as the bytes delivered, which
    /// may be fewer: up to the end of the target, or of what the runs cover, which may
    /// be nothing. Bytes before the end that the system doesn't deliver are zeros, and
    /// so is what the runs place after the end. False for no buffer, nothing to read,
    /// an unmapped offset at or after the end of the target, or a plain file of which
    /// the system delivers no byte because of an error; a drive reads as zeros then.
    bool read(u8 *buffer, u32 &length, u64 offset, bool mapped = false) const;
    /// `read` without mapping.
    bool read_checked(u8 *buffer, u32 &length, u64 offset) const;
    /// `read` without mapping. With `ignore_size` it doesn't matter where the target
    /// ends, and `length` comes back as the bytes that the system delivered, which may
    /// be 0.
    bool read_unbounded(u8 *buffer, u32 &length, u64 offset, bool ignore_size) const;
    /// Reads all of `length` bytes at `offset` in one request, without mapping. False,
    /// with an undefined buffer, if not all of them can be read, and on a drive for
    /// anything but whole sectors. For reads that replace several smaller ones, which
    /// have to be made if this fails.
    bool read_exact(u8 *buffer, u64 length, u64 offset) const;
    /// Reads whole clusters at a position relative to the volume of the attached run
    /// list. False, with `length` as it was, if it isn't a multiple of the cluster
    /// size.
    bool read_run_cluster(u64 position, u8 *buffer, u32 &length) const;
    /// Reads `length` bytes at `offset` of the file that `runs` describe, wherever its
    /// clusters are. Bytes that the runs place after the end of the target are zeros.
    /// A cluster that the system refuses to read counts as well: its bytes are those of
    /// the last cluster that was read, or zeros. A sparse cluster reads as zeros or,
    /// with `leave_out_sparse`, is skipped. The read ends at the first cluster that no
    /// run holds. `length` comes back as the bytes delivered, `status` goes in and
    /// comes out as `mapped_status`. False, with `length` as it was, for no buffer, no
    /// length, no runs, a cluster size of 0, a closed target, a read that succeeds
    /// without a byte, or too little memory.
    bool read_mapped(const run_index &runs, u32 cluster_size, u64 offset, u8 *buffer,
                     u32 &length, u64 &status) const;

    /// Attaches the run list of a file of `mapped_size` bytes on the volume that begins
    /// at `volume_offset`. It stays until the next call: a pass that attaches another
    /// list changes what mapped reads mean for every later pass. An empty list, or a
    /// size of 0, ends the mapping.
    void attach_runs(u32 cluster_size, const std::vector<disk_run> &runs,
                     u64 mapped_size, u64 volume_offset);
    /// What `next_on_medium` returns if nothing of the rest is on the medium.
    static constexpr u64 not_on_medium = ~u64{0};
    /// The next position of the mapped file, at or after the given one, whose cluster
    /// has a byte on the medium. Sparse clusters and those after the medium's end are
    /// passed over. Costs a binary search and one step for each run passed over.
    /// Without attached runs, for positions on the target itself.
    u64 next_on_medium(u64 mapped_position) const;
    /// The `volume_offset` that was attached last.
    u64 map_base() const { return m_map_base; }
    /// The descriptor of a target whose bytes can also be mapped into memory; -1 for
    /// one that has to be read through this object.
    int mappable_descriptor() const
    {
        return m_open && m_type == disk_access::file ? m_fd : -1;
    }

private:
    bool open_target(const std::string &path);
    bool can_read() const { return m_fd >= 0 || m_source != nullptr; }
    i64 fetch(u8 *buffer, u64 length, u64 offset) const;
    bool read_clipped(u8 *buffer, u32 &length, u64 offset) const;
    bool read_sectors(u8 *buffer, u32 &length, u64 offset) const;

    std::unique_ptr<vmdk_disk> m_vmdk; ///< only if the target is a chain
    byte_source_ptr m_source;          ///< only if all reads come from one
    int m_fd = -1;                     ///< of a chain, the base's
    u32 m_volume_offset_hi = 0;
    u32 m_volume_offset_lo = 0;
    u64 m_size = 0;
    u32 m_bytes_per_sector = 0;
    disk_access m_type = disk_access::closed;
    bool m_open = false;
    open_failure m_failure = open_failure::unsupported; ///< until a target is tried

    u32 m_cluster_size = 0;
    run_index m_runs;
    u64 m_map_base = 0;
    bool m_use_runs = false;
};

} // namespace hv

#include "scan/unalloc_scan.h"

#include "base/hv_checked_math.h"
#include "base/hv_console.h"
#include "disk/hv_medium_reader.h"
#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "scan/carve.h"

#include <algorithm>
#include <limits>
#include <ostream>
#include <span>
#include <streambuf>
#include <vector>

namespace hv {

namespace {

// The progress line is drawn anew each time this many free clusters are done.
constexpr u64 clusters_per_status = 753;

// What is asked of the medium at a time.
constexpr u64 group_bytes = u64{64} << 10;

constexpr u64 max_clusters = std::numeric_limits<i32>::max();

/// Passes the bytes of a stream on as they come, so that the bitmap of a large volume
/// need not be held in memory.
class byte_sink : public std::streambuf {
public:
    using visitor = std::function<void(std::span<const char> bytes)>;
    explicit byte_sink(visitor visit) : m_visit(std::move(visit)) {}

private:
    std::streamsize xsputn(const char *bytes, std::streamsize count) override
    {
        m_visit({bytes, static_cast<std::size_t>(count)});
        return count;
    }
    int_type overflow(int_type c) override
    {
        const char byte = traits_type::to_char_type(c);
        m_visit({&byte, 1});
        return traits_type::not_eof(c);
    }

    visitor m_visit;
};

// Holes of the bitmap are left out, so that after one the bits no longer belong to
// their clusters; no real bitmap has any.
bool read_bitmap(const CNtfs &volume, byte_sink::visitor visit)
{
    byte_sink sink(std::move(visit));
    std::ostream stream(&sink);
    stream_options options;
    options.compact = true;
    options.max_bytes = max_clusters / 8 + 1; // one byte more is too many already
    return read_inode_data(volume, bitmap_entry_number, stream, options);
}

/// Takes the bits of the bitmap in their order and reads the free clusters, a stretch
/// of neighbours at a time.
class free_cluster_walk {
public:
    free_cluster_walk(const CNtfs &volume, const scan_callback &callback,
                      trash_options &context, u64 total)
        : m_volume(volume),
          m_disk(*volume.get_disk()),
          m_callback(callback),
          m_context(context),
          m_total(total),
          m_cluster_size(volume.get_cluster_size()),
          m_reader(m_disk),
          m_cluster(m_cluster_size)
    {
        m_item.volume = &volume;
        m_item.context = &context;
    }

    void add_bitmap_byte(u8 byte)
    {
        constexpr u64 bits = 8;
        if (byte == 0 && m_is_open) {
            m_next += bits;
            return;
        }
        if (byte == 0xFF && !m_is_open && !m_announce) {
            m_next += bits;
            return;
        }
        for (u64 i = 0; i < bits; ++i, ++m_next)
            if ((byte >> i & 1) != 0)
                pass_allocated();
            else
                open_stretch();
    }

    void close_stretch()
    {
        if (!m_is_open) return;
        m_is_open = false;
        m_announce = true;
        scan_stretch(m_start, m_next);
    }

private:
    void open_stretch()
    {
        if (m_is_open) return;
        m_is_open = true;
        m_start = m_next;
    }

    void pass_allocated()
    {
        close_stretch();
        if (m_announce && m_context.options.progress)
            status_line("looking for unalloc cluster");
        m_announce = false;
    }

    // False for a cluster that begins after the end of the medium.
    bool position_of(u64 cluster, u64 &position) const
    {
        return checked_position(cluster, m_cluster_size, m_volume.get_volume_offset(),
                                position) &&
               position < m_disk.get_size();
    }

    void scan_stretch(u64 first, u64 end)
    {
        u64 position = 0;
        for (u64 cluster = first; cluster < end;) {
            if (!position_of(cluster, position)) {
                count(cluster, end);
                return;
            }
            const u64 empty =
                (m_reader.next_data(position) - position) / m_cluster_size;
            const u64 next = std::min(cluster + empty, end);
            count(cluster, next);
            cluster = next;
            if (empty != 0) m_last_position = in_a_hole;
            if (empty == 0) cluster += scan_group(cluster, end - cluster, position);
        }
    }

    // Scans some neighbours, or one if they can't be had together. Returns how many.
    u64 scan_group(u64 cluster, u64 left, u64 position)
    {
        const u64 most = std::max(group_bytes / m_cluster_size, u64{1});
        u64 many = std::min(left, most);
        byte_view bytes = m_reader.view(
            position, static_cast<u32>(many * m_cluster_size), left * m_cluster_size);
        if (bytes.empty()) {
            many = 1;
            if (read_into_buffer(position)) bytes = byte_view{m_cluster};
        }
        for (u64 i = 0; i < many; ++i) {
            count(cluster + i, cluster + i + 1);
            if (!bytes.empty())
                deliver(cluster + i, position + i * m_cluster_size,
                        bytes.clip(i * m_cluster_size, m_cluster_size));
        }
        flush_console_if_due();
        return many;
    }

    void deliver(u64 cluster, u64 position, byte_view bytes)
    {
        m_last_position = position;
        m_item.data = bytes;
        m_item.offset = position;
        m_item.number = cluster;
        m_callback(m_item);
    }

    // Counts clusters and draws the line where one is due.
    void count(u64 first, u64 end)
    {
        for (; first < end; m_until_status = clusters_per_status) {
            const u64 step = std::min(m_until_status, end - first);
            m_until_status -= step;
            first += step;
            if (m_until_status != 0) return;
            if (m_context.options.progress)
                status_line("analyzing cluster %lld of %lld",
                            static_cast<long long>(first - 1),
                            static_cast<long long>(m_total));
        }
    }

    // The result is the same as with one buffer for all clusters: after the end of a
    // truncated cluster come bytes of the previous one.
    bool read_into_buffer(u64 position)
    {
        u32 length = m_cluster_size;
        if (m_last_position == in_a_hole)
            std::ranges::fill(m_cluster, u8{0});
        else
            m_disk.read_checked(m_cluster.data(), length, m_last_position);
        length = m_cluster_size;
        return m_disk.read_checked(m_cluster.data(), length, position);
    }

    const CNtfs &m_volume;
    const RAW_DISK_IO &m_disk;
    const scan_callback &m_callback;
    trash_options &m_context;
    u64 m_total;
    u32 m_cluster_size;
    medium_reader m_reader;
    std::vector<u8> m_cluster;
    scan_item m_item;
    static constexpr u64 in_a_hole = ~u64{0};
    u64 m_last_position = in_a_hole; ///< of the cluster handed on or passed over last
    u64 m_next = 0;                  ///< cluster of the next bit
    u64 m_start = 0;
    bool m_is_open = false;
    bool m_announce = true;
    u64 m_until_status = clusters_per_status;
};

} // namespace

bool scan_unallocated(const CNtfs &volume, const scan_callback &callback,
                      trash_options &context)
{
    u64 bytes = 0;
    if (!read_bitmap(volume,
                     [&bytes](std::span<const char> piece) { bytes += piece.size(); }))
        return false;
    const u64 total = bytes * 8;
    // Clusters are counted in 31 bits; a larger volume isn't walked.
    if (total == 0 || total > max_clusters) return true;
    free_cluster_walk walk(volume, callback, context, total);
    read_bitmap(volume, [&walk](std::span<const char> piece) {
        for (const char byte : piece) walk.add_bitmap_byte(static_cast<u8>(byte));
    });
    walk.close_stretch();
    end_progress(context.options.progress);
    return true;
}

bool scan_volume_extras(CNtfs &volume, trash_options &context)
{
    if (!volume.validate_volume()) return false;
    if (!context.options.include_unalloc) return true;
    if (context.options.progress) print_error("analyzing unalloc clusters\n");
    context.collection.scan_label = "unalloc scan";
    scan_unallocated(volume, carve_cluster, context);
    return true;
}

} // namespace hv

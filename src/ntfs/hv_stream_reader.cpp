#include "ntfs/hv_stream_reader.h"

#include "disk/hv_cluster_delivery.h"
#include "ntfs/hv_lznt1.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <new>
#include <span>

namespace hv {

namespace {

constexpr u16 attribute_is_compressed = 1;
constexpr u64 clusters_per_unit = 16;
// A unit of the largest real clusters, 2 MiB. A boot sector may claim any size.
constexpr u64 max_unit = u64{32} << 20;
// Small clusters make small units; reading several at once only saves time.
constexpr u64 min_plain_step = 0x40000;

// How much of a non-resident attribute is read, in bytes.
struct stream_extent {
    u64 size = 0;
    u64 slack = 0;
    u64 readable = 0;
};

stream_extent measure(const attrib_info &attribute, u32 cluster_size,
                      bool whole_allocation)
{
    stream_extent extent;
    extent.size = attribute.allocated_size;
    if (!whole_allocation) {
        extent.size = std::max(attribute.real_size, attribute.valid_size);
        if (attribute.allocated_size > extent.size)
            extent.slack = attribute.allocated_size - extent.size;
    }
    extent.readable = std::min(
        extent.size, runs_total_bytes(attribute.cluster_runs, cluster_size, false));
    return extent;
}

bool write_bytes(std::ostream &out, std::span<const u8> bytes)
{
    const void *data = bytes.data();
    out.write(static_cast<const char *>(data),
              static_cast<std::streamsize>(bytes.size()));
    return out.good();
}

// Index blocks are assumed to be 4096 bytes, one after the other. Their signature isn't
// tested.
void restore_index_blocks(std::span<u8> bytes, u32 sector_size)
{
    while (!bytes.empty()) {
        const auto block = bytes.first(std::min(bytes.size(), index_block::size));
        const byte_view view{block};
        const u16 count = view.read_padded<u16>(index_block::fixup_count);
        restore_sector_tails(block, view.read_padded<u16>(index_block::fixup_offset),
                             count, fixup_step(count, block.size(), sector_size));
        bytes = bytes.subspan(block.size());
    }
}

// Copies a stream as it is on the volume. True if anything was written.
bool copy_plain_stream(const CNtfs &volume, const attrib_info &attribute,
                       const run_index &runs, u64 total, std::ostream &out,
                       bool restore_blocks)
{
    const u64 unit = clusters_per_unit * volume.get_cluster_size();
    const u64 step = std::min(max_unit, std::max(unit, min_plain_step));
    std::vector<u8> buffer(std::min(step, total));
    u64 done = 0;
    while (done < total) {
        u32 length = static_cast<u32>(std::min<u64>(buffer.size(), total - done));
        u64 flags = 0;
        if (!read_stream_range(volume, runs, done, buffer.data(), length, flags)) break;
        const auto bytes = std::span(buffer).first(length);
        if (restore_blocks && attribute.is(attribute_type::index_allocation))
            restore_index_blocks(bytes, volume.get_bytes_per_sector());
        if (!write_bytes(out, bytes)) return false;
        done += length;
    }
    return done != 0;
}

// Reads and expands a compressed stream, unit by unit. True if any unit was read.
bool expand_stream(const CNtfs &volume, const run_index &runs,
                   const stream_extent &extent, u64 max_bytes, std::ostream &out)
{
    const u64 unit = clusters_per_unit * volume.get_cluster_size();
    if (unit > max_unit) return false;
    std::vector<u8> raw(unit);
    std::vector<u8> plain(unit);
    const u64 wanted = std::min(extent.readable, max_bytes);
    u64 done = 0;
    while (done < wanted) {
        // The last unit is read to the end of its allocation: cut where its plain bytes
        // end, it could lack the hole that distinguishes it from a unit stored plain.
        const u64 left = extent.readable - done;
        const u64 step =
            left < unit ? std::min(unit, left + std::min(extent.slack, unit)) : unit;
        u32 length = static_cast<u32>(step);
        u64 flags = 0;
        std::size_t count = 0;
        if (!read_stream_range(volume, runs, done, raw.data(), length, flags)) break;
        const auto target = std::span(plain).first(std::min(unit, wanted - done));
        if (!expand_unit(target, count, {raw.data(), length},
                         (flags & mapped_status::filled_sparse) != 0) ||
            count == 0)
            break;
        if (!write_bytes(out, target.first(count))) return false;
        done += step;
    }
    return done != 0;
}

} // namespace

bool read_stream_range(const CNtfs &volume, const run_index &runs, u64 offset,
                       u8 *buffer, u32 &size, u64 &flags)
try {
    const bool leave_out = (flags & mapped_status::leave_out_sparse) != 0;
    const RAW_DISK_IO *disk = volume.get_disk();
    const u32 cluster_size = volume.get_cluster_size();
    if (disk == nullptr || buffer == nullptr || size == 0 || cluster_size == 0)
        return false;
    const cluster_plan plan = plan_range(runs, cluster_size, offset, size, leave_out);
    flags = plan.status;
    cluster_delivery delivery(*disk, volume.get_volume_offset(), plan, {buffer, size},
                              unreadable_cluster::ends_the_delivery);
    delivery.deliver();
    if (delivery.filled_sparse()) flags |= mapped_status::filled_sparse;
    if (delivery.copied() == 0) return false;
    size = delivery.copied();
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool read_attribute_stream(const CNtfs &volume, const attrib_info &attribute,
                           std::ostream &out, const stream_options &options)
try {
    out.clear();
    if (attribute.cluster_runs.empty() && attribute.content.empty()) {
        debug_log(options.log, "err: no data");
        return false;
    }
    if (!attribute.non_resident) {
        debug_log(options.log, "info: data size 0x%llx",
                  static_cast<unsigned long long>(attribute.content.size()));
        return !attribute.content.empty() && write_bytes(out, attribute.content);
    }
    const stream_extent extent =
        measure(attribute, volume.get_cluster_size(), options.whole_allocation);
    debug_log(options.log, "info: data size 0x%llx",
              static_cast<unsigned long long>(extent.size));
    const RAW_DISK_IO *disk = volume.get_disk();
    if (disk == nullptr || volume.get_cluster_size() == 0) return false;
    if (!options.whole_allocation &&
        attribute.attribute_flags == attribute_is_compressed &&
        attribute.compression_unit != 0 && attribute.compressed_size != 0)
        return expand_stream(volume, attribute.cluster_runs, extent, options.max_bytes,
                             out);

    u64 total = extent.readable;
    if (options.follow_slack) total += std::min(extent.slack, ~total);
    total = std::min(total, options.max_bytes);
    std::vector<cluster_run> runs = attribute.cluster_runs;
    if (options.compact) {
        compact_runs(runs);
        // Runs that name the same clusters again and again could fill any memory.
        total = std::min(total, disk->get_size());
    }
    return copy_plain_stream(volume, attribute, runs, total, out,
                             !options.whole_allocation);
} catch (const std::bad_alloc &) {
    return false;
}

bool read_inode_data(const CNtfs &volume, u64 entry, std::ostream &out,
                     const stream_options &options)
{
    std::vector<attrib_info> attributes;
    if (!get_attribute_list(volume, entry, attributes, attribute_scope::all))
        return false;
    const auto found =
        std::ranges::find_if(attributes, [](const attrib_info &attribute) {
            return attribute.is(attribute_type::data) && attribute.stream_name.empty();
        });
    return found != attributes.end() &&
           read_attribute_stream(volume, *found, out, options);
}

} // namespace hv

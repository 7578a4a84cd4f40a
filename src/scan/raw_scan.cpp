#include "scan/raw_scan.h"

#include "base/hv_console.h"
#include "disk/hv_medium_reader.h"
#include "records/trash_options.h"
#include "scan/bin_filter.h"
#include "scan/carve.h"
#include "scan/directory_paths.h"
#include "scan/list_follower.h"
#include "scan/scan_source.h"
#include "trash/deleted_records.h"

#include <algorithm>
#include <new>
#include <vector>

namespace hv {

namespace {

// Records start at multiples of this, and are assumed to be this large.
constexpr u32 slot_size = 1024;
constexpr u32 block_size = 16 * slot_size;

constexpr u32 default_cluster_size = 4096;

// No file system has larger clusters. After the end of the medium a carver gets zeros
// up to this size only, whatever cluster size the user asked for.
constexpr u64 max_cluster = u64{2} << 20;

constexpr unsigned progress_width = 40;
constexpr unsigned progress_step = 5;

class raw_scanner {
public:
    raw_scanner(trash_options &context, const RAW_DISK_IO &disk, u32 cluster_size)
        : m_context(context),
          m_collection(context.collection),
          m_progress(context.options.progress),
          m_log(context.options.log()),
          m_cluster_size(cluster_size),
          m_source{.disk = disk, .total_size = disk.get_size()},
          m_reader(disk),
          m_lists(m_source, slot_size),
          m_block(block_size),
          m_record(slot_size)
    {
    }

    // The first cluster must be there and readable, the rest shows on the way.
    bool set_up()
    {
        const u64 least =
            m_cluster_size >= slot_size ? m_cluster_size : default_cluster_size;
        u32 length = slot_size;
        return m_source.total_size >= least &&
               m_source.disk.read_checked(m_block.data(), length, 0);
    }

    void scan()
    {
        u64 at = 0;
        while (at < m_source.total_size) {
            const u64 data = m_reader.next_data(at) / block_size * block_size;
            if (data > at) {
                pass_hole(at, data);
                at = data;
                continue;
            }
            if (!scan_block_at(at)) return;
            at += block_size;
        }
    }

    /// Bytes that were looked at, holes left out.
    u64 scanned() const { return m_scanned; }

private:
    void show_position(u64 position) const
    {
        if (m_progress)
            progress_line(progress_width, position, m_source.total_size, progress_step);
    }

    // Zeros hold no record and no `INFO2`. The progress line goes on as if the blocks
    // had been read, but only stops where it would be drawn.
    void pass_hole(u64 at, u64 end) const
    {
        if (!m_progress) return;
        while (at < end) {
            show_position(at);
            const u64 mark = next_progress_mark() / block_size * block_size;
            at = std::max(at + block_size, mark);
        }
    }

    bool scan_block_at(u64 position)
    {
        show_position(position);
        const u64 left = m_source.total_size - position;
        u32 length = static_cast<u32>(std::min<u64>(block_size, left));
        byte_view block = m_reader.view(position, length, left);
        if (block.empty()) {
            if (!m_source.disk.read_checked(m_block.data(), length, position))
                return false;
            block = byte_view{m_block}.clip(0, length);
        }
        m_scanned += length;
        const u64 known = m_collection.records.size();
        scan_block(position, block);
        if (m_progress && m_collection.records.size() != known)
            status_line("inode count %lld, offset 0x%0llx\n",
                        static_cast<long long>(m_collection.records.size()),
                        static_cast<unsigned long long>(position));
        return true;
    }

    void scan_block(u64 position, byte_view block)
    {
        try {
            for (u64 at = 0; at + slot_size <= block.size(); at += slot_size)
                scan_slot(position + at, block.clip(at, slot_size));
        } catch (const std::bad_alloc &) {
            print_error("exception caught: %llu\n",
                        static_cast<unsigned long long>(m_parsed.entry));
        }
    }

    void scan_slot(u64 position, byte_view slot)
    {
        if (has_signature(slot, file_record::signature) && passes_record_test(slot))
            take_record(position, slot);
        else if (has_info2_header(slot) && position % m_cluster_size == 0)
            carve_at(position);
    }

    void take_record(u64 position, byte_view slot)
    {
        std::ranges::copy(slot.bytes(), m_record.begin());
        if (!parse_record(m_parsed, m_record, m_parse, m_lists.source())) return;
        const u64 index = m_collection.records.size();
        u64 nothing_to_load = 0;
        filter_decision decision = filter_record(m_collection, m_parsed);
        load_info2(decision, m_parsed, {}, nothing_to_load);
        if (decision.answer == filter_answer::refuse) {
            log_record("checking/updating store entry with: inode", index, position);
            return;
        }
        log_record("adding inode", index, position);
        keep_record(m_collection, m_parsed, position, decision,
                    directory_claim::of_first_pass);
    }

    void log_record(const char *action, u64 index, u64 position) const
    {
        if (m_log.stream() == nullptr) return;
        debug_log(m_log, "%s: 0x%llx, indx 0x%llx, offset 0x%llx", action,
                  static_cast<unsigned long long>(m_parsed.entry),
                  static_cast<unsigned long long>(index),
                  static_cast<unsigned long long>(position));
    }

    // Hands a whole cluster to the carver, also where it passes the end of the block.
    // This scan comes to the records itself, so only an `INFO2` is worth the call.
    void carve_at(u64 position)
    {
        const u64 left = m_source.total_size - position;
        const u64 size = std::min<u64>(m_cluster_size, std::max(left, max_cluster));
        std::vector<u8> cluster(size);
        u32 length = static_cast<u32>(std::min(size, left));
        if (!m_source.disk.read_checked(cluster.data(), length, position)) return;
        scan_item item;
        item.context = &m_context;
        item.data = byte_view{cluster};
        item.offset = position;
        item.number = position / m_cluster_size;
        item.scans_records = true;
        carve_cluster(item);
    }

    trash_options &m_context;
    _trash_inodes &m_collection;
    const bool m_progress;
    const log_handle m_log;
    const u32 m_cluster_size;
    const scan_source m_source;
    medium_reader m_reader;
    list_follower m_lists;
    const parse_options m_parse{
        .named_streams = true, .runs = true, .target_name = "info2"};
    std::vector<u8> m_block;
    std::vector<u8> m_record;
    parsed_record m_parsed;
    u64 m_scanned = 0;
};

} // namespace

bool run_raw_scan(trash_options &context, std::string_view path, u32 cluster_size)
{
    if (path.empty() || cluster_size == 0) return false;
    const RAW_DISK_IO disk(path);
    if (!disk.is_open()) return false;
    raw_scanner scanner(context, disk, cluster_size);
    if (!scanner.set_up()) return false;
    _trash_inodes &collection = context.collection;
    collection.directories.clear();
    scanner.scan();
    end_progress(context.options.progress);
    if (!collection.directories.empty())
        build_directory_paths(collection, directory_text_budget(scanner.scanned()));
    return !collection.bin_directories.empty();
}

} // namespace hv

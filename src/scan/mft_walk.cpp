#include "scan/mft_walk.h"

#include "base/hv_checked_math.h"
#include "base/hv_console.h"
#include "scan/list_follower.h"

#include <algorithm>
#include <new>
#include <optional>

namespace hv {

namespace {

constexpr u64 block_records = 16;
constexpr u32 default_record_size = 1024;
constexpr u32 max_record_size = 4096;
constexpr u32 default_first_read = 4096;
constexpr u32 sector_size = 512;

// One request for many blocks: what a scan costs are the requests, and bytes that have
// left the nearest caches by the time they are parsed.
constexpr u64 large_read = u64{64} * 1024;

constexpr unsigned progress_width = 40;
constexpr unsigned progress_step = 5;

class mft_walker {
public:
    mft_walker(const scan_source &source, const parse_options &options,
               const record_visitor &visit, bool progress)
        : m_source(source),
          m_options(options),
          m_visit(visit),
          m_progress(progress)
    {
    }

    // The first record says how large all are.
    bool set_up()
    {
        const u32 wanted = m_source.cluster_size >= default_record_size
                               ? m_source.cluster_size
                               : default_first_read;
        std::vector<u8> first(wanted);
        u32 length = wanted;
        if (m_source.total_size < wanted || !read(first.data(), length, 0))
            return false;
        const byte_view record = byte_view{first}.clip(0, length);
        if (!passes_record_test(record)) return false;
        const u32 count = record.read_padded<u16>(file_record::fixup_count.offset);
        m_record_size = count > 2 ? count * sector_size - sector_size : 0;
        // Damage to the first record's count must not cost the other records.
        if (m_record_size == 0)
            m_record_size =
                m_source.record_size != 0 ? m_source.record_size : default_record_size;
        m_record_size = std::min(m_record_size, max_record_size);
        m_lists.emplace(m_source, m_record_size);
        return true;
    }

    void scan()
    {
        const u64 block = block_records * m_record_size;
        const u64 chunk = std::max(large_read / block, u64{1}) * block;
        const u64 total = m_source.total_size;
        std::vector<u8> buffer(std::min(chunk, saturating_sum(total, block)));
        for (u64 at = next_chunk(0, chunk); at < total;
             at = next_chunk(saturating_sum(at, chunk), chunk))
            if (!scan_chunk(at, std::min(chunk, total - at), block, buffer)) return;
    }

private:
    // The first chunk, at or after a position, of which the medium has anything: the
    // runs of a truncated image may lead far from it, and back.
    u64 next_chunk(u64 at, u64 chunk) const
    {
        if (!m_source.mapped || at >= m_source.total_size) return at;
        const u64 next = m_source.disk.next_on_medium(at);
        return next == RAW_DISK_IO::not_on_medium ? next : next / chunk * chunk;
    }

    bool read(u8 *buffer, u32 &length, u64 position) const
    {
        u64 on_disk = 0;
        return !__builtin_add_overflow(position, m_source.base_offset, &on_disk) &&
               m_source.disk.read(buffer, length, on_disk, m_source.mapped);
    }

    // One large read or, if that doesn't deliver everything, the blocks one by one,
    // whose failure decides.
    bool scan_chunk(u64 at, u64 size, u64 block, std::vector<u8> &buffer)
    {
        u32 length = static_cast<u32>(size);
        if (read(buffer.data(), length, at) && length == size) {
            for (u64 offset = 0; offset < size; offset += block)
                scan_block(at + offset, std::span(buffer).subspan(
                                            offset, std::min(block, size - offset)));
            return true;
        }
        for (u64 offset = 0; offset < size; offset += block) {
            length = static_cast<u32>(block);
            if (!read(buffer.data(), length, at + offset)) return false;
            scan_block(at + offset, std::span(buffer).first(length));
        }
        return true;
    }

    void scan_block(u64 position, std::span<u8> block)
    {
        if (m_progress)
            progress_line(progress_width, position, m_source.total_size, progress_step);
        for (u64 at = 0; at + m_record_size <= block.size(); at += m_record_size) {
            try {
                scan_slot(position + at, block.subspan(at, m_record_size));
            } catch (const std::bad_alloc &) {
                print_error("exception caught: %llu\n",
                            static_cast<unsigned long long>(m_record.entry));
            }
        }
    }

    void scan_slot(u64 position, std::span<u8> slot)
    {
        const byte_view record{slot};
        if (!has_signature(record, file_record::signature) ||
            !passes_record_test(record) ||
            record.read_padded<u16>(file_record::first_attribute.offset) >
                m_record_size)
            return;
        if (parse_record(m_record, slot, m_options, m_lists->source()))
            m_visit(m_record, position);
    }

    const scan_source &m_source;
    const parse_options &m_options;
    const record_visitor &m_visit;
    std::optional<list_follower> m_lists;
    parsed_record m_record;
    u32 m_record_size = default_record_size;
    bool m_progress;
};

} // namespace

bool scan_records(const scan_source &source, const parse_options &options,
                  const record_visitor &visit, bool show_progress)
{
    mft_walker walker(source, options, visit, show_progress);
    if (!walker.set_up()) return false;
    walker.scan();
    end_progress(show_progress);
    return true;
}

} // namespace hv

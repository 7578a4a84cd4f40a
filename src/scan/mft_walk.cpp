#include "scan/mft_walk.h"

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

// One request for many blocks: the cost of a scan is in the requests, and in bytes that
// have left the nearest caches by the time they are looked at.
constexpr u64 large_read = u64{64} * 1024;

constexpr unsigned progress_width = 40;
constexpr unsigned progress_step = 5;

// Only these names can be metadata, so only their content is worth keeping.
bool may_be_metadata(std::string_view name)
{
    return name.starts_with("$I") || name == "INFO2";
}

void keep_extras(inode_store &records, u64 index, const parsed_record &record)
{
    if (may_be_metadata(record.name)) {
        record_extras &extras = records.extras(index);
        extras.data = record.data;
        extras.data_runs = record.data_runs;
    }
    if (!record.zone_data.empty()) records.extras(index).zone_data = record.zone_data;
}

class store_scanner {
public:
    store_scanner(_inode_collection &collection, const store_source &source,
                  const parse_options &options, const record_filter &filter,
                  bool progress)
        : m_collection(collection),
          m_source(source),
          m_options(options),
          m_filter(filter),
          m_progress(progress)
    {
    }

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
        // A first record whose count is damaged must not cost the others.
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
        std::vector<u8> buffer(std::min(chunk, m_source.total_size + block));
        for (u64 at = 0; at < m_source.total_size; at += chunk)
            if (!scan_chunk(at, std::min(chunk, m_source.total_size - at), block,
                            buffer))
                return;
    }

private:
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
        if (!parse_record(m_record, slot, m_options, m_lists->source())) return;
        const u64 index = m_collection.records.size();
        if (m_filter && m_filter(m_record, index) == filter_answer::refuse) return;
        keep_record(m_collection, m_record, position, directory_claim::if_in_use);
    }

    _inode_collection &m_collection;
    const store_source &m_source;
    const parse_options &m_options;
    const record_filter &m_filter;
    std::optional<list_follower> m_lists;
    parsed_record m_record;
    u32 m_record_size = default_record_size;
    bool m_progress;
};

} // namespace

void keep_record(_inode_collection &collection, const parsed_record &parsed,
                 u64 position, directory_claim claim)
{
    inode_store &records = collection.records;
    const u64 index = records.add();
    inode_record &record = records[index];
    record.entry = parsed.entry;
    record.sequence = parsed.sequence;
    record.first_parent = parsed.first_parent;
    record.si_modified = parsed.si_modified;
    record.si_accessed = parsed.si_accessed;
    record.si_mft_changed = parsed.si_mft_changed;
    record.si_created = parsed.si_created;
    record.real_size = parsed.real_size;
    record.is_directory = parsed.is_directory();
    record.in_use = parsed.in_use();
    record.position = position;
    records.set_name(index, parsed.name);
    keep_extras(records, index, parsed);
    if (!record.is_directory) return;
    const auto [known, added] = collection.directories.emplace(record.entry, index);
    if (added || !record.in_use) return;
    if (claim == directory_claim::if_known_is_unused && records[known->second].in_use)
        return;
    known->second = index;
}

bool scan_records(_inode_collection &collection, const store_source &source,
                  const parse_options &options, const record_filter &filter,
                  bool show_progress)
{
    constexpr u64 min_path_budget = u64{16} << 20;
    store_scanner scanner(collection, source, options, filter, show_progress);
    if (!scanner.set_up()) return false;
    collection.directories.clear();
    scanner.scan();
    end_progress(show_progress);
    if (collection.directories.empty()) return false;
    build_directory_paths(collection, std::max(source.total_size, min_path_budget));
    return true;
}

} // namespace hv

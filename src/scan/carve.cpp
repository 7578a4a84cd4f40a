#include "scan/carve.h"

#include "ntfs/hv_file_record.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "scan/single_record.h"
#include "trash/deleted_records.h"

#include <algorithm>
#include <utility>

namespace hv {

namespace {

// Records start at multiples of this, whatever their own size.
constexpr u64 record_step = 1024;

constexpr const char *carved_name = "carve from cluster";

bool has_record_mark(byte_view bytes)
{
    return has_signature(bytes, file_record::signature);
}

// What the search for records says of a chunk.
struct record_search {
    bool at_start = false; ///< the chunk itself begins with a record
    u64 left;              ///< bytes of the chunk from its last record on
};

void process_record(const scan_item &item, u64 position, byte_view record)
{
    if (item.scans_records || !passes_record_test(record)) return;
    scan_item found = item;
    found.data = record;
    found.offset = item.offset + position;
    found.number = record.read_padded<u32>(file_record::entry.offset);
    process_mft_record(found);
}

// Takes the records at the steps of one chunk, which is at `position` of the item.
record_search take_records(const scan_item &item, u64 position, byte_view chunk)
{
    record_search result{.left = chunk.size()};
    for (u64 at = 0; at + sizeof(u32) < chunk.size(); at += record_step) {
        const byte_view record = chunk.from(at);
        if (!has_record_mark(record)) continue;
        if (at == 0) result.at_start = true;
        result.left = record.size();
        if (result.left < record_step) break;
        process_record(item, position + at, record);
    }
    return result;
}

// The test gets as many bytes as there are from the last record on, counted from the
// front of the chunk.
bool holds_info2(byte_view chunk, u64 left)
{
    return has_info2_header(chunk) && left > info2::first_cursor &&
           looks_like_info2(
               chunk.clip(info2::first_cursor, left - info2::first_cursor));
}

void keep_info2(const scan_item &item, u64 position)
{
    _trash_inodes &collection = item.context->collection;
    collection.current_source = carved_name;
    const auto bytes = item.data.from(position).bytes();
    trash_entry entry;
    entry.metadata_name = carved_name;
    entry.other_info = collection.scan_label;
    entry.source_offset = item.offset + position;
    entry.raw_data.assign(bytes.begin(), bytes.end());
    collection.carved_entries.push_back(std::move(entry));
}

} // namespace

void carve_cluster(const scan_item &item)
{
    if (item.context == nullptr || !item.context->results_writable) return;
    const u64 size = item.data.size();
    const u64 chunk = item.volume == nullptr
                          ? size
                          : std::min<u64>(item.volume->get_cluster_size(), size);
    // A smaller chunk holds neither a record nor a list, but there may be many of them.
    if (chunk < info2::min_size) return;
    for (u64 at = 0; at < size; at += chunk) {
        const byte_view bytes = item.data.clip(at, chunk);
        const record_search records = take_records(item, at, bytes);
        if (records.at_start || !holds_info2(bytes, records.left)) continue;
        keep_info2(item, at);
        return;
    }
}

} // namespace hv

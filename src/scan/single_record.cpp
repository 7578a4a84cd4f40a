#include "scan/single_record.h"

#include "ntfs/hv_attribute_list.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "scan/bin_filter.h"

namespace hv {

namespace {

constexpr std::size_t min_record = 1024;

// What single records may cost beyond themselves, as long as a run goes on: extension
// records, attribute lists, content. Hostile records lose theirs.
u64 &side_reads_left(trash_options &context, const CNtfs &volume)
{
    constexpr u64 spare = u64{16} << 20;
    if (!context.side_reads_left)
        context.side_reads_left = volume.get_disk()->get_stored_size() + spare;
    return *context.side_reads_left;
}

bool spend(u64 &budget, u64 bytes)
{
    if (bytes > budget) return false;
    budget -= bytes;
    return true;
}

std::vector<u8> read_list_clusters(const CNtfs &volume,
                                   const std::vector<flat_run> &runs, u64 &budget)
{
    const u32 cluster = volume.get_cluster_size();
    std::vector<u8> bytes;
    for (const flat_run &run : runs) {
        for (u32 i = 0; i < run.clusters; ++i) {
            const std::size_t had = bytes.size();
            if (run.delta == 0 || had >= max_list_bytes || !spend(budget, cluster))
                return bytes;
            bytes.resize(had + cluster);
            u32 length = cluster;
            if (!volume.read_clusters(run.lcn + i, bytes.data() + had, length)) {
                bytes.resize(had);
                return bytes;
            }
            bytes.resize(had + length);
        }
    }
    return bytes;
}

// How a record by itself reaches others of its volume.
record_source source_through(const CNtfs &volume, u64 &budget)
{
    record_source source;
    source.read_record = [&volume, &budget](u64 entry, std::vector<u8> &record) {
        return spend(budget, volume.get_mft_record_size()) &&
               volume.read_filerecord(entry, record);
    };
    source.read_clusters = [&volume, &budget](const std::vector<flat_run> &runs) {
        return read_list_clusters(volume, runs, budget);
    };
    return source;
}

} // namespace

void process_mft_record(const scan_item &item)
{
    if (item.context == nullptr || item.volume == nullptr ||
        item.data.size() < min_record || !item.context->results_writable ||
        !passes_record_test(item.data))
        return;
    trash_options &context = *item.context;
    const u64 entry = item.data.read_padded<u32>(file_record::entry.offset);
    const u16 sequence = item.data.read_padded<u16>(file_record::sequence.offset);
    if (context.references.contains(entry, sequence)) return;

    const u32 record_size = item.volume->get_mft_record_size();
    const auto bytes = item.data.clip(0, record_size).bytes();
    if (bytes.size() < record_size) return;
    std::vector<u8> copy(bytes.begin(), bytes.end());
    u64 &budget = side_reads_left(context, *item.volume);
    parsed_record record;
    const parse_options parse{
        .named_streams = false, .runs = true, .target_name = "info2"};
    if (!parse_record(record, copy, parse, source_through(*item.volume, budget)) ||
        !record.has_parents())
        return;
    filter_decision decision = filter_record(context.collection, record);
    const content_source content{context.options.rawscan ? nullptr
                                                         : item.volume->get_disk(),
                                 item.volume->get_cluster_size()};
    load_info2(decision, record, content, budget);
    if (decision.answer == filter_answer::refuse) return;
    // A record from `scan_mft_entries` has its own position in `offset` already. Rows
    // show this sum and readers compare it, so it stays.
    keep_record(context.collection, record, entry * record_size + item.offset, decision,
                directory_claim::of_later_pass);
}

} // namespace hv

#include "scan/mft_scan.h"

#include "base/hv_console.h"
#include "base/hv_string.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"

#include <algorithm>

namespace hv {

namespace {

// A name of one byte is refused, wherever it stands.
constexpr std::size_t min_name = 2;

// The content of an `INFO2` is counted in clusters of this size, whatever the volume's.
// On a volume with larger ones, the end of a long `INFO2` is lost.
constexpr unsigned info2_cluster_shift = 12;
constexpr u64 max_info2 = 0xFFFFFF;

bool is_bin_name(std::string_view name)
{
    const std::string lower = lower_copy(name);
    return lower == "$recycle.bin" || lower == "recycler";
}

// Directories are kept for the paths, and those of a bin are remembered. Only in the
// root a directory has to be a bin's.
bool is_wanted_directory(trash_options &options, const parsed_record &record,
                         u64 store_index)
{
    const u64 parent = record.has_parents() ? record.first_parent : 0;
    if (parent == root_entry_number) {
        if (!is_bin_name(record.name)) return false;
        options.bin_root_index = store_index;
    } else if (!options.bin_directories.contains(parent) &&
               !(options.bins_known &&
                 options.known_bin_directories.contains(parent))) {
        return true;
    }
    options.bin_directories.emplace(record.entry, store_index);
    return true;
}

bool is_in_bin(const trash_options &options, const parsed_record &record)
{
    const u64 parent = record.has_parents() ? record.first_parent : 0;
    return options.bins_known && (options.known_bin_directories.contains(parent) ||
                                  options.bin_directories.contains(parent));
}

// Reads the clusters of an `INFO2` from the volume. False if the disk refuses; an
// `INFO2` that isn't loaded at all is fine, it may still be found by carving.
bool load_info2(const trash_options &options, parsed_record &record,
                const RAW_DISK_IO *disk, u64 &load_budget)
{
    if (record.data_runs.empty() || !record.data.empty() || disk == nullptr)
        return true;
    std::vector<cluster_run> runs;
    flat_to_cluster_runs(record.data_runs, runs);
    const u64 clusters = runs_total_bytes(runs, 1, true);
    if (clusters > max_info2 >> info2_cluster_shift || options.rawscan) return true;
    const u64 bytes = clusters << info2_cluster_shift;
    if (bytes > load_budget) return true;
    load_budget -= bytes;
    record.data.assign(bytes, 0);
    u32 length = static_cast<u32>(bytes);
    u64 status = 0;
    return disk->read_mapped(runs, options.cluster_size, 0, record.data.data(), length,
                             status);
}

store_source source_of(const RAW_DISK_IO &disk, const trash_options &options)
{
    return {.disk = disk, .cluster_size = options.cluster_size};
}

bool scan(trash_options &options, const store_source &source,
          const parse_options &parse, const RAW_DISK_IO *content_disk)
{
    u64 load_budget = source.disk.get_stored_size();
    const record_filter filter = [&](parsed_record &record, u64 store_index) {
        return filter_record(options, record, store_index, content_disk, load_budget);
    };
    scan_records(options, source, parse, filter, options.progress);
    return !options.bin_directories.empty();
}

// Every so many entries the progress line is drawn anew.
constexpr u64 entries_per_status = 53;

constexpr std::size_t min_record = 1024;

u64 reference_of(u64 entry, u16 sequence)
{
    return reference_entry(entry) | u64{sequence} << 48;
}

// Whether the store has an entry with this sequence number already. What was added
// since the last question is looked at first.
bool is_stored(trash_options &options, u64 reference)
{
    const inode_store &records = options.records;
    for (u64 &next = options.references_known; next < records.size(); ++next)
        options.by_reference.insert(
            reference_of(records[next].entry, records[next].sequence));
    return options.by_reference.contains(reference);
}

// What the records that stand alone may cost beside themselves, as long as a pass goes
// on: extension records, attribute lists, content. Hostile records lose theirs.
u64 &side_reads_left(trash_options &options, const CNtfs &volume)
{
    constexpr u64 spare = u64{16} << 20;
    if (!options.side_reads_left)
        options.side_reads_left = volume.get_disk()->get_stored_size() + spare;
    return *options.side_reads_left;
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

// How a record that stands alone reaches others of its volume.
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

// The size of the $MFT as its own $DATA states it, but no more than the medium has.
u64 mft_size_of(const CNtfs &volume)
{
    mft_entry first;
    if (!mft_entries_ctx(volume).analyze_entry(first, mft_entry_number)) return 0;
    for (const auto &[key, view] : first.attributes) {
        if (view.info.type != static_cast<u32>(attribute_type::data)) continue;
        const u64 stated = view.info.non_resident ? view.info.allocated_size
                                                  : view.info.content.size();
        return std::min(stated, volume.get_disk()->get_size());
    }
    return 0;
}

} // namespace

filter_answer filter_record(trash_options &options, parsed_record &record,
                            u64 store_index, const RAW_DISK_IO *disk, u64 &load_budget)
{
    if (record.name.size() < min_name) return filter_answer::refuse;
    const bool wanted = record.is_directory()
                            ? is_wanted_directory(options, record, store_index)
                            : is_in_bin(options, record);
    const bool is_info2 = equal_ignoring_case(record.name, "INFO2");
    if (is_info2 && load_info2(options, record, disk, load_budget))
        return filter_answer::keep;
    if (!is_info2 && !options.bins_known) return filter_answer::keep;
    return wanted ? filter_answer::keep : filter_answer::refuse;
}

bool pull_mft_data(trash_options &options, std::string_view path)
{
    if (path.empty()) return false;
    const RAW_DISK_IO disk(path);
    if (!disk.is_open()) return false;
    store_source source = source_of(disk, options);
    source.total_size = disk.get_size();
    const parse_options parse{.named_streams = true, .runs = false, .target_name = {}};
    return scan(options, source, parse, nullptr);
}

bool scan_mft_store(trash_options &options, const RAW_DISK_IO &disk, u64 mft_size,
                    u32 record_size)
{
    if (!disk.is_open()) return false;
    store_source source = source_of(disk, options);
    source.mapped = true;
    source.total_size = mft_size;
    source.record_size = record_size;
    const parse_options parse{
        .named_streams = true, .runs = true, .target_name = "info2"};
    return scan(options, source, parse, &disk);
}

bool scan_mft_entries(const CNtfs &volume, const scan_callback &callback,
                      u64 first_entry, u64 count, trash_options &context)
{
    const mft_entries_ctx entries(volume, context.log());
    const u64 record_size = volume.get_mft_record_size();
    const u64 size = entries.is_open() ? mft_size_of(volume) : 0;
    if (size == 0) return false;
    const u64 total = size / record_size;
    const u64 end = count != 0 ? std::min(total, first_entry + count) : total;
    // Grows by one record for each entry, whether or not the $MFT lies in one piece.
    u64 position = volume.get_entry_position(0) + volume.get_volume_offset() +
                   first_entry * record_size;
    std::vector<u8> record;
    for (u64 entry = first_entry; entry < end; ++entry, position += record_size) {
        if (context.progress && entry % entries_per_status == 0)
            status_line("analyzing entry %lld of %lld", static_cast<long long>(entry),
                        static_cast<long long>(total));
        bool bad = false;
        if (!entries.read_entry(record, bad, entry) || record.empty()) continue;
        callback({&volume, &context, byte_view{record}, position, entry, {}});
    }
    end_progress(context.progress);
    return true;
}

void process_mft_record(const scan_item &item)
{
    if (item.context == nullptr || item.volume == nullptr ||
        item.data.size() < min_record)
        return;
    trash_options &options = *item.context;
    if (options.results_stream == nullptr || !options.results_stream->good()) return;
    if (!options.keep_parsed) options.carved_entries.clear();
    if (!passes_record_test(item.data)) return;
    const u64 entry = item.data.read_padded<u32>(file_record::entry.offset);
    const u16 sequence = item.data.read_padded<u16>(file_record::sequence.offset);
    if (is_stored(options, reference_of(entry, sequence))) return;

    const u32 record_size = item.volume->get_mft_record_size();
    const auto bytes = item.data.clip(0, record_size).bytes();
    if (bytes.size() < record_size) return;
    std::vector<u8> copy(bytes.begin(), bytes.end());
    u64 &budget = side_reads_left(options, *item.volume);
    parsed_record record;
    const parse_options parse{
        .named_streams = false, .runs = true, .target_name = "info2"};
    if (!parse_record(record, copy, parse, source_through(*item.volume, budget)) ||
        !record.has_parents())
        return;
    const u64 known_root = options.bin_root_index;
    const filter_answer answer = filter_record(options, record, options.records.size(),
                                               item.volume->get_disk(), budget);
    // A stale bin must not take the place of the one that the first pass saw.
    if (known_root != no_index) options.bin_root_index = known_root;
    if (answer == filter_answer::refuse) return;
    // The offset holds the entry's own position already where the record came from the
    // pass above; the sum has always been recorded.
    keep_record(options, record, entry * record_size + item.offset,
                directory_claim::if_known_is_unused);
}

} // namespace hv

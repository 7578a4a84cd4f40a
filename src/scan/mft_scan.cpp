#include "scan/mft_scan.h"

#include "base/hv_string.h"
#include "run/trash_options.h"

namespace hv {

namespace {

// A name of one byte is refused, wherever it stands.
constexpr std::size_t least_name = 2;

// The content of an `INFO2` is counted in clusters of this size, whatever the volume's.
// On a volume with larger ones, the end of a long `INFO2` is lost.
constexpr unsigned info2_cluster_shift = 12;
constexpr u64 largest_info2 = 0xFFFFFF;

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
    if (clusters > largest_info2 >> info2_cluster_shift || options.rawscan) return true;
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
    u64 load_budget = source.disk.get_size();
    const record_filter filter = [&](parsed_record &record, u64 store_index) {
        return filter_record(options, record, store_index, content_disk, load_budget);
    };
    scan_records(options, source, parse, filter, options.progress);
    return !options.bin_directories.empty();
}

} // namespace

filter_answer filter_record(trash_options &options, parsed_record &record,
                            u64 store_index, const RAW_DISK_IO *disk, u64 &load_budget)
{
    if (record.name.size() < least_name) return filter_answer::refuse;
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

} // namespace hv

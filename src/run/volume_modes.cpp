#include "run/volume_modes.h"

#include "base/hv_checked_math.h"
#include "base/hv_console.h"
#include "ntfs/hv_volume_refusal.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "run/process_entries.h"
#include "scan/directory_paths.h"
#include "scan/find_bins.h"
#include "scan/mft_scan.h"
#include "scan/raw_scan.h"
#include "scan/shadow_scan.h"
#include "scan/unalloc_scan.h"
#include "trash/classify.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u32 default_cluster_size = 4096;

void report_failed_pull(const std::string &mft_file)
{
    print_error("prob calling pull_mft_data from %s\n", mft_file.c_str());
}

// A refused medium leaves no other trace than this line.
void log_refusal(const run_options &options, const std::string &path,
                 const std::string &reason)
{
    debug_log(options.log(), "err: %s, offset 0x%llx: %s", path.c_str(),
              static_cast<unsigned long long>(options.volume_offset), reason.c_str());
}

// The same for a medium that is read without a volume.
void log_failed_open(const run_options &options, const std::string &path)
{
    const open_failure failure = RAW_DISK_IO(path).failure();
    if (failure != open_failure::none)
        debug_log(options.log(), "err: %s: %s", path.c_str(),
                  open_failure_text(failure));
}

void classify_if_bins(_trash_inodes &collection)
{
    if (mark_bin_dirs(collection) != 0) classify_records(collection);
}

void write_rows(_trash_inodes &collection, u32 cluster_size, const run_options &options,
                std::ostream &results)
{
    process_entries(results, options.form,
                    {.log = options.log(),
                     .volume_offset = options.volume_offset,
                     .cluster_size = cluster_size},
                    collection);
}

void log_store_count(const run_options &options, const _trash_inodes &collection,
                     const char *pass)
{
    debug_log(options.log(), "%s parse finished: store_count: 0x%08llx", pass,
              static_cast<unsigned long long>(collection.records.size()));
}

// The runs of the $MFT up to the first with which it would take more clusters of the
// medium than there are: only hostile runs share clusters, and could have the same ones
// read over and over.
std::vector<cluster_run> plausible_mft_runs(const CNtfs &volume,
                                            const RAW_DISK_IO &disk)
{
    std::vector<cluster_run> runs = volume.get_mft_runs();
    const u64 clusters = disk.get_size() / volume.get_cluster_size() + 1;
    u64 left = clusters;
    const auto takes_too_many = [&](const cluster_run &run) {
        if (run.is_sparse || run.lcn >= clusters) return false;
        const u64 present = std::min<u64>(run.clusters, clusters - run.lcn);
        if (present > left) return true;
        left -= present;
        return false;
    };
    runs.erase(std::ranges::find_if(runs, takes_too_many), runs.end());
    return runs;
}

// Lets the disk read the $MFT as one flat range. Its size is what its runs claim, which
// may be more than a truncated image has.
mft_on_volume attach_mft(const CNtfs &volume, RAW_DISK_IO &disk)
{
    const u64 length =
        saturating_product(volume.get_mft_entry_count(), volume.get_mft_record_size());
    disk.attach_runs(volume.get_cluster_size(), plausible_mft_runs(volume, disk),
                     length, volume.get_volume_offset());
    return {.disk = disk,
            .size = length,
            .record_size = volume.get_mft_record_size(),
            .cluster_size = volume.get_cluster_size()};
}

// The passes that look for what the file system forgot. Their order is part of the
// output: rows of orphans show the label of the last one. Each may bring folders that
// have no path yet.
void run_later_passes(CNtfs &volume, trash_options &context)
{
    const run_options &options = context.options;
    _trash_inodes &collection = context.collection;
    // Real paths are far from using this up; hostile records may lose theirs.
    const auto max_text = [&collection] {
        return directory_text_budget(0) + collection.records.size() * 256;
    };
    if (options.include_vss) {
        mark_bin_dirs(collection);
        scan_shadow_stores(volume, context);
        log_store_count(options, collection, "vss");
        build_directory_paths(collection, max_text());
    }
    if (options.include_unalloc) {
        mark_bin_dirs(collection);
        scan_volume_extras(volume, context);
        log_store_count(options, collection, "unalloc");
        build_directory_paths(collection, max_text());
    }
}

// All passes over a volume. False if the `$MFT` can't be scanned or has no bin.
bool scan_volume(CNtfs &volume, trash_options &context)
{
    RAW_DISK_IO *disk = volume.get_disk();
    if (disk == nullptr) return true;
    const run_options &options = context.options;
    const mft_on_volume mft = attach_mft(volume, *disk);
    if (options.look_up_bins)
        find_recycle_bins(context.collection, volume, options.log());
    if (!scan_mft_store(context.collection, mft, options)) return false;
    log_store_count(options, context.collection, "MFT");
    run_later_passes(volume, context);
    return true;
}

// The cluster size that a raw scan goes by.
u32 raw_cluster_size(const run_options &options)
{
    if (options.cluster_size != 0) return options.cluster_size;
    CNtfs volume(options.image_path, options.volume_offset, volume_kind::path);
    if (volume.validate_volume()) return volume.get_cluster_size();
    log_refusal(options, options.image_path, refusal_reason(volume));
    return default_cluster_size;
}

} // namespace

void run_mft_file(const run_options &options, std::ostream &results)
{
    _trash_inodes collection;
    if (!pull_mft_data(collection, options.mft_file, options)) {
        log_failed_open(options, options.mft_file);
        report_failed_pull(options.mft_file);
        return;
    }
    classify_if_bins(collection);
    write_rows(collection, options.cluster_size, options, results);
}

void run_raw_image(const run_options &options, std::ostream &results)
{
    _trash_inodes collection;
    trash_options context(options, collection);
    context.results_writable = results.good();
    collection.scan_label = "rawscan";
    if (options.progress) print_error("analyzing each cluster sequentially\n");
    const u32 cluster_size = raw_cluster_size(options);
    if (!run_raw_scan(context, options.image_path, cluster_size))
        log_failed_open(options, options.image_path);
    classify_if_bins(collection);
    write_rows(collection, cluster_size, options, results);
}

void run_volume(volume_origin origin, const run_options &options, std::ostream &results)
{
    const bool is_image = origin == volume_origin::image;
    const std::string &path = is_image ? options.image_path : options.partition_root;
    CNtfs volume(path, is_image ? options.volume_offset : 0,
                 is_image ? volume_kind::path : volume_kind::letter_path);
    if (!volume.validate_volume()) {
        log_refusal(options, path, refusal_reason(volume));
        return;
    }
    _trash_inodes collection;
    trash_options context(options, collection);
    context.results_writable = results.good();
    if (!scan_volume(volume, context)) {
        report_failed_pull(options.mft_file);
        return;
    }
    classify_if_bins(collection);
    if (is_image)
        debug_log(options.log(), "# of m_r_indexes: %d",
                  static_cast<int>(collection.m_r_indexes.size()));
    write_rows(collection, volume.get_cluster_size(), options, results);
}

} // namespace hv

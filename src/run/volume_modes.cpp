#include "run/volume_modes.h"

#include "base/hv_console.h"
#include "ntfs/ntfs.h"
#include "run/process_entries.h"
#include "scan/find_bins.h"
#include "scan/mft_scan.h"
#include "scan/mft_walk.h"
#include "scan/raw_scan.h"
#include "scan/shadow_scan.h"
#include "scan/unalloc_scan.h"
#include "trash/classify.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u32 default_cluster_size = 4096;

void report_failed_pull(const trash_options &options)
{
    print_error("prob calling pull_mft_data from %s\n", options.mft_file.c_str());
}

void classify_if_bins(trash_options &options)
{
    if (mark_bin_dirs(options) != 0) classify_records(options);
}

void write_rows(trash_options &options)
{
    process_entries(*options.results_stream, options.volume_offset, options);
}

void log_store_count(const trash_options &options, const char *pass)
{
    debug_log(options.log(), "%s parse finished: store_count: 0x%08llx", pass,
              static_cast<unsigned long long>(options.records.size()));
}

// Lets the disk read the $MFT as one flat range. Returns the range's length.
u64 attach_mft(const CNtfs &volume, RAW_DISK_IO &disk)
{
    // Hostile runs may claim more than the medium has.
    const u64 length = std::min(
        volume.get_mft_entry_count() * volume.get_mft_record_size(), disk.get_size());
    disk.attach_runs(volume.get_cluster_size(), volume.get_mft_runs(), length,
                     volume.get_volume_offset());
    return length;
}

// The passes that look for what the file system forgot. Their order is part of the
// output: the label of the last one stands in the rows of orphans. Each may bring
// folders that have no path yet.
void run_later_passes(CNtfs &volume, trash_options &options)
{
    // Real paths are far from using this up; hostile records may lose theirs.
    const auto max_text = [&options] {
        return (u64{16} << 20) + options.records.size() * 256;
    };
    if (options.include_vss) {
        mark_bin_dirs(options);
        scan_shadow_stores(volume, options);
        log_store_count(options, "vss");
        build_directory_paths(options, max_text());
    }
    if (options.include_unalloc) {
        mark_bin_dirs(options);
        scan_volume_extras(volume, options);
        log_store_count(options, "unalloc");
        build_directory_paths(options, max_text());
    }
}

} // namespace

void run_mft_file(trash_options &options)
{
    if (!pull_mft_data(options, options.mft_file)) {
        report_failed_pull(options);
        return;
    }
    classify_if_bins(options);
    write_rows(options);
}

void run_raw_image(trash_options &options)
{
    options.scan_label = "rawscan";
    if (options.progress) print_error("analyzing each cluster sequentially\n");
    if (options.cluster_size == 0) {
        CNtfs volume(options.image_path, options.volume_offset, volume_kind::path);
        options.cluster_size =
            volume.validate_volume() ? volume.get_cluster_size() : default_cluster_size;
    }
    run_raw_scan(options, options.image_path);
    classify_if_bins(options);
    write_rows(options);
}

void run_volume(trash_options &options, bool is_image)
{
    CNtfs volume(is_image ? options.image_path : options.partition_root,
                 is_image ? options.volume_offset : 0,
                 is_image ? volume_kind::path : volume_kind::letter_path);
    if (!volume.validate_volume()) return;
    options.cluster_size = volume.get_cluster_size();
    if (RAW_DISK_IO *disk = volume.get_disk()) {
        const u64 mft_size = attach_mft(volume, *disk);
        if (options.bins_known) find_recycle_bins(options, volume);
        if (!scan_mft_store(options, *disk, mft_size, volume.get_mft_record_size())) {
            report_failed_pull(options);
            return;
        }
        log_store_count(options, "MFT");
        options.mftscan = false;
        options.keep_parsed = true;
        run_later_passes(volume, options);
    }
    classify_if_bins(options);
    if (is_image)
        debug_log(options.log(), "# of m_r_indexes: %d",
                  static_cast<int>(options.m_r_indexes.size()));
    write_rows(options);
}

} // namespace hv

#include "scan/mft_scan.h"

#include "base/hv_console.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "scan/bin_filter.h"
#include "scan/directory_paths.h"
#include "scan/mft_walk.h"

#include <algorithm>

namespace hv {

namespace {

// Walks over all records, keeps what the filter keeps, and builds the paths of the
// directories.
bool scan(_trash_inodes &collection, const scan_source &source,
          const parse_options &parse, const content_source &content, bool show_progress)
{
    u64 load_budget = source.disk.get_stored_size();
    const record_visitor keep_wanted = [&](parsed_record &record, u64 position) {
        filter_decision decision = filter_record(collection, record);
        load_info2(decision, record, content, load_budget);
        if (decision.answer == filter_answer::keep)
            keep_record(collection, record, position, decision,
                        directory_claim::of_first_pass);
    };
    collection.directories.clear();
    if (scan_records(source, parse, keep_wanted, show_progress))
        build_directory_paths(
            collection,
            directory_text_budget(std::min(source.total_size, source.disk.get_size())));
    return !collection.bin_directories.empty();
}

// The progress line is drawn anew each time this many entries are done.
constexpr u64 entries_per_status = 53;

// The size of the $MFT as its own $DATA states it, but no more than the medium has.
u64 mft_size_of(const CNtfs &volume)
{
    mft_entry first;
    if (!mft_entries_ctx(volume).analyze_entry(first, mft_entry_number)) return 0;
    for (const auto &[key, view] : first.attributes) {
        if (!view.info.is(attribute_type::data)) continue;
        const u64 stated = view.info.non_resident ? view.info.allocated_size
                                                  : view.info.content.size();
        return std::min(stated, volume.get_disk()->get_size());
    }
    return 0;
}

} // namespace

bool pull_mft_data(_trash_inodes &collection, std::string_view path,
                   const run_options &options)
{
    if (path.empty()) return false;
    const RAW_DISK_IO disk(path);
    if (!disk.is_open()) return false;
    const scan_source source{.disk = disk,
                             .total_size = disk.get_size(),
                             .cluster_size = options.cluster_size};
    const parse_options parse{.named_streams = true, .runs = false, .target_name = {}};
    return scan(collection, source, parse, {}, options.progress);
}

bool scan_mft_store(_trash_inodes &collection, const mft_on_volume &mft,
                    const run_options &options)
{
    if (!mft.disk.is_open()) return false;
    const scan_source source{.disk = mft.disk,
                             .mapped = true,
                             .total_size = mft.size,
                             .cluster_size = mft.cluster_size,
                             .record_size = mft.record_size};
    const parse_options parse{
        .named_streams = true, .runs = true, .target_name = "info2"};
    // A raw scan leaves the content to the carver.
    const content_source content{options.rawscan ? nullptr : &mft.disk,
                                 mft.cluster_size};
    return scan(collection, source, parse, content, options.progress);
}

bool scan_mft_entries(const CNtfs &volume, const scan_callback &callback,
                      u64 first_entry, u64 count, trash_options &context)
{
    const mft_entries_ctx entries(volume, context.options.log());
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
        if (context.options.progress && entry % entries_per_status == 0)
            status_line("analyzing entry %lld of %lld", static_cast<long long>(entry),
                        static_cast<long long>(total));
        bool bad = false;
        if (!entries.read_entry(record, bad, entry) || record.empty()) continue;
        callback({&volume, &context, byte_view{record}, position, entry, false});
    }
    end_progress(context.options.progress);
    return true;
}

} // namespace hv

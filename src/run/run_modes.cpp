#include "run/run_modes.h"

#include "base/hv_portable_dir.h"
#include "base/hv_text_convert.h"
#include "run/file_list.h"
#include "run/process_entries.h"
#include "run/volume_modes.h"
#include "trash/classify.h"
#include "trash/register_file.h"

#include <cstdio>

namespace hv {

namespace {

constexpr unsigned bin_walk_depth = 20;

// Ends a mode that reads files: what was collected is sorted, paired and written.
void finish_run(_trash_inodes &collection, const run_options &options,
                std::ostream &results, bool read_file_content = false)
{
    classify_records(collection);
    process_entries(results, options.form,
                    {.log = options.log(),
                     .volume_offset = options.volume_offset,
                     .read_file_content = read_file_content},
                    collection);
}

void run_mounted_bin(const mounted_bin &bin, const run_options &options,
                     std::ostream &results)
{
    _trash_inodes collection;
    collection.scan_label = "enum recycle dir";
    hvportdir::enumerate_dir(
        bin.recycle_dir, options.filter_list, bin_walk_depth, options.log(),
        [&](std::wstring_view path, bool is_directory) {
            add_file_path(path, is_directory, &collection, options.log());
        });
    finish_run(collection, options, results);
}

void run_single_file(const std::string &file, const run_options &options,
                     std::ostream &results)
{
    _trash_inodes collection;
    collection.current_source = file;
    add_file_path(uni::to_wide(file), false, &collection, options.log());
    constexpr bool read_file_content = true;
    finish_run(collection, options, results, read_file_content);
}

void run_file_list(const run_options &options, std::ostream &results)
{
    _trash_inodes collection;
    // The label says how the work began, with a list or a walk alike.
    collection.scan_label = "files from stdin";
    if (register_list(collection, options, stdin))
        finish_run(collection, options, results);
}

} // namespace

run_mode choose_run_mode(const run_options &options, arg_list &args, run_input &input)
{
    if (options.mftscan && !options.mft_file.empty()) return run_mode::mft_file;
    if (options.rawscan && !options.image_path.empty()) return run_mode::raw_image;
    if (!input.bin.recycle_dir.empty())
        return options.mftscan ? run_mode::volume_partition : run_mode::mounted_bin;
    if (!options.image_path.empty() && !options.rawscan) return run_mode::volume_image;
    if (take_value(args, "-file", input.file)) return run_mode::single_file;
    if (options.pipe || options.enumdir) return run_mode::file_list;
    return run_mode::nothing;
}

void execute_run_mode(run_mode mode, const run_input &input, const run_options &options,
                      std::ostream &results)
{
    switch (mode) {
    case run_mode::mounted_bin: run_mounted_bin(input.bin, options, results); break;
    case run_mode::single_file: run_single_file(input.file, options, results); break;
    case run_mode::file_list: run_file_list(options, results); break;
    case run_mode::mft_file: run_mft_file(options, results); break;
    case run_mode::volume_partition:
        run_volume(volume_origin::partition, options, results);
        break;
    case run_mode::volume_image:
        run_volume(volume_origin::image, options, results);
        break;
    case run_mode::raw_image: run_raw_image(options, results); break;
    case run_mode::nothing: break;
    }
}

} // namespace hv

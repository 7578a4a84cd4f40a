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

// Every mode ends here: what was collected is sorted, paired and written.
void finish_run(trash_options &options)
{
    classify_records(options);
    process_entries(*options.results_stream, options.volume_offset, options);
}

void run_mounted_bin(trash_options &options)
{
    options.scan_label = "enum recycle dir";
    hvportdir::enumerate_dir(
        options.recycle_dir, options.filter_list, bin_walk_depth, options.log(),
        [&options](std::wstring_view path, bool is_directory) {
            add_file_path(path, is_directory, &options, options.log());
        });
    finish_run(options);
}

void run_single_file(const std::string &file, trash_options &options)
{
    options.read_file_content = true;
    options.current_source = file;
    add_file_path(uni::to_wide(file), false, &options, options.log());
    finish_run(options);
}

void run_file_list(trash_options &options)
{
    // Says where the work began, not whether standard input or a walk fed it.
    options.scan_label = "files from stdin";
    if (register_list(options, stdin)) finish_run(options);
}

} // namespace

run_mode choose_run_mode(const trash_options &options, arg_list &args,
                         std::string &file)
{
    if (options.mftscan && !options.mft_file.empty()) return run_mode::mft_file;
    if (options.rawscan && !options.image_path.empty()) return run_mode::raw_image;
    if (!options.recycle_dir.empty())
        return options.mftscan ? run_mode::volume_partition : run_mode::mounted_bin;
    if (!options.image_path.empty() && !options.rawscan) return run_mode::volume_image;
    if (take_value(args, "-file", file)) return run_mode::single_file;
    if (options.pipe || options.enumdir) return run_mode::file_list;
    return run_mode::nothing;
}

void execute_run_mode(run_mode mode, const std::string &file, trash_options &options)
{
    if (mode != run_mode::volume_partition && mode != run_mode::volume_image)
        options.bins_known = false;
    switch (mode) {
    case run_mode::mounted_bin: run_mounted_bin(options); break;
    case run_mode::single_file: run_single_file(file, options); break;
    case run_mode::file_list: run_file_list(options); break;
    case run_mode::mft_file: run_mft_file(options); break;
    case run_mode::volume_partition: run_volume(options, false); break;
    case run_mode::volume_image: run_volume(options, true); break;
    case run_mode::raw_image: run_raw_image(options); break;
    case run_mode::nothing: break;
    }
}

} // namespace hv

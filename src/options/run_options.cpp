#include "options/run_options.h"

#include "base/hv_portable_dir.h"
#include "base/hv_string.h"

#include <cstdio>

namespace hv {

namespace {

constexpr u32 sector_size = 512;

// A volume path such as "\\?\Volume{...}\" is taken as it is; a drive letter gets its
// colon.
std::string normalised_root(const std::string &value)
{
    if (value.starts_with("\\\\")) return value.ends_with('\\') ? value : value + '\\';
    if (value.size() > 1 && value[1] == ':') return value.substr(0, 2) + '\\';
    return value.substr(0, 1) + ":\\";
}

bool is_cluster_size(u32 size)
{
    return size != 0 && size % sector_size == 0 && (size & (size - 1)) == 0;
}

// The cluster size belongs to the raw scan: without that it isn't even read.
bool read_rawscan(run_options &options, arg_list &args)
{
    options.rawscan = take_flag(args, "-rawscan");
    std::string value;
    if (!options.rawscan || !take_value(args, "-cluster_size", value)) return true;
    parse_u32(value, options.cluster_size);
    options.cluster_size_set = is_cluster_size(options.cluster_size);
    if (!options.cluster_size_set)
        std::fprintf(stderr, "invalid size [%d]\n",
                     static_cast<i32>(options.cluster_size));
    return options.cluster_size_set;
}

void read_scan_options(run_options &options, arg_list &args)
{
    if (take_flag(args, "-mftscan")) options.mftscan = true;
    options.include_unalloc = take_flag(args, "-include_unalloc_clusters");
    options.include_vss = take_flag(args, "-include_vss_clusters");
    if (!options.include_unalloc && !options.include_vss) return;
    options.mftscan = true;
    options.look_up_bins = true;
}

bool read_partition(run_options &options, arg_list &args)
{
    std::string value;
    if (!take_value(args, "-partition", value)) return true;
    if (value.empty()) return false;
    options.partition_root = normalised_root(value);
    options.partition = true;
    if (options.mftscan) options.look_up_bins = true;
    return true;
}

// A partition wins over an image, which then isn't read at all.
bool read_image(run_options &options, arg_list &args)
{
    std::string value;
    if (options.partition || !take_value(args, "-image", value)) return true;
    if (!hvportdir::path_exists(value)) {
        debug_log(options.log(), "err: %s: no such file or device", value.c_str());
        return false;
    }
    options.image_path = value;
    if (take_value(args, "-offset", value)) parse_u64(value, options.volume_offset);
    options.look_up_bins = true;
    options.image = true;
    return true;
}

} // namespace

parse_result parse_trash_options(run_options &options, arg_list &args,
                                 std::string_view version_text,
                                 evidence_test is_evidence)
{
    // Looked for before any option takes its value: it counts for the padding of `-csv`
    // wherever it is on the command line.
    const bool no_whitespace = find_flag(args, "-no_whitespace", 1);
    if (!generic_parse(options, args, is_evidence)) return parse_result::show_usage;
    // The plain CSV form keeps its blanks and its padding, unless the user asked for
    // none.
    output_form &form = options.form;
    const bool blanks = form.kind == form_kind::csv && !no_whitespace;
    form.space_after_separator = blanks;
    if (blanks) form.no_padding = false;
    form.tool_tag = "TRASH";
    options.version_text = version_text;
    if (!read_rawscan(options, args)) return parse_result::end_process;
    read_scan_options(options, args);
    if (!read_partition(options, args) || !read_image(options, args))
        return parse_result::show_usage;
    if (take_value(args, "-mftfile", options.mft_file)) {
        options.look_up_bins = false;
        options.mftscan = true;
    }
    if (take_flag(args, "-no_mirel")) options.look_up_bins = false;
    return parse_result::good;
}

} // namespace hv

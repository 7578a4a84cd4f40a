#include "run/file_list.h"

#include "base/hv_filter.h"
#include "base/hv_text_convert.h"
#include "trash/register_file.h"

namespace hvportdir {

void stdin_stream_ex::start_walk(std::string_view root, hv::u32 max_depth)
{
    m_max_depth = max_depth;
    m_active = true;
    m_pending_dirs.push_back({{std::string(root), true, false}, 0});
}

bool stdin_stream_ex::next_path(std::string &path)
{
    return m_active ? next_walk_path(path) : read_line(path, true);
}

bool stdin_stream_ex::next_walk_path(std::string &path)
{
    while (m_pending_files.empty()) {
        if (m_pending_dirs.empty()) return false;
        const pending_dir directory = std::move(m_pending_dirs.back());
        m_pending_dirs.pop_back();
        if (directory.depth > m_max_depth || !m_links.may_enter(directory.item))
            continue;
        list_dir(directory.item.path, m_walk_entries);
        for (dir_item &item : m_walk_entries) {
            if (item.is_directory)
                m_pending_dirs.push_back({std::move(item), directory.depth + 1});
            else
                m_pending_files.push_back(std::move(item.path));
        }
    }
    path = std::move(m_pending_files.back());
    m_pending_files.pop_back();
    return true;
}

} // namespace hvportdir

namespace hv {

namespace {

// A walk knows each file's times; of a name on a list nothing is known but the name.
bool is_in_window(const run_options &options, const std::string &path)
{
    if (!options.window.any()) return true;
    hvportdir::file_status status;
    return hvportdir::file_status_times(status, path) &&
           options.window.holds(status.filter_times());
}

bool is_wanted(const run_options &options, const std::string &path,
               const std::wstring &wide, bool is_walk)
{
    if (wide.empty() || !filter_passes_wide(wide, options.filter_list)) return false;
    if (!options.skip_list.empty() && filter_passes_wide(wide, options.skip_list))
        return false;
    return !is_walk || is_in_window(options, path);
}

} // namespace

bool register_list(_trash_inodes &collection, const run_options &options,
                   std::FILE *list)
{
    hvportdir::stdin_stream_ex stream(list);
    if (!options.pipe) {
        if (options.enumdir_path.empty()) return false;
        const std::wstring root =
            hvportdir::strip_long_path_prefix(uni::to_wide(options.enumdir_path));
        stream.start_walk(root.empty() ? options.enumdir_path : uni::to_utf8(root),
                          options.num_subdirs);
    }
    std::string path;
    while (stream.next_path(path)) {
        if (path.empty()) continue;
        const std::wstring wide = uni::to_wide(path);
        if (is_wanted(options, path, wide, stream.is_walk())) {
            collection.current_source = path;
            add_file_path(wide, false, &collection, options.log());
        } else {
            debug_log(options.log(), "skipping pipe: %s", path.c_str());
        }
    }
    return true;
}

} // namespace hv

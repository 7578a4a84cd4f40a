#pragma once

#include "base/hv_filter.h"
#include "base/hv_log.h"
#include "base/hv_types.h"

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Directories of the running system: status, listings and walks.
namespace hvportdir {

/// True if the path names something whose status can be read: a file, a directory, a
/// device. Links are followed. False for an empty path.
bool path_exists(std::string_view path);

/// The status of a path. Times are in seconds since 1970, the size is in bytes.
struct file_status {
    hv::u32 mode = 0;
    hv::i64 modified = 0;
    hv::i64 accessed = 0;
    hv::i64 changed = 0;
    hv::u64 size = 0;
    bool is_directory = false;

    hv::file_times filter_times() const;
};

/// Fills `result`, following links. False if the status can't be read.
bool file_status_times(file_status &result, std::string_view path);

/// One entry of a directory listing.
struct dir_item {
    std::string path; ///< as the system spells it, which may not be UTF-8
    bool is_directory = false;
    bool is_link = false;
};

/// Fills `items` with the content of a directory, without "." and "..", in the order of
/// the system. False, with `errno` set, if the directory can't be opened or not be read
/// to its end; `items` then holds what was read.
bool list_dir(std::string_view directory, std::vector<dir_item> &items);

/// Keeps a walk from going around in circles: a directory is entered through a link
/// only once, and always where it is no link.
class link_guard {
public:
    bool may_enter(const dir_item &directory);

private:
    std::set<std::pair<hv::u64, hv::u64>> m_entered; ///< device and inode
};

/// The path without a prefix "\\?\", unless the prefix is that of the global root.
std::wstring strip_long_path_prefix(std::wstring_view path);

/// What a walk calls for each directory and file: the path and whether it is a
/// directory.
using walk_callback = std::function<void(std::wstring_view path, bool is_directory)>;

/// Walks a tree level by level, `depth` levels deep, and calls `callback` for
/// everything that passes `filter`. `root` may hold %NAME% variables. A name that isn't
/// UTF-8 is logged and skipped; what can't be read is skipped.
void enumerate_dir(std::string_view root, const std::vector<hv::filter_item> &filter,
                   unsigned depth, hv::log_handle log, const walk_callback &callback);

} // namespace hvportdir

#include "base/hv_portable_dir.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace hvportdir {

namespace {

constexpr std::wstring_view long_path_prefix = L"\\\\?\\";

struct dir_closer {
    void operator()(DIR *directory) const { closedir(directory); }
};
using dir_handle = std::unique_ptr<DIR, dir_closer>;

// Opens a directory, without changing its access time where the system allows that.
dir_handle open_directory(const std::string &path)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    int descriptor = ::open(path.c_str(), flags | O_NOATIME);
    if (descriptor < 0 && errno == EPERM) descriptor = ::open(path.c_str(), flags);
    if (descriptor < 0) return nullptr;
    DIR *directory = fdopendir(descriptor);
    if (directory == nullptr) ::close(descriptor);
    return dir_handle(directory);
}

bool status_of(const std::string &path, struct stat &status)
{
    return stat(path.c_str(), &status) == 0;
}

// Most file systems tell the type in the listing; only for others the status is asked.
void set_type(dir_item &item, unsigned char listed_type)
{
    struct stat status {};
    if (listed_type == DT_UNKNOWN) {
        if (lstat(item.path.c_str(), &status) != 0) return;
        item.is_link = S_ISLNK(status.st_mode);
        item.is_directory = S_ISDIR(status.st_mode);
    } else {
        item.is_link = listed_type == DT_LNK;
        item.is_directory = listed_type == DT_DIR;
    }
    if (item.is_link)
        item.is_directory = status_of(item.path, status) && S_ISDIR(status.st_mode);
}

// Calls back for a path, if it passes the filter.
void report(const std::string &path, bool is_directory,
            const std::vector<hv::filter_item> &filter, hv::log_handle log,
            const walk_callback &callback)
{
    const std::wstring wide = uni::to_wide(path);
    if (!wide.empty() && hv::filter_passes_wide(wide, filter))
        callback(strip_long_path_prefix(wide), is_directory);
    else if (wide.empty())
        hv::debug_log(log, "skipping pipe: %s", path.c_str());
}

} // namespace

bool path_exists(std::string_view path)
{
    struct stat status {};
    return !path.empty() && status_of(std::string(path), status);
}

hv::file_times file_status::filter_times() const
{
    return {hv::unix_to_filetime(modified), hv::unix_to_filetime(changed)};
}

bool file_status_times(file_status &result, std::string_view path)
{
    struct stat status {};
    result = {};
    if (!status_of(std::string(path), status)) return false;
    result.mode = status.st_mode;
    result.modified = status.st_mtim.tv_sec;
    result.accessed = status.st_atim.tv_sec;
    result.changed = status.st_ctim.tv_sec;
    result.size = static_cast<hv::u64>(status.st_size);
    result.is_directory = S_ISDIR(status.st_mode);
    return true;
}

bool list_dir(std::string_view directory, std::vector<dir_item> &items)
{
    items.clear();
    std::string prefix(directory);
    const dir_handle handle = open_directory(prefix);
    if (!handle) return false;
    if (!hv::ends_in_separator(prefix)) prefix += '/';
    const dirent *entry = nullptr;
    const auto read_next = [&] {
        errno = 0; // the end of the directory leaves it so
        entry = readdir(handle.get());
        return entry != nullptr;
    };
    while (read_next()) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        dir_item item;
        item.path.reserve(prefix.size() + name.size());
        item.path.append(prefix).append(name);
        set_type(item, entry->d_type);
        items.push_back(std::move(item));
    }
    return errno == 0;
}

bool link_guard::may_enter(const dir_item &directory)
{
    if (!directory.is_link) return true;
    struct stat status {};
    return status_of(directory.path, status) &&
           m_entered.emplace(status.st_dev, status.st_ino).second;
}

std::wstring strip_long_path_prefix(std::wstring_view path)
{
    constexpr std::wstring_view global = L"global";
    if (path.size() <= long_path_prefix.size() || !path.starts_with(long_path_prefix))
        return std::wstring(path);
    std::wstring rest(path.substr(long_path_prefix.size()));
    std::wstring start = rest.substr(0, global.size());
    hv::to_lower(start);
    return start == global ? std::wstring(path) : rest;
}

void enumerate_dir(std::string_view root, const std::vector<hv::filter_item> &filter,
                   unsigned depth, hv::log_handle log, const walk_callback &callback)
{
    std::vector<std::string> this_level{hv::expand_variables(root, true)};
    std::vector<dir_item> items;
    link_guard guard;
    for (unsigned level = 0; level < depth && !this_level.empty(); ++level) {
        std::vector<std::string> next_level;
        for (; !this_level.empty(); this_level.pop_back()) {
            const std::string &directory = this_level.back();
            report(directory, true, filter, log, callback);
            list_dir(directory, items);
            for (dir_item &item : items) {
                if (!item.is_directory)
                    report(item.path, false, filter, log, callback);
                else if (guard.may_enter(item))
                    next_level.push_back(std::move(item.path));
            }
        }
        this_level.swap(next_level);
    }
}

} // namespace hvportdir

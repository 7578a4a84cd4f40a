#include "trash/register_file.h"

#include "base/hv_fileio.h"
#include "base/hv_portable_dir.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time.h"
#include "trash/deleted_records.h"

#include <algorithm>

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;

// A first read that tells the formats apart and holds every `$I` whole.
constexpr u64 metadata_head_size = 0x8000;

// No `INFO2` comes near this: it would be the record of a million files. Without a
// limit a sparse file of a few bytes on disk could take all memory.
constexpr u64 max_metadata = u64{1} << 30;

enum class file_role { root, metadata, data, none };

// The first directory met inside the bin is its root: the bin's name has to stand
// above.
bool is_bin_root(_trash_inodes &collection, std::string_view directory)
{
    const std::string lower = lower_copy(directory);
    for (const std::string_view bin_name : {"$recycle.bin", "recycler"}) {
        const std::size_t at = lower.find(bin_name);
        if (at == npos) continue;
        collection.bin_tail_position = static_cast<u32>(at + bin_name.size());
        return true;
    }
    return false;
}

file_role role_of(_trash_inodes &collection, std::string_view path,
                  std::string_view directory, std::string_view name, bool is_directory)
{
    if (is_directory && collection.bin_root_index == no_index &&
        is_bin_root(collection, directory))
        return file_role::root;
    if (name.starts_with("$I") || name.find("INFO2") != npos)
        return file_role::metadata;
    if (path.find("$R", collection.bin_tail_position) != npos) return file_role::data;
    return file_role::none;
}

// Files a `$R...` item, or what lies below one, under the item's name. On this road the
// name needs the user's folder above it, so that the "$R" of the bin's own name is not
// taken for an item.
void register_data(_trash_inodes &collection, std::string_view path, u64 index)
{
    const std::size_t sid = find_user_sid(path);
    if (sid == npos) return;
    const std::size_t item = path.find("$R", sid + 1);
    if (item == npos) return;
    const std::size_t end = next_separator_or_end(path, item);
    collection.index_data_file(path.substr(item, end - item), index);

    hvportdir::file_status status;
    if (!hvportdir::file_status_times(status, path)) return;
    inode_record &record = collection.records[index];
    record.si_accessed = unix_to_filetime(status.accessed);
    record.si_modified = unix_to_filetime(status.modified);
    record.si_created = unix_to_filetime(status.changed);
    record.real_size = status.size;
}

} // namespace

std::size_t find_user_sid(std::string_view path)
{
    const std::size_t at = path.find("S-1-5-");
    return at != npos ? at : path.find("S-1-12-1-");
}

std::vector<u8> read_metadata_file(std::string_view path)
{
    std::vector<u8> data;
    uni::fileio file;
    if (!file.open(path, uni::open_mode::read)) return data;
    if (!file.read_vector(data, metadata_head_size, 0)) return {};
    const u64 useful = std::min(useful_metadata_size(byte_view{data}), max_metadata);
    if (data.size() > useful) {
        data.resize(useful);
        data.shrink_to_fit();
    } else if (data.size() == metadata_head_size && useful > metadata_head_size) {
        file.read_vector(data, useful, 0);
    }
    return data;
}

u64 register_file(_trash_inodes &collection, std::string_view path, bool is_directory)
{
    std::string directory;
    std::string name;
    if (!split_path(path, directory, name)) return no_index;
    const file_role role = role_of(collection, path, directory, name, is_directory);
    if (role == file_role::none) return no_index;

    const u64 index = collection.records.add();
    inode_record &record = collection.records[index];
    record.path_resolved = true;
    record.path_complete = true;
    record.is_directory = is_directory;
    collection.records.set_path(index, path);
    collection.records.set_name(index, is_directory ? "." : name);
    if (role == file_role::root) {
        collection.bin_root_index = index;
    } else if (role == file_role::metadata) {
        collection.metadata_index.emplace_hint(collection.metadata_index.end(),
                                               no_index, index);
        collection.records.extras(index).data = read_metadata_file(path);
    } else {
        register_data(collection, path, index);
    }
    if (is_directory) collection.bin_directories.emplace(no_index, index);
    return index;
}

bool add_file_path(std::wstring_view path, bool is_directory, _trash_inodes *collection,
                   log_handle log)
{
    if (collection == nullptr) return true;
    const std::string narrow = uni::to_utf8(path);
    debug_log(log, "file: %s", narrow.c_str());
    register_file(*collection, narrow, is_directory);
    return true;
}

} // namespace hv

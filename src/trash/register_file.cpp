#include "trash/register_file.h"

#include "base/hv_fileio.h"
#include "base/hv_portable_dir.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time.h"
#include "trash/bin_names.h"
#include "trash/deleted_records.h"

#include <algorithm>

namespace hv {

namespace {

// The first read is long enough to tell the formats apart, and for every whole `$I`.
constexpr u64 metadata_head_size = 0x8000;

// An `INFO2` of this size would list a million files. Without a limit, a sparse file of
// a few bytes on disk could take all memory.
constexpr u64 max_metadata = u64{1} << 30;

enum class file_role { root, metadata, data, none };

// The first directory inside a bin is registered as the bin's root: the bin's name has
// to be in the path of its folder.
bool is_bin_root(_trash_inodes &collection, std::string_view directory)
{
    const std::size_t end = bin_name_end(directory);
    if (end == std::string_view::npos) return false;
    collection.bin_tail_position = static_cast<u32>(end);
    return true;
}

file_role role_of(_trash_inodes &collection, std::string_view path,
                  std::string_view directory, std::string_view name, bool is_directory)
{
    if (is_directory && collection.bin_root_index == no_index &&
        is_bin_root(collection, directory))
        return file_role::root;
    if (is_metadata_file_name(name)) return file_role::metadata;
    // The "$R" of the bin's own name doesn't count, once the bin is known.
    if (path.find("$R", collection.bin_tail_position) != std::string_view::npos)
        return file_role::data;
    return file_role::none;
}

// Files a `$R...` item, or what is below one, under the item's name.
void register_data(_trash_inodes &collection, std::string_view path, u64 index)
{
    const std::string_view item = item_after_user(path);
    if (item.empty()) return;
    collection.index_data_file(item, index);

    hvportdir::file_status status;
    if (!hvportdir::file_status_times(status, path)) return;
    inode_record &record = collection.records.edit(index);
    record.si_accessed = unix_to_filetime(status.accessed);
    record.si_modified = unix_to_filetime(status.modified);
    record.si_created = unix_to_filetime(status.changed);
    record.real_size = status.size;
}

} // namespace

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
    inode_record &record = collection.records.edit(index);
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

#include "trash/classify.h"

#include "trash/bin_names.h"

#include <optional>

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;

// The bin of the volume, as the paths of its records name it.
struct known_bin {
    std::string text; ///< "\" and the bin's name
    bool old_layout = false;
};

std::optional<known_bin> bin_of(const _trash_inodes &collection)
{
    if (collection.bin_directories.empty() || collection.bin_root_index == no_index)
        return std::nullopt;
    const std::string_view name = collection.records.name(collection.bin_root_index);
    return known_bin{"\\" + std::string(name), is_old_bin_name(name)};
}

void index_metadata(_trash_inodes &collection, u64 index)
{
    collection.metadata_index.emplace(collection.records[index].entry, index);
}

// The path of a record or, where it has none, the one below the folder of an entry
// number. False if that isn't known.
bool find_path(const _trash_inodes &collection, u64 index, u64 entry, std::string &path)
{
    const inode_store &records = collection.records;
    path = records.path(index);
    if (!path.empty()) return true;
    auto parent = collection.bin_directories.find(entry);
    if (parent == collection.bin_directories.end()) {
        parent = collection.directories.find(entry);
        if (parent == collection.directories.end()) return false;
    }
    path = path_below(records.path(parent->second), records.name(index),
                      path_join::backslash);
    return true;
}

// Files one record. False if it is neither a metadata file nor a data item of the bin.
bool classify_record(_trash_inodes &collection, u64 index, const known_bin &bin)
{
    inode_store &records = collection.records;
    const std::string_view name = records.name(index);
    const u64 parent = records[index].first_parent;
    if (parent == no_index || name.size() < min_name) return false;
    if (is_metadata_record_name(name)) {
        index_metadata(collection, index);
        return true;
    }
    std::string path;
    if (!find_path(collection, index, parent, path)) return false;
    const std::string_view item = item_in_path(path, bin.text, bin.old_layout);
    if (item.empty()) return false;
    // Only what a row may show keeps its path.
    if (records.path(index).empty()) records.set_path(index, path);
    collection.index_data_file(item, index);
    return true;
}

} // namespace

std::size_t mark_bin_dirs(_trash_inodes &collection)
{
    const inode_store &records = collection.records;
    if (collection.bin_root_index == no_index) return collection.bin_directories.size();
    const std::string text =
        "\\" + std::string(records.name(collection.bin_root_index));
    for (u64 index = 0; index < records.size(); ++index)
        if (records[index].is_directory && records.path(index).find(text) != npos)
            collection.bin_directories.emplace(records[index].entry, index);
    return collection.bin_directories.size();
}

void classify_records(_trash_inodes &collection)
{
    const inode_store &records = collection.records;
    const std::optional<known_bin> bin = bin_of(collection);
    for (u64 index = 0; index < records.size(); ++index) {
        if (bin)
            classify_record(collection, index, *bin);
        else if (records[index].has_parents() &&
                 is_metadata_record_name(records.name(index)))
            index_metadata(collection, index);
    }
}

} // namespace hv

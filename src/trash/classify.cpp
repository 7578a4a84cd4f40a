#include "trash/classify.h"

#include "base/hv_string.h"

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view info2_name = "INFO2";

// A shorter "$I..." is no name that Windows gives: "$I", six characters, an extension.
constexpr std::size_t min_dollar_i_name = 8;
constexpr std::size_t min_name = 2;

bool is_metadata_name(std::string_view name)
{
    return name == info2_name ||
           (name.size() >= min_dollar_i_name && name.starts_with("$I"));
}

void file_metadata(_trash_inodes &collection, u64 index)
{
    collection.metadata_index.emplace(collection.records[index].entry, index);
}

bool has_bin(const _trash_inodes &collection)
{
    return !collection.bin_directories.empty() && collection.bin_root_index != no_index;
}

// The path of a record or, where it has none, the one under its first parent. False if
// the parent isn't known.
bool find_path(const _trash_inodes &collection, u64 index, std::string &path)
{
    const inode_store &records = collection.records;
    path = records.path(index);
    if (!path.empty()) return true;
    const u64 entry = records[index].first_parent;
    auto parent = collection.bin_directories.find(entry);
    if (parent == collection.bin_directories.end()) {
        parent = collection.directories.find(entry);
        if (parent == collection.directories.end()) return false;
    }
    path = records.path(parent->second);
    if (!path.ends_with('\\')) path += '\\';
    path += records.name(index);
    return true;
}

// The name of the data item that a path leads to or through; empty if it leads to none.
std::string_view item_in_path(const _trash_inodes &collection, std::string_view path)
{
    const std::size_t bin = path.find(collection.bin_text);
    if (bin == npos) return {};
    // Under "RECYCLER" a data file is only a name that begins with "D": any later
    // component that does is taken for one.
    const std::size_t item =
        path.find(collection.recycler_layout ? "\\D" : "\\$R", bin + 1);
    if (item == npos) return {};
    const std::size_t end = next_separator_or_end(path, item + 1);
    return path.substr(item + 1, end - item - 1);
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
    const bool bin_known = has_bin(collection);
    for (u64 index = 0; index < records.size(); ++index) {
        if (bin_known)
            classify_record(collection, index);
        else if (records[index].has_parents() && is_metadata_name(records.name(index)))
            file_metadata(collection, index);
    }
}

bool classify_record(_trash_inodes &collection, u64 index)
{
    const inode_store &records = collection.records;
    if (collection.bin_text.empty()) {
        if (!has_bin(collection)) return false;
        const std::string_view bin_name = records.name(collection.bin_root_index);
        collection.bin_text = "\\" + std::string(bin_name);
        collection.recycler_layout = bin_name.starts_with('R');
    }
    const std::string_view name = records.name(index);
    if (!records[index].has_parents() || name.size() < min_name) return false;
    if (is_metadata_name(name)) {
        file_metadata(collection, index);
        return true;
    }
    std::string path;
    if (!find_path(collection, index, path)) return false;
    const std::string_view item = item_in_path(collection, path);
    if (item.empty()) return false;
    // Only what a row may show keeps its path.
    if (records.path(index).empty()) collection.records.set_path(index, path);
    collection.index_data_file(item, index);
    return true;
}

} // namespace hv

#include "trash/resolve.h"

#include "base/hv_fileio.h"
#include "base/hv_string.h"
#include "trash/bin_names.h"
#include "trash/deleted_records.h"

#include <utility>

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;

// How much of a metadata file a parser reads when the file's own record gave nothing.
constexpr u64 late_read_size = 32768;

// ---- Pairing

// `deleted_path`, followed by what comes after the item's name in `path`;
// `deleted_path` alone for the item itself, or where `path` doesn't hold the name.
std::string restored_path_for(const trash_entry &entry, std::string_view key,
                              std::string_view path, std::string_view name_below)
{
    const std::size_t at = lower_copy(path).find(key);
    const std::size_t end = at + key.size();
    if (at == npos || end >= path.size()) return entry.deleted_path;
    return entry.deleted_path + std::string(path.substr(end)) + std::string(name_below);
}

// Sets the path of one data item, and of the entry the path to print for it. False if
// the item has to be skipped.
bool place_data_item(_trash_inodes &collection, trash_entry &entry,
                     std::string_view key, u64 item)
{
    inode_store &records = collection.records;
    const std::string_view name = records.name(item);
    entry.restored_path.clear();
    if (name.empty()) return false;
    if (!records.path(item).empty() || !records[item].has_parents()) {
        entry.restored_path = restored_path_for(entry, key, records.path(item), {});
        return true;
    }
    if (collection.directories.empty()) return false;
    const auto parent = collection.directories.find(records[item].first_parent);
    if (parent == collection.directories.end()) return true;
    const std::string_view parent_path = records.path(parent->second);
    entry.restored_path = restored_path_for(entry, key, parent_path, name);
    records.set_path(item, path_below(parent_path, name, path_join::as_is));
    return true;
}

enum class pairing { paired, alone };

// Makes the rows of one entry: one for each data item under its name, or one for
// itself. The first entry that asks for a name gets all its items.
pairing pair_entry(_trash_inodes &collection, const std::string &row_key,
                   trash_entry entry, const data_file_keys &keys)
{
    entry.has_data_file = false;
    auto found = collection.m_r_indexes.find(keys.key);
    std::string_view key = keys.key;
    if (found == collection.m_r_indexes.end()) {
        found = collection.m_r_indexes.find(keys.second_key);
        key = keys.second_key;
    }
    if (found == collection.m_r_indexes.end()) {
        collection.results.add(row_key, std::move(entry));
        return pairing::alone;
    }
    for (const u64 item : found->second) {
        if (!place_data_item(collection, entry, key, item)) continue;
        entry.has_data_file = true;
        entry.data_record = item;
        collection.results.add(row_key, entry);
    }
    // Items that can't be placed must not cost the metadata its row.
    if (!entry.has_data_file) collection.results.add(row_key, std::move(entry));
    collection.m_r_indexes.erase(found);
    return pairing::paired;
}

// The last two components of a path and the name of the directory among them. False for
// a path without two separators.
bool split_tail(std::string_view path, std::string_view &tail,
                std::string_view &directory)
{
    const std::size_t last = last_separator(path);
    if (last == npos) return false;
    const std::size_t before = last_separator(path.substr(0, last));
    if (before == npos) return false;
    tail = path.substr(before + 1);
    directory = path.substr(before + 1, last - before - 1);
    return true;
}

// ---- Metadata records

// Gives a metadata record without a path the one below its first parent. False if no
// folder is known at all.
bool complete_metadata_path(_trash_inodes &collection, u64 index)
{
    inode_store &records = collection.records;
    if (!records.path(index).empty() || !records[index].has_parents()) return true;
    if (collection.directories.empty()) return false;
    const auto parent = collection.directories.find(records[index].first_parent);
    if (parent == collection.directories.end()) return true;
    records.set_path(index, path_below(records.path(parent->second),
                                       records.name(index), path_join::or_top));
    return true;
}

bool is_at_run(const trash_entry &carved, const flat_run &run,
               const resolve_request &request)
{
    // Hostile run lists may wrap here; they then only fail to match.
    const u64 position = run.lcn * request.cluster_size;
    return carved.source_offset == position ||
           carved.source_offset == position + request.volume_offset;
}

// An `INFO2` that carving found goes back to the record that owns its clusters. Only
// the first of the list is compared: carving and runs both ascend.
void adopt_carved_data(_trash_inodes &collection, u64 index,
                       const resolve_request &request)
{
    if (collection.carved_entries.empty()) return;
    if (!collection.records.extras_or_blank(index).data.empty()) return;
    const std::vector<flat_run> runs =
        collection.records.extras_or_blank(index).data_runs;
    for (const flat_run &run : runs) {
        if (collection.carved_entries.empty()) return;
        trash_entry &first = collection.carved_entries.front();
        if (first.raw_data.empty() || !is_at_run(first, run, request)) continue;
        collection.records.extras(index).data = std::move(first.raw_data);
        collection.carved_entries.erase(collection.carved_entries.begin());
    }
}

void log_problem(const resolve_request &request, std::string_view name)
{
    debug_log(request.log, "prob processing entry %s", std::string(name).c_str());
}

void process_metadata(_trash_inodes &collection, const resolve_request &request)
{
    for (const auto &[entry, index] : collection.metadata_index) {
        const std::string_view name = collection.records.name(index);
        if (name.size() < min_name) continue;
        adopt_carved_data(collection, index, request);
        if (!parse_metadata_record(collection, index, request))
            log_problem(request, name);
    }
}

void process_carved(_trash_inodes &collection, const resolve_request &request)
{
    for (const trash_entry &carved : collection.carved_entries) {
        if (carved.raw_data.empty()) continue;
        std::vector<trash_entry> parsed;
        parse_info2(parsed, byte_view{carved.raw_data}, {}, entry_origin::carved);
        for (trash_entry &entry : parsed) {
            const std::string path = entry.deleted_path;
            // Entries that found their data get the line too: it is no error.
            if (!resolve_carved_entry(collection, std::move(entry)))
                log_problem(request, path);
        }
    }
}

// ---- Data files without metadata

void complete_orphan_path(_trash_inodes &collection, u64 item)
{
    inode_store &records = collection.records;
    if (!records.path(item).empty() || !records[item].has_parents()) return;
    const auto parent = collection.directories.find(records[item].first_parent);
    if (parent == collection.directories.end()) return;
    records.set_path(item, path_below(records.path(parent->second), records.name(item),
                                      path_join::a_separator));
}

// What can be said of where an orphan was: the user from its path, and the path with
// the item's lost name marked. Returns the row's key.
std::string describe_orphan(trash_entry &entry, std::string_view path)
{
    const std::size_t sid = find_user_sid(path);
    if (sid == npos) return {};
    const std::size_t sid_end = next_separator_or_end(path, sid);
    entry.user_sid = path.substr(sid, sid_end - sid);
    if (sid_end == path.size()) {
        entry.restored_path = "<unk path - >";
        return entry.user_sid;
    }
    const std::size_t item_end = next_separator_or_end(path, sid_end + 1);
    entry.restored_path = "<unk path - ";
    entry.restored_path += path.substr(sid_end + 1, item_end - sid_end - 1);
    entry.restored_path += '>';
    if (item_end + 1 < path.size()) {
        entry.restored_path += '\\';
        entry.restored_path += path.substr(item_end + 1);
    }
    return std::string(path.substr(sid, item_end - sid));
}

void add_orphan(_trash_inodes &collection, u64 item, u32 version)
{
    complete_orphan_path(collection, item);
    const inode_record record = collection.records[item];
    trash_entry entry;
    entry.has_data_file = true;
    entry.deleted_path = collection.records.path(item);
    const std::string key = describe_orphan(entry, entry.deleted_path);
    entry.version = version;
    entry.data_record = item;
    // The nearest thing to the moment of the deletion.
    entry.deleted_time = record.si_mft_changed;
    entry.file_size = record.real_size;
    entry.source_offset = record.position;
    entry.other_info = collection.scan_label;
    collection.results.add(key, std::move(entry));
}

void process_orphans(_trash_inodes &collection)
{
    const trash_entry *first = collection.results.first();
    const u32 version = first != nullptr ? first->version : 0;
    for (const auto &[name, items] : collection.m_r_indexes)
        for (const u64 item : items) add_orphan(collection, item, version);
}

} // namespace

data_file_keys data_file_key(const trash_entry &entry, std::string_view metadata_name)
{
    data_file_keys keys;
    if (metadata_name.starts_with('$')) {
        keys.key = lower_copy(metadata_name);
        if (keys.key.size() > 1) keys.key[1] = 'r';
        return keys;
    }
    keys.second_key = "d";
    if (entry.drive_number != 0)
        keys.second_key += static_cast<char>('a' + entry.drive_number);
    keys.second_key += std::to_string(entry.record_number);
    keys.key = keys.second_key;
    const std::string &path = entry.deleted_path;
    const std::size_t dot = path.rfind('.');
    const std::size_t separator = last_separator(path);
    if (dot != npos && (separator == npos || dot > separator))
        keys.key += path.substr(dot);
    return keys;
}

bool parse_metadata_record(_trash_inodes &collection, u64 index,
                           const resolve_request &request)
{
    inode_store &records = collection.records;
    if (records.name(index).size() < min_name) return false;
    if (!complete_metadata_path(collection, index)) return false;
    std::vector<u8> &data = records.extras(index).data;
    if (data.empty() && request.read_file_content && !records.path(index).empty())
        uni::fileio::read_head(data, records.path(index), late_read_size);
    if (data.empty()) return false;
    // The label that a scan left in the record is not passed on to its entries.
    const metadata_source source{
        index, records.name(index), {}, records[index].position};
    if (!parse_metadata(collection.parsed, byte_view{data}, source)) return false;
    resolve_entries(collection, index);
    return true;
}

bool resolve_entries(_trash_inodes &collection, u64 index)
{
    std::vector<trash_entry> entries;
    entries.swap(collection.parsed);
    std::string_view tail;
    std::string_view directory;
    if (!split_tail(collection.records.path(index), tail, directory)) return false;
    for (trash_entry &entry : entries) {
        entry.user_sid = directory;
        entry.data_record = index;
        const data_file_keys keys =
            data_file_key(entry, collection.records.name(index));
        pair_entry(collection, std::string(tail), std::move(entry), keys);
    }
    return !entries.empty();
}

bool resolve_carved_entry(_trash_inodes &collection, trash_entry entry)
{
    if (!entry.carved) return false;
    const data_file_keys keys = data_file_key(entry, {});
    return pair_entry(collection, keys.key, std::move(entry), keys) == pairing::alone;
}

void resolve_records(_trash_inodes &collection, const resolve_request &request)
{
    process_metadata(collection, request);
    process_carved(collection, request);
    process_orphans(collection);
}

} // namespace hv

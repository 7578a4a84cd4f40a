#include "trash/resolve.h"

#include "base/hv_fileio.h"
#include "base/hv_string.h"
#include "trash/deleted_records.h"
#include "trash/register_file.h"

#include <utility>

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::size_t min_name = 2;

// How much of a metadata file a parser reads when the file's own record gave nothing.
constexpr u64 late_read_size = 32768;

// ---- Pairing

// `deleted_path`, followed by what stands in `path` behind the item's name;
// `deleted_path` alone for the item itself, or where the name doesn't stand in `path`.
std::string restored_path_for(const trash_entry &entry, std::string_view key,
                              std::string_view path, std::string_view name_below)
{
    const std::size_t at = lower_copy(path).find(key);
    const std::size_t end = at + key.size();
    if (at == npos || end >= path.size()) return entry.deleted_path;
    return entry.deleted_path + std::string(path.substr(end)) + std::string(name_below);
}

// Gives one data item its path and the entry the path to print for it. False if the
// item has to be passed over.
bool place_data_item(trash_options &options, trash_entry &entry, std::string_view key,
                     u64 item)
{
    inode_store &records = options.records;
    const std::string_view name = records.name(item);
    entry.restored_path.clear();
    if (name.empty()) return false;
    if (!records.path(item).empty() || !records[item].has_parents()) {
        entry.restored_path = restored_path_for(entry, key, records.path(item), {});
        return true;
    }
    if (options.directories.empty()) return false;
    const auto parent = options.directories.find(records[item].first_parent);
    if (parent == options.directories.end()) return true;
    const std::string_view parent_path = records.path(parent->second);
    entry.restored_path = restored_path_for(entry, key, parent_path, name);
    records.set_path(item, std::string(parent_path) + std::string(name));
    return true;
}

enum class pairing { paired, alone };

// Makes the rows of one entry: one for each data item under its name, or one for
// itself. The first entry that asks for a name gets all its items.
pairing pair_entry(trash_options &options, const std::string &row_key,
                   trash_entry entry, const data_file_keys &keys)
{
    entry.has_data_file = false;
    auto found = options.m_r_indexes.find(keys.key);
    std::string_view key = keys.key;
    if (found == options.m_r_indexes.end()) {
        found = options.m_r_indexes.find(keys.second_key);
        key = keys.second_key;
    }
    if (found == options.m_r_indexes.end()) {
        options.results.add(row_key, std::move(entry));
        return pairing::alone;
    }
    for (const u64 item : found->second) {
        if (!place_data_item(options, entry, key, item)) continue;
        entry.has_data_file = true;
        entry.data_record = item;
        options.results.add(row_key, entry);
    }
    // Items that can't be placed must not cost the metadata its row.
    if (!entry.has_data_file) options.results.add(row_key, std::move(entry));
    options.m_r_indexes.erase(found);
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

// Gives a metadata record without a path one under its first parent. Unlike elsewhere,
// a parent's text that doesn't end in a separator is dropped.
bool complete_metadata_path(trash_options &options, u64 index)
{
    inode_store &records = options.records;
    if (!records.path(index).empty() || !records[index].has_parents()) return true;
    if (options.directories.empty()) return false;
    const auto parent = options.directories.find(records[index].first_parent);
    if (parent == options.directories.end()) return true;
    const std::string_view above = records.path(parent->second);
    std::string path(ends_in_separator(above) ? above : "\\");
    path += records.name(index);
    records.set_path(index, path);
    return true;
}

bool is_at_run(const trash_entry &carved, const flat_run &run, u64 cluster_size,
               u64 volume_offset)
{
    // Hostile run lists may wrap here; they then only fail to match.
    const u64 position = run.lcn * cluster_size;
    return carved.source_offset == position ||
           carved.source_offset == position + volume_offset;
}

// An `INFO2` that carving found goes back to the record that owns its clusters, as long
// as it stands at the head of the list: only that one is compared.
void adopt_carved_data(trash_options &options, u64 index, u64 volume_offset)
{
    if (options.carved_entries.empty()) return;
    if (!options.records.extras_or_blank(index).data.empty()) return;
    const std::vector<flat_run> runs = options.records.extras_or_blank(index).data_runs;
    for (const flat_run &run : runs) {
        if (options.carved_entries.empty()) return;
        trash_entry &first = options.carved_entries.front();
        if (first.raw_data.empty() ||
            !is_at_run(first, run, options.cluster_size, volume_offset))
            continue;
        options.records.extras(index).data = std::move(first.raw_data);
        options.carved_entries.erase(options.carved_entries.begin());
    }
}

void log_problem(const trash_options &options, std::string_view name)
{
    debug_log(options.log(), "prob processing entry %s", std::string(name).c_str());
}

void process_metadata(trash_options &options, u64 volume_offset)
{
    for (const auto &[entry, index] : options.metadata_index) {
        const std::string_view name = options.records.name(index);
        if (name.size() < min_name) continue;
        adopt_carved_data(options, index, volume_offset);
        if (!parse_metadata_record(options, index)) log_problem(options, name);
    }
}

void process_carved(trash_options &options)
{
    for (const trash_entry &carved : options.carved_entries) {
        if (carved.raw_data.empty()) continue;
        std::vector<trash_entry> parsed;
        parse_info2(parsed, byte_view{carved.raw_data}, false, {}, true);
        for (trash_entry &entry : parsed) {
            const std::string path = entry.deleted_path;
            // The line also stands for entries that found their data: it is no error.
            if (!resolve_carved_entry(options, std::move(entry)))
                log_problem(options, path);
        }
    }
}

// ---- Data files without metadata

void complete_orphan_path(trash_options &options, u64 item)
{
    inode_store &records = options.records;
    if (!records.path(item).empty() || !records[item].has_parents()) return;
    const auto parent = options.directories.find(records[item].first_parent);
    if (parent == options.directories.end()) return;
    std::string path(records.path(parent->second));
    if (!ends_in_separator(path)) path += '\\';
    path += records.name(item);
    records.set_path(item, path);
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

void add_orphan(trash_options &options, u64 item, u32 version)
{
    complete_orphan_path(options, item);
    const inode_record &record = options.records[item];
    trash_entry entry;
    entry.has_data_file = true;
    entry.deleted_path = options.records.path(item);
    const std::string key = describe_orphan(entry, entry.deleted_path);
    entry.version = version;
    entry.data_record = item;
    // The nearest thing to the moment of the deletion.
    entry.deleted_time = record.si_mft_changed;
    entry.file_size = record.real_size;
    entry.source_offset = record.position;
    entry.other_info = options.scan_label;
    options.results.add(key, std::move(entry));
}

void process_orphans(trash_options &options)
{
    const trash_entry *first = options.results.first();
    const u32 version = first != nullptr ? first->version : 0;
    for (const auto &[name, items] : options.m_r_indexes)
        for (const u64 item : items) add_orphan(options, item, version);
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

bool parse_metadata_record(trash_options &options, u64 index)
{
    inode_store &records = options.records;
    if (records.name(index).size() < min_name) return false;
    if (!complete_metadata_path(options, index)) return false;
    options.keep_parsed = true;
    std::vector<u8> &data = records.extras(index).data;
    if (data.empty() && options.read_file_content && !records.path(index).empty())
        uni::fileio::read_head(data, records.path(index), late_read_size);
    if (data.empty()) return false;
    // The label that a scan left in the record is not passed on to its entries.
    const metadata_source source{
        index, records.name(index), {}, records[index].position};
    if (!parse_metadata(options.parsed, byte_view{data}, options.keep_parsed, source))
        return false;
    resolve_entries(options, index);
    return true;
}

bool resolve_entries(trash_options &options, u64 index)
{
    std::vector<trash_entry> entries;
    entries.swap(options.parsed);
    std::string_view tail;
    std::string_view directory;
    if (!split_tail(options.records.path(index), tail, directory)) return false;
    for (trash_entry &entry : entries) {
        entry.user_sid = directory;
        entry.data_record = index;
        const data_file_keys keys = data_file_key(entry, options.records.name(index));
        pair_entry(options, std::string(tail), std::move(entry), keys);
    }
    return !entries.empty();
}

bool resolve_carved_entry(trash_options &options, trash_entry entry)
{
    if (!entry.carved) return false;
    const data_file_keys keys = data_file_key(entry, {});
    return pair_entry(options, keys.key, std::move(entry), keys) == pairing::alone;
}

void resolve_records(trash_options &options, u64 volume_offset)
{
    process_metadata(options, volume_offset);
    process_carved(options);
    process_orphans(options);
}

} // namespace hv

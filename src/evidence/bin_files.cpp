#include "evidence/bin_files.h"

#include "disk/hv_file_source.h"
#include "disk/hv_source_bytes.h"
#include "evidence/system_name.h"
#include "formats/deleted_file_layout.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace hv {

namespace {

constexpr u64 max_dollar_i = dollar_i::max_size_2;
constexpr u64 max_list = u64{64} << 20;
constexpr std::size_t max_members = 1'000'000;
constexpr std::size_t max_member_depth = 256;
constexpr u64 size_1_cut = 543; // of a file of version 1 that lost a byte

const parse_rules rules = parse_rules::complete();

// The name of an entry as the system has it.
std::string_view last_part(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

// A file that lost a byte has all its fields in wrong places: neither its time nor its
// path is one.
bool says_something(const deleted_file &file)
{
    return is_believable_time(file.deleted) || file.path.starts_with(u"\\\\") ||
           (file.path.size() > 1 && file.path[1] == u':');
}

// A folder whose members are to be listed.
struct member_folder {
    std::string path;
    std::u16string below; // with "\" at its end, if it isn't empty
    std::size_t depth;
};

} // namespace

void add_unread(unread_list &unread, const std::string &path, const std::string &why)
{
    if (unread.size() < max_unread)
        unread.push_back(path + ": " + why);
    else if (unread.size() == max_unread)
        unread.emplace_back("and more that can't be read");
}

bool holds_metadata(const byte_source &file, std::u16string_view name)
{
    if (file.size() == 0 || file.size() > max_list) return false;
    const bin_name_kind kind = kind_of_name(name);
    const u64 count = std::min(file.size(), max_dollar_i);
    const std::vector<u8> head = read_bytes(file, 0, count);
    const byte_view bytes{head};
    metadata_format format{};
    if (recognize_list_header(format, bytes)) {
        const u64 records = file.size() - list_header::size;
        return kind == bin_name_kind::list || records % list_record_size(format) == 0;
    }
    deleted_file read;
    if (kind == bin_name_kind::metadata && parse_dollar_i(read, bytes, rules))
        return true;
    // A stretch of clusters may begin like a file, and goes on.
    return recognize_dollar_i(read, bytes) &&
           (file.size() == read.length || file.size() == size_1_cut);
}

bin_files::bin_files(std::string path, bin_place place)
    : m_path(std::move(path)),
      m_place(std::move(place))
{
    if (!m_path.ends_with('/')) m_path += '/';
}

bool bin_files::read(unread_list &unread)
{
    if (!hvportdir::list_dir(m_path, m_items)) {
        add_unread(unread, m_path, std::strerror(errno));
        if (m_items.empty()) return false;
    }
    std::ranges::sort(m_items, {}, &hvportdir::dir_item::path);
    for (const hvportdir::dir_item &item : m_items) {
        const std::u16string name = from_system_name(last_part(item.path));
        const bin_name_kind kind = kind_of_name(name);
        if (kind == bin_name_kind::metadata) m_names.insert(name);
        m_has_list = m_has_list || kind == bin_name_kind::list;
    }
    return true;
}

std::vector<std::string> bin_files::folders() const
{
    std::vector<std::string> paths;
    for (const hvportdir::dir_item &item : m_items)
        if (item.is_directory && !item.is_link) paths.push_back(item.path);
    return paths;
}

sighting bin_files::start_sighting(sighting_kind kind, std::u16string name) const
{
    sighting seen;
    seen.kind = kind;
    seen.views = {0};
    seen.in_use = true;
    seen.name = std::move(name);
    seen.user = m_place.user;
    seen.is_in_bin = m_place.is_bin || !m_place.user.empty();
    return seen;
}

bool bin_files::is_wanted(const std::u16string &name) const
{
    if (m_place.is_bin || (!m_place.user.empty() && is_made_by_windows(name)))
        return true;
    return kind_of_name(name) == bin_name_kind::listed_data
               ? m_has_list
               : m_names.contains(u"$I" + item_of_name(name));
}

std::vector<sighting> bin_files::sightings(unread_list &unread)
{
    for (const hvportdir::dir_item &item : m_items) {
        if (is_stopped()) break;
        const std::u16string name = from_system_name(last_part(item.path));
        const bin_name_kind kind = kind_of_name(name);
        if (kind == bin_name_kind::metadata || kind == bin_name_kind::list)
            take_metadata_file(item, name, unread);
        else if (kind != bin_name_kind::other && is_wanted(name))
            take_data_item(item.path, name, unread);
    }
    return std::move(m_found);
}

void bin_files::take_metadata_file(const hvportdir::dir_item &item,
                                   const std::u16string &name, unread_list &unread)
{
    if (item.is_directory && !item.is_link) return;
    struct stat status {};
    sighting start = start_sighting(sighting_kind::metadata, name);
    start.file = item.path;
    if (lstat(item.path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        add_unread(unread, item.path, "isn't a regular file, and wasn't opened");
        return;
    }
    const file_source file(item.path);
    if (file.failure() != open_failure::none) {
        add_unread(unread, item.path, open_failure_text(file.failure()));
        m_found.push_back(std::move(start)); // its name alone
        return;
    }
    if (kind_of_name(name) == bin_name_kind::list)
        take_list(file, start);
    else
        take_dollar_i(file, start);
    if (file.size() > max_list) add_unread(unread, item.path, "too large for a list");
    if (file.unreadable() == 0) return;
    m_unreadable += file.unreadable();
    add_unread(unread, item.path,
               std::to_string(file.unreadable()) + " bytes can't be read");
}

void bin_files::take_dollar_i(const byte_source &file, const sighting &start)
{
    std::vector<u8> bytes = read_bytes(file, 0, std::min(file.size(), max_dollar_i));
    // Zeros that stand for what can't be read are no text.
    const auto unread = file.unreadable_in(0, bytes.size());
    if (!unread.empty()) bytes.resize(unread.front().offset);
    deleted_file metadata;
    sighting seen = start;
    if (parse_dollar_i(metadata, byte_view{bytes}, rules) && says_something(metadata)) {
        seen.ranges = {{0, metadata.length}};
        seen.metadata = std::move(metadata);
    } else if (!seen.is_in_bin || !is_made_by_windows(seen.name)) {
        return; // named like metadata, and holds something else
    }
    m_found.push_back(std::move(seen));
}

void bin_files::take_list(const byte_source &file, const sighting &start)
{
    const std::vector<u8> bytes = read_bytes(file, 0, std::min(file.size(), max_list));
    std::vector<listed_file> records;
    parse_list(records, byte_view{bytes}, rules);
    for (listed_file &record : records) {
        if (!file.unreadable_in(record.offset, record.file.length).empty()) continue;
        sighting seen = start;
        seen.name =
            listed_data_name(record.file.drive, record.file.number, record.file.path);
        seen.ranges = {{record.offset, record.file.length}};
        seen.metadata = std::move(record.file);
        m_found.push_back(std::move(seen));
    }
}

void bin_files::take_data_item(const std::string &path, const std::u16string &name,
                               unread_list &unread)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) add_unread(unread, path, std::strerror(errno));
        return;
    }
    sighting seen = start_sighting(sighting_kind::data_item, name);
    seen.file = path;
    seen.is_directory = S_ISDIR(status.st_mode);
    if (seen.is_directory) {
        seen.members = members_below(path, unread);
    } else if (S_ISREG(status.st_mode)) {
        seen.data_size = static_cast<u64>(status.st_size);
        if (seen.data_size > 0) seen.ranges = {{0, seen.data_size}};
        seen.data = seen.ranges;
        const open_failure failure = file_source(path).failure();
        seen.content =
            failure == open_failure::none ? data_state::whole : data_state::unknown;
        if (failure != open_failure::none)
            add_unread(unread, path, open_failure_text(failure));
    } else {
        seen.content = data_state::unknown;
    }
    m_found.push_back(std::move(seen));
}

// The files below a folder, by paths relative to it.
std::vector<std::u16string> bin_files::members_below(const std::string &folder,
                                                     unread_list &unread) const
{
    std::vector<std::u16string> members;
    std::vector<member_folder> open = {{folder, {}, 0}};
    std::vector<hvportdir::dir_item> items;
    while (!open.empty() && members.size() < max_members && !is_stopped()) {
        const member_folder next = std::move(open.back());
        open.pop_back();
        // The walk that enters this folder for itself says why it can't be read.
        hvportdir::list_dir(next.path, items);
        for (const hvportdir::dir_item &item : items) {
            std::u16string path = next.below + from_system_name(last_part(item.path));
            if (!item.is_directory || item.is_link)
                members.push_back(std::move(path));
            else if (next.depth < max_member_depth)
                open.push_back({item.path, path + u'\\', next.depth + 1});
        }
    }
    if (!open.empty() && !is_stopped())
        add_unread(unread, folder, "not all of its members were read");
    std::ranges::sort(members);
    return members;
}

std::vector<sighting> bin_files::sightings_of(const byte_source &file,
                                              const std::u16string &name,
                                              unread_list &unread)
{
    const sighting start = start_sighting(sighting_kind::metadata, name);
    metadata_format format{};
    const std::vector<u8> head = read_bytes(file, 0, list_header::size);
    std::set<std::u16string> beside;
    if (recognize_list_header(format, byte_view{head})) {
        take_list(file, start);
        for (const sighting &seen : m_found) beside.insert(seen.name);
    } else {
        take_dollar_i(file, start);
        if (kind_of_name(name) == bin_name_kind::metadata)
            beside.insert(u"$R" + item_of_name(name));
    }
    // No file has such a name; as a path it would lead elsewhere.
    std::erase_if(beside, [](const std::u16string &data_name) {
        return data_name.find(u'/') != std::u16string::npos;
    });
    for (const std::u16string &data_name : beside)
        take_data_item(m_path + to_system_name(data_name), data_name, unread);
    return std::move(m_found);
}

} // namespace hv

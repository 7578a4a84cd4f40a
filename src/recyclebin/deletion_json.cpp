#include "recyclebin/deletion_json.h"

#include "recyclebin/evidence_text.h"
#include "recyclebin/json_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/range_bytes.h"

#include <nlohmann/json.hpp>

namespace hv {

namespace {

using json = nlohmann::ordered_json;

// The release of the common schema whose names the fields outside of `recyclebin` have.
constexpr const char *ecs_version = "8.11.0";

void add_text(json &object, const char *name, const std::u16string &text)
{
    if (!text.empty()) object[name] = to_lossless_utf8(text);
}

void add_texts(json &object, const char *name, const std::vector<std::u16string> &texts)
{
    for (const std::u16string &text : texts)
        object[name].push_back(to_lossless_utf8(text));
}

template <class T>
void add_number(json &object, const char *name, std::optional<T> value)
{
    if (value) object[name] = *value;
}

void add_moment(json &object, const char *name, u64 filetime)
{
    if (const auto text = rfc3339(filetime)) object[name] = *text;
}

void add_entry(json &object, const char *name, const std::optional<entry_id> &entry)
{
    if (entry) object[name] = {entry->entry, entry->sequence};
}

void add_ranges(json &object, const char *name, const std::vector<byte_range> &ranges)
{
    for (const byte_range &range : ranges)
        object[name].push_back({range.offset, range.length});
}

void add_times(json &object, const record_times &times)
{
    add_moment(object, "created", times.created);
    add_moment(object, "mtime", times.modified);
    add_moment(object, "ctime", times.record_changed);
    add_moment(object, "accessed", times.accessed);
}

// A deletion time that RFC 3339 can't write is a number.
void add_deleted(json &object, const char *moment_name, const char *number_name,
                 u64 filetime)
{
    if (rfc3339(filetime))
        add_moment(object, moment_name, filetime);
    else
        object[number_name] = filetime;
}

// What follows from the path: its parts.
void add_path(json &file, const std::u16string &path)
{
    add_text(file, "path", path);
    const std::size_t cut = path.rfind(u'\\') + 1; // 0 if there is none
    const std::u16string name = path.substr(cut);
    add_text(file, "name", name);
    // The root keeps its separator: "C:" alone means another folder.
    const std::size_t directory_size =
        cut == 3 && path[1] == u':' ? cut : cut - (cut > 0);
    add_text(file, "directory", path.substr(0, directory_size));
    const std::size_t dot = name.rfind(u'.');
    if (dot != std::u16string::npos && dot > 0)
        add_text(file, "extension", name.substr(dot + 1));
    const char16_t drive = path.size() > 1 && path[1] == u':' ? path[0] | 0x20 : u'-';
    if (drive >= u'a' && drive <= u'z')
        file["drive_letter"] = std::string(1, static_cast<char>(drive - 0x20));
}

json file_json(const deletion &item)
{
    json file = json::object();
    if (item.path) add_path(file, *item.path);
    if (item.is_directory || item.data_entry)
        file["type"] = item.is_directory ? "dir" : "file";
    add_number(file, "size", item.stated_size ? item.stated_size : item.found_size);
    if (item.data_entry) file["inode"] = std::to_string(item.data_entry->entry);
    add_times(file, item.times);
    return file;
}

json metadata_json(const deleted_file &stated)
{
    json metadata = {{"format", word_for(stated.format)}};
    add_deleted(metadata, "deleted", "deleted_filetime", stated.deleted);
    metadata["size"] = stated.size;
    add_text(metadata, "path", stated.path);
    metadata["path_is_whole"] = stated.path_is_whole;
    metadata["length"] = stated.length;
    if (stated.format == metadata_format::dollar_i_1 ||
        stated.format == metadata_format::dollar_i_2)
        return metadata;
    metadata["number"] = stated.number;
    metadata["drive"] = stated.drive;
    metadata["struck"] = stated.is_struck;
    return metadata;
}

json data_json(const sighting &seen)
{
    json data = {{"size", seen.data_size}, {"state", word_for(seen.content)}};
    data["directory"] = seen.is_directory;
    add_ranges(data, "ranges", seen.data);
    add_times(data, seen.times);
    return data;
}

// The bytes that prove it, and how to know them again.
void add_proof(json &object, const sighting &seen, const examination &found,
               const byte_source &medium)
{
    object["views"] = seen.views;
    if (!seen.file.empty())
        add_text(object, "file", relative_path(seen.file, found.folder));
    object["ranges"] = json::array();
    add_ranges(object, "ranges", seen.ranges);
    const std::string sum = sha256_of_proof(medium, seen);
    if (!sum.empty()) object["sha256"] = sum;
}

json sighting_json(const sighting &seen, const examination &found,
                   const byte_source &medium)
{
    json object = {{"kind", word_for(seen.kind)}, {"source", word_for(seen.source)}};
    add_proof(object, seen, found, medium);
    object["torn"] = seen.is_torn;
    if (knows_use(seen)) object["in_use"] = seen.in_use;
    object["in_bin"] = seen.is_in_bin;
    add_entry(object, "entry", seen.entry);
    add_entry(object, "parent", seen.parent);
    add_text(object, "name", seen.name);
    add_text(object, "user", seen.user);
    if (seen.metadata) object["metadata"] = metadata_json(*seen.metadata);
    if (seen.kind == sighting_kind::data_item ||
        seen.kind == sighting_kind::restored_item)
        object["data"] = data_json(seen);
    add_text(object, "outside_path", seen.outside_path);
    if (seen.kind != sighting_kind::journal_line) return object;
    add_moment(object, "logged", seen.logged);
    object["reason"] = seen.reason;
    return object;
}

json volume_json(const deletion &item, const examination &found)
{
    json volume = json::object();
    if (item.volume >= found.regions.size()) return volume;
    const examined_region &region = found.regions[item.volume];
    add_number(volume, "number", volume_numbers(found).number_of(item.volume));
    volume["offset"] = region.offset;
    volume["size"] = region.size;
    return volume;
}

void add_owner(json &own, const deletion &item)
{
    own["data_owner"] = item.owner;
    add_text(own, "data_owner_name", item.owner_name.name);
    if (!item.owner_name.from.empty())
        own["data_owner_named_by"] = item.owner_name.from;
}

// What the metadata states, and what was found.
void add_facts(json &own, const deletion &item)
{
    if (item.format) own["format"] = word_for(*item.format);
    add_text(own, "metadata_file", item.metadata_name);
    add_text(own, "data_file", item.data_name);
    add_entry(own, "metadata_entry", item.metadata_entry);
    add_entry(own, "data_entry", item.data_entry);
    if (item.deleted && !rfc3339(*item.deleted))
        own["deleted_filetime"] = *item.deleted;
    if (item.path) own["path_is_whole"] = item.path_is_whole;
    add_number(own, "stated_size", item.stated_size);
    add_number(own, "found_size", item.found_size);
    if (item.record_changed) add_moment(own, "record_changed", *item.record_changed);
    if (item.logged) add_moment(own, "logged", *item.logged);
    add_text(own, "outside_path", item.outside_path);
    add_texts(own, "members", item.members);
    add_ranges(own, "data_ranges", item.data);
    if (!item.user_name.from.empty()) own["user_named_by"] = item.user_name.from;
    if (has_other_owner(item)) add_owner(own, item);
    for (const std::string &conflict : item.conflicts)
        own["conflicts"].push_back(conflict);
}

json own_json(const deletion &item, const examination &found, const byte_source &medium)
{
    json own = {{"schema_version", json_schema_version},
                {"state", word_for(item.state)},
                {"data", word_for(item.content)}};
    add_facts(own, item);
    own["volume"] = volume_json(item, found);
    own["sightings"] = json::array();
    for (const sighting &seen : item.sightings)
        own["sightings"].push_back(sighting_json(seen, found, medium));
    return own;
}

std::string message_for(const deletion &item)
{
    const std::u16string &name =
        item.data_name.empty() ? item.metadata_name : item.data_name;
    return "sent to the Recycle Bin: " + escaped(item.path ? *item.path : name);
}

} // namespace

std::string deletion_json(const deletion &item, const examination &found,
                          const byte_source &medium)
{
    json line = json::object();
    if (item.deleted) add_moment(line, "@timestamp", *item.deleted);
    line["message"] = message_for(item);
    line["ecs"] = {{"version", ecs_version}};
    line["event"] = {{"kind", "event"},
                     {"category", json::array({"file"})},
                     {"type", json::array({"deletion"})},
                     {"action", "moved-to-recycle-bin"},
                     {"id", item.id}};
    line["file"] = file_json(item);
    if (!item.user.empty()) line["user"] = {{"id", to_lossless_utf8(item.user)}};
    if (!item.user_name.name.empty())
        line["user"]["name"] = to_lossless_utf8(item.user_name.name);
    line["recyclebin"] = own_json(item, found, medium);
    return json_text(line);
}

} // namespace hv

#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/cell_text.h"
#include "recyclebin/forms/sqlite_database.h"
#include "recyclebin/forms/sqlite_schema.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/moments.h"
#include "recyclebin/range_bytes.h"
#include "recyclebin/views.h"

#include <cstdio>

namespace hv {

namespace {

// ---- Values

// SQLite has no unsigned numbers: 2^63 and more, which only damaged metadata states,
// become negative and keep their 64 bits.
sql_value number(u64 value)
{
    return static_cast<i64>(value);
}

template <class T> sql_value number_or_null(const std::optional<T> &value)
{
    return value ? number(*value) : sql_value();
}

sql_value word(std::string_view text)
{
    return std::string(text);
}

sql_value text_or_null(const std::string &utf8)
{
    return utf8.empty() ? sql_value() : sql_value(escaped(std::string_view(utf8)));
}

sql_value text_or_null(const std::u16string &text)
{
    return text.empty() ? sql_value() : sql_value(cell_text(text));
}

sql_blob utf16_bytes(std::u16string_view text)
{
    sql_blob bytes;
    bytes.reserve(2 * text.size());
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<u8>(unit & 0xff));
        bytes.push_back(static_cast<u8>(unit >> 8));
    }
    return bytes;
}

// ---- Several columns of one fact

// A text for people, and exactly, as UTF-16 in little endian.
void add_path(sql_row &row, const std::string &column,
              const std::optional<std::u16string> &path)
{
    row.push_back({column, path ? sql_value(cell_text(*path)) : sql_value()});
    row.push_back(
        {column + "_utf16", path ? sql_value(utf16_bytes(*path)) : sql_value()});
}

void add_path(sql_row &row, const std::string &column, const std::u16string &path)
{
    add_path(row, column, path.empty() ? std::nullopt : std::optional(path));
}

// As text, which is missing where RFC 3339 has none, and as the number that was read.
void add_moment(sql_row &row, const std::string &column,
                const std::optional<u64> &filetime)
{
    const auto text = filetime ? rfc3339(*filetime) : std::nullopt;
    row.push_back({column, text ? sql_value(*text) : sql_value()});
    row.push_back({column + "_filetime", number_or_null(filetime)});
}

// In records, 0 means that there is no time.
void add_record_moment(sql_row &row, const std::string &column, u64 filetime)
{
    add_moment(row, column, filetime == 0 ? std::nullopt : std::optional(filetime));
}

void add_times(sql_row &row, const record_times &times)
{
    add_record_moment(row, "data_created", times.created);
    add_record_moment(row, "data_modified", times.modified);
    add_record_moment(row, "data_record_changed", times.record_changed);
    add_record_moment(row, "data_accessed", times.accessed);
}

void add_entry(sql_row &row, const std::string &prefix,
               const std::optional<entry_id> &entry)
{
    row.push_back({prefix + "entry", entry ? number(entry->entry) : sql_value()});
    row.push_back({prefix + "sequence", entry ? number(entry->sequence) : sql_value()});
}

// ---- Rows

class database_writer {
public:
    explicit database_writer(const listing &told) : m_told(told)
    {
        m_database.run(sqlite_schema);
        m_database.run("BEGIN");
    }

    void add_all();
    void write(std::ostream &out)
    {
        m_database.run("COMMIT");
        m_database.write(out);
    }

private:
    void add_region(u32 region);
    void add_user(const deletion &item);
    void add_deletion(const deletion &item, const std::string &id);
    void add_parts(const deletion &item, const std::string &id);
    void add_sighting(const std::string &id, u64 number_in_item, const sighting &seen);
    std::string free_id(const std::string &id);
    sql_row key(const std::string &id, u64 number_in_item) const;

    const listing &m_told;
    const std::string m_medium = cell_text_of_utf8(m_told.medium_name);
    const volume_numbers m_volumes = volume_numbers(m_told.found);
    sqlite_database m_database;
    std::set<std::pair<u32, std::u16string>> m_users;
    std::set<std::string> m_ids;
    sqlite_table m_media{m_database, "medium"};
    sqlite_table m_volume_rows{m_database, "volume"};
    sqlite_table m_snapshots{m_database, "snapshot"};
    sqlite_table m_user_rows{m_database, "user"};
    sqlite_table m_deletions{m_database, "deletion"};
    sqlite_table m_sightings{m_database, "sighting"};
    sqlite_table m_views{m_database, "sighting_view"};
    sqlite_table m_ranges{m_database, "byte_range"};
    sqlite_table m_data_ranges{m_database, "data_range"};
    sqlite_table m_members{m_database, "member"};
    sqlite_table m_conflicts{m_database, "conflict"};
};

// Ids are short sums, so that two deletions may share one.
std::string database_writer::free_id(const std::string &id)
{
    std::string candidate = id;
    for (u64 next = 2; !m_ids.insert(candidate).second; ++next)
        candidate = id + "-" + std::to_string(next);
    return candidate;
}

sql_row database_writer::key(const std::string &id, u64 number_in_item) const
{
    return {{"medium", m_medium}, {"deletion", id}, {"number", number(number_in_item)}};
}

void database_writer::add_region(u32 region)
{
    const examined_region &from = m_told.found.regions[region];
    char serial[24];
    std::snprintf(serial, sizeof serial, "%016llX",
                  static_cast<unsigned long long>(from.serial));
    m_volume_rows.add({{"medium", m_medium},
                       {"region", number(region)},
                       {"number", number_or_null(m_volumes.number_of(region))},
                       {"offset", number(from.offset)},
                       {"size", number(from.size)},
                       {"label", escaped(std::string_view(from.label))},
                       {"serial", std::string(from.is_volume ? serial : "")},
                       {"found_by", escaped(std::string_view(from.found_by))},
                       {"cluster_size", number(from.cluster_size)},
                       {"record_size", number(from.record_size)},
                       {"sector_size", number(from.sector_size)},
                       {"trouble", escaped(std::string_view(from.trouble))}});
    for (std::size_t at = 0; at < from.snapshots.size(); ++at) {
        sql_row row = {{"medium", m_medium},
                       {"region", number(region)},
                       {"number", number(at + 1)}};
        add_record_moment(row, "created", from.snapshots[at]);
        m_snapshots.add(row);
    }
}

void database_writer::add_user(const deletion &item)
{
    if (item.user.empty()) return;
    if (!m_users.insert({item.volume, item.user}).second) return;
    const auto &names = m_told.found.regions[item.volume].user_names;
    const auto name = names.find(item.user);
    m_user_rows.add(
        {{"medium", m_medium},
         {"region", number(item.volume)},
         {"folder", cell_text(item.user)},
         {"folder_utf16", utf16_bytes(item.user)},
         {"name", name == names.end() ? sql_value() : text_or_null(name->second)}});
}

void database_writer::add_deletion(const deletion &item, const std::string &id)
{
    sql_row row = {{"medium", m_medium},
                   {"id", id},
                   {"region", number(item.volume)},
                   {"user", text_or_null(item.user)},
                   {"state", word(word_for(item.state))},
                   {"content", word(word_for(item.content))},
                   {"is_directory", number(item.is_directory)},
                   {"seen_in", places_of(item).text()}};
    add_moment(row, "deleted", item.deleted);
    add_path(row, "path", item.path);
    row.push_back({"path_is_whole", number(item.path_is_whole)});
    row.push_back({"stated_size", number_or_null(item.stated_size)});
    row.push_back({"found_size", number_or_null(item.found_size)});
    row.push_back(
        {"metadata_format", item.format ? word(word_for(*item.format)) : sql_value()});
    row.push_back({"metadata_file", cell_text(item.metadata_name)});
    row.push_back({"data_file", cell_text(item.data_name)});
    add_entry(row, "metadata_", item.metadata_entry);
    add_entry(row, "data_", item.data_entry);
    add_moment(row, "record_changed", item.record_changed);
    add_moment(row, "logged", item.logged);
    add_times(row, item.times);
    add_path(row, "outside_path", item.outside_path);
    row.push_back({"owner", text_or_null(item.owner)});
    m_deletions.add(row);
}

// What there may be several of.
void database_writer::add_parts(const deletion &item, const std::string &id)
{
    u64 count = 0;
    for (const byte_range &range : item.data) {
        sql_row row = key(id, ++count);
        row.push_back({"offset", number(range.offset)});
        row.push_back({"length", number(range.length)});
        m_data_ranges.add(row);
    }
    count = 0;
    for (const std::u16string &member : item.members) {
        sql_row row = key(id, ++count);
        add_path(row, "path", std::optional(member));
        m_members.add(row);
    }
    count = 0;
    for (const std::string &conflict : item.conflicts) {
        sql_row row = key(id, ++count);
        row.push_back({"text", escaped(std::string_view(conflict))});
        m_conflicts.add(row);
    }
    count = 0;
    for (const sighting &seen : item.sightings) add_sighting(id, ++count, seen);
}

// What metadata states.
void add_statement(sql_row &row, const std::optional<deleted_file> &stated)
{
    const auto if_stated = [&stated](auto value_of) {
        return stated ? value_of(*stated) : sql_value();
    };
    const auto add = [&](const char *column, auto value_of) {
        row.push_back({column, if_stated(value_of)});
    };
    add("metadata_format",
        [](const auto &file) { return word(word_for(file.format)); });
    add("metadata_length", [](const auto &file) { return number(file.length); });
    add_moment(row, "deleted", stated ? std::optional(stated->deleted) : std::nullopt);
    add("size", [](const auto &file) { return number(file.size); });
    add_path(row, "path", stated ? std::optional(stated->path) : std::nullopt);
    add("path_is_whole", [](const auto &file) { return number(file.path_is_whole); });
    add("record_number", [](const auto &file) { return number(file.number); });
    add("is_struck", [](const auto &file) { return number(file.is_struck); });
}

// Facts that only records of data items have, and those that only the journal has.
void add_record_facts(sql_row &row, const sighting &seen)
{
    const bool has_data = seen.kind == sighting_kind::data_item ||
                          seen.kind == sighting_kind::restored_item;
    const bool is_logged = seen.kind == sighting_kind::journal_line;
    row.push_back({"data_size", has_data ? number(seen.data_size) : sql_value()});
    row.push_back({"content", has_data ? word(word_for(seen.content)) : sql_value()});
    row.push_back({"is_directory", has_data ? number(seen.is_directory) : sql_value()});
    add_times(row, seen.times);
    add_path(row, "outside_path", seen.outside_path);
    row.push_back({"owner", text_or_null(seen.owner)});
    add_record_moment(row, "logged", is_logged ? seen.logged : 0);
    row.push_back({"reason", is_logged ? number(seen.reason) : sql_value()});
}

void database_writer::add_sighting(const std::string &id, u64 number_in_item,
                                   const sighting &seen)
{
    sql_row row = key(id, number_in_item);
    row.push_back({"kind", word(word_for(seen.kind))});
    row.push_back({"source", word(word_for(seen.source))});
    row.push_back({"file", text_or_null(seen.file)});
    row.push_back({"sha256", text_or_null(sha256_of_proof(m_told.medium, seen))});
    row.push_back({"is_torn", number(seen.is_torn)});
    row.push_back({"in_use", knows_use(seen) ? number(seen.in_use) : sql_value()});
    row.push_back({"is_in_bin", number(seen.is_in_bin)});
    add_entry(row, "", seen.entry);
    add_entry(row, "parent_", seen.parent);
    row.push_back({"name", cell_text(seen.name)});
    row.push_back({"user", text_or_null(seen.user)});
    add_statement(row, seen.metadata);
    add_record_facts(row, seen);
    m_sightings.add(row);

    const auto add_ranges = [&](const char *what, const std::vector<byte_range> &all) {
        u64 count = 0;
        for (const byte_range &range : all)
            m_ranges.add({{"medium", m_medium},
                          {"deletion", id},
                          {"sighting", number(number_in_item)},
                          {"what", std::string(what)},
                          {"number", number(++count)},
                          {"offset", number(range.offset)},
                          {"length", number(range.length)}});
    };
    add_ranges("proof", seen.ranges);
    add_ranges("data", seen.data);
    for (const u32 view : seen.views)
        m_views.add({{"medium", m_medium},
                     {"deletion", id},
                     {"sighting", number(number_in_item)},
                     {"snapshot", number(view)}});
}

void database_writer::add_all()
{
    m_media.add({{"name", m_medium},
                 {"size", number(m_told.medium.size())},
                 {"kind", escaped(std::string_view(m_told.medium_kind))},
                 {"program_version", std::string(RECYCLEBIN_VERSION)},
                 {"unreadable_bytes", number(m_told.found.unreadable_bytes)}});
    for (u32 region = 0; region < m_told.found.regions.size(); ++region)
        add_region(region);
    for (const deletion *item : m_told.items) {
        const std::string id = free_id(item->id);
        add_user(*item);
        add_deletion(*item, id);
        add_parts(*item, id);
    }
}

} // namespace

void write_sqlite(std::ostream &out, const listing &told,
                  const form_options & /*options*/)
{
    database_writer writer(told);
    writer.add_all();
    writer.write(out);
}

} // namespace hv

#include "recyclebin/forms/cell_text.h"
#include "recyclebin/forms/csv_line.h"
#include "recyclebin/forms/timeline.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/moments.h"
#include "recyclebin/views.h"

#include <algorithm>

namespace hv {

namespace {

// What the cells of one deletion are made from.
struct csv_source {
    const deletion &item;
    const listing &told;
    const volume_numbers &volumes;

    const examined_region *region() const
    {
        const auto &regions = told.found.regions;
        return item.volume < regions.size() ? &regions[item.volume] : nullptr;
    }

    // The sighting that says most: metadata, if there is any.
    const sighting *proof() const
    {
        const auto &seen = item.sightings;
        const auto found = std::ranges::find_if(
            seen, [](const sighting &each) { return each.metadata.has_value(); });
        if (found != seen.end()) return &*found;
        return seen.empty() ? nullptr : &seen.front();
    }

    byte_range first_proof() const
    {
        const sighting *best = proof();
        return best == nullptr || best->ranges.empty() ? byte_range{}
                                                       : best->ranges.front();
    }
};

template <class T> std::string number_cell(const std::optional<T> &number)
{
    return number ? std::to_string(*number) : std::string();
}

std::string moment_cell(u64 filetime)
{
    return rfc3339(filetime).value_or("");
}

std::string entry_cell(const std::optional<entry_id> &id)
{
    return id ? std::to_string(id->entry) : std::string();
}

std::string sequence_cell(const std::optional<entry_id> &id)
{
    return id ? std::to_string(id->sequence) : std::string();
}

std::string user_name_cell(const csv_source &from)
{
    const examined_region *region = from.region();
    if (region == nullptr) return {};
    const auto found = region->user_names.find(from.item.user);
    return found == region->user_names.end() ? std::string() : cell_text(found->second);
}

std::string type_cell(const deletion &item)
{
    if (item.is_directory) return "dir";
    return item.data_entry ? "file" : "";
}

// The number of a deletion time that RFC 3339 can't write.
std::string raw_deleted_cell(const deletion &item)
{
    const bool is_odd = item.deleted && !rfc3339(*item.deleted);
    return is_odd ? std::to_string(*item.deleted) : std::string();
}

std::string conflicts_cell(const deletion &item)
{
    std::string joined;
    for (const std::string &conflict : item.conflicts)
        joined.append(joined.empty() ? "" : " / ").append(conflict);
    return cell_text_of_utf8(joined);
}

std::string proof_file_cell(const csv_source &from)
{
    const sighting *best = from.proof();
    const bool has_own = best != nullptr && !best->file.empty();
    return cell_text_of_utf8(has_own ? best->file : from.told.medium_name);
}

struct csv_column {
    const char *name;
    std::string (*cell)(const csv_source &from);
};

using source = const csv_source &;

constexpr csv_column columns[] = {
    {"deleted", [](source s) { return moment_cell(s.item.deleted.value_or(0)); }},
    {"path", [](source s) { return cell_text(s.item.path.value_or(u"")); }},
    {"size", [](source s) { return number_cell(size_of(s.item)); }},
    {"user_id", [](source s) { return cell_text(s.item.user); }},
    {"user_name", user_name_cell},
    {"owner_id", [](source s) { return cell_text_of_utf8(s.item.owner); }},
    {"state", [](source s) { return std::string(word_for(s.item.state)); }},
    {"data", [](source s) { return std::string(word_for(s.item.content)); }},
    {"seen_in", [](source s) { return places_of(s.item).text(); }},
    {"type", [](source s) { return type_cell(s.item); }},
    {"metadata_file", [](source s) { return cell_text(s.item.metadata_name); }},
    {"data_file", [](source s) { return cell_text(s.item.data_name); }},
    {"outside_path", [](source s) { return cell_text(s.item.outside_path); }},
    {"path_is_whole",
     [](source s) {
         if (!s.item.path) return std::string();
         return std::string(s.item.path_is_whole ? "true" : "false");
     }},
    {"stated_size", [](source s) { return number_cell(s.item.stated_size); }},
    {"found_size", [](source s) { return number_cell(s.item.found_size); }},
    {"created", [](source s) { return moment_cell(s.item.times.created); }},
    {"mtime", [](source s) { return moment_cell(s.item.times.modified); }},
    {"ctime", [](source s) { return moment_cell(s.item.times.record_changed); }},
    {"accessed", [](source s) { return moment_cell(s.item.times.accessed); }},
    {"record_changed",
     [](source s) { return moment_cell(s.item.record_changed.value_or(0)); }},
    {"logged", [](source s) { return moment_cell(s.item.logged.value_or(0)); }},
    {"deleted_filetime", [](source s) { return raw_deleted_cell(s.item); }},
    {"format",
     [](source s) {
         return s.item.format ? std::string(word_for(*s.item.format)) : std::string();
     }},
    {"metadata_entry", [](source s) { return entry_cell(s.item.metadata_entry); }},
    {"metadata_sequence",
     [](source s) { return sequence_cell(s.item.metadata_entry); }},
    {"data_entry", [](source s) { return entry_cell(s.item.data_entry); }},
    {"data_sequence", [](source s) { return sequence_cell(s.item.data_entry); }},
    {"members", [](source s) { return std::to_string(s.item.members.size()); }},
    {"conflicts", [](source s) { return conflicts_cell(s.item); }},
    {"volume",
     [](source s) { return number_cell(s.volumes.number_of(s.item.volume)); }},
    {"volume_offset",
     [](source s) {
         return s.region() ? std::to_string(s.region()->offset) : std::string();
     }},
    {"sightings", [](source s) { return std::to_string(s.item.sightings.size()); }},
    {"proof_file", proof_file_cell},
    {"proof_offset", [](source s) { return std::to_string(s.first_proof().offset); }},
    {"proof_length", [](source s) { return std::to_string(s.first_proof().length); }},
    {"id", [](source s) { return s.item.id; }}};

} // namespace

void write_csv(std::ostream &out, const listing &told, const form_options &options)
{
    const csv_dialect dialect{"\r\n", options.formula_safe};
    if (options.byte_order_mark) out << "\ufeff";
    std::vector<std::string> cells;
    for (const csv_column &column : columns) cells.emplace_back(column.name);
    write_csv_line(out, cells, dialect);
    const volume_numbers volumes(told.found);
    for (const deletion *item : told.items) {
        cells.clear();
        for (const csv_column &column : columns)
            cells.push_back(column.cell({*item, told, volumes}));
        write_csv_line(out, cells, dialect);
    }
}

} // namespace hv

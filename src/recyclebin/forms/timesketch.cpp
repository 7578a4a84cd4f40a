// Lines for Timesketch, which takes them as JSON and as CSV. Each begins with the three
// fields that it asks for.

#include "base/hv_time.h"
#include "recyclebin/forms/cell_text.h"
#include "recyclebin/forms/csv_line.h"
#include "recyclebin/forms/timeline.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/json_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/views.h"

#include <nlohmann/json.hpp>

namespace hv {

namespace {

using json = nlohmann::ordered_json;

// All fields, in the order of the columns.
constexpr const char *field_names[] = {"message",
                                       "datetime",
                                       "timestamp_desc",
                                       "timestamp",
                                       "data_type",
                                       "original_filename",
                                       "file_size",
                                       "user_sid",
                                       "username",
                                       "inode",
                                       "recyclebin_state",
                                       "recyclebin_data",
                                       "recyclebin_seen_in",
                                       "recyclebin_metadata_file",
                                       "recyclebin_data_file",
                                       "recyclebin_volume",
                                       "recyclebin_medium",
                                       "recyclebin_id"};

// Microseconds since 1970, rounded down.
i64 unix_microseconds(u64 filetime)
{
    constexpr i64 ticks_per_microsecond = 10;
    return static_cast<i64>(filetime / ticks_per_microsecond) -
           static_cast<i64>(unix_epoch_filetime / ticks_per_microsecond);
}

// Only the deletion itself is what timelines know under the established name: the times
// of its file may be of years before.
const char *data_type_for(timed_fact fact)
{
    switch (fact) {
    case timed_fact::deleted: return "windows:metadata:deleted_item";
    case timed_fact::logged: return "recyclebin:journal_line";
    default: return "recyclebin:data_item";
    }
}

void add_text(json &event, const char *name, const std::u16string &text)
{
    if (!text.empty()) event[name] = cell_text(text);
}

void add_number(json &event, const char *name, const std::optional<u64> &number)
{
    if (number) event[name] = *number;
}

void add_user(json &event, const deletion &item, const examination &found)
{
    add_text(event, "user_sid", item.user);
    if (item.volume >= found.regions.size()) return;
    const auto &names = found.regions[item.volume].user_names;
    const auto name = names.find(item.user);
    if (name != names.end()) add_text(event, "username", name->second);
}

json event_json(const timed_line &line, const listing &told,
                const volume_numbers &volumes)
{
    const deletion &item = *line.item;
    json event = {{"message", std::string(sentence_for(line.fact)) + ": " +
                                  cell_text(path_or_name(item))},
                  {"datetime", rfc3339(line.filetime).value_or("")},
                  {"timestamp_desc", timestamp_name(line.fact)},
                  {"timestamp", unix_microseconds(line.filetime)},
                  {"data_type", data_type_for(line.fact)}};
    add_text(event, "original_filename", item.path.value_or(u""));
    add_number(event, "file_size", size_of(item));
    add_user(event, item, told.found);
    add_number(event, "inode", entry_number(item));
    event["recyclebin_state"] = word_for(item.state);
    event["recyclebin_data"] = word_for(item.content);
    event["recyclebin_seen_in"] = places_of(item).text();
    add_text(event, "recyclebin_metadata_file", item.metadata_name);
    add_text(event, "recyclebin_data_file", item.data_name);
    add_number(event, "recyclebin_volume", volumes.number_of(item.volume));
    event["recyclebin_medium"] = cell_text_of_utf8(told.medium_name);
    event["recyclebin_id"] = item.id;
    return event;
}

std::string csv_cell(const json &event, const char *name)
{
    const auto found = event.find(name);
    if (found == event.end()) return {};
    return found->is_string() ? found->get<std::string>() : found->dump();
}

} // namespace

void write_timesketch_json(std::ostream &out, const listing &told,
                           const form_options & /*options*/)
{
    const volume_numbers volumes(told.found);
    for (const timed_line &line : timeline_of(told))
        out << json_text(event_json(line, told, volumes)) << '\n';
}

void write_timesketch_csv(std::ostream &out, const listing &told,
                          const form_options &options)
{
    const csv_dialect dialect{"\n", options.formula_safe};
    if (options.byte_order_mark) out << "\ufeff";
    std::vector<std::string> cells(std::begin(field_names), std::end(field_names));
    write_csv_line(out, cells, dialect);
    const volume_numbers volumes(told.found);
    for (const timed_line &line : timeline_of(told)) {
        const json event = event_json(line, told, volumes);
        cells.clear();
        for (const char *name : field_names) cells.push_back(csv_cell(event, name));
        write_csv_line(out, cells, dialect);
    }
}

} // namespace hv

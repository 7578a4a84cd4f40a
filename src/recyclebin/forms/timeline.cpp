#include "recyclebin/forms/timeline.h"

#include "recyclebin/moments.h"

#include <algorithm>

namespace hv {

namespace {

struct fact_texts {
    std::string_view name;
    std::string_view sentence;
    std::string_view macb;
};

// In the order of `timed_fact`. The names are those that timelines know already, where
// there is one. A deletion changes the record, so its letter is that of the change.
constexpr fact_texts texts_of_facts[] = {
    {"Content Deletion Time", "sent to the Recycle Bin", "..C."},
    {"Recycle Bin Entry Logged", "seen entering the Recycle Bin by the change journal",
     "...."},
    {"Creation Time", "deleted item created", "...B"},
    {"Content Modification Time", "deleted item modified", "M..."},
    {"Metadata Modification Time", "record of the deleted item changed", "..C."},
    {"Last Access Time", "deleted item last accessed", ".A.."}};

const fact_texts &texts_for(timed_fact fact)
{
    return texts_of_facts[static_cast<std::size_t>(fact)];
}

} // namespace

std::vector<timed_line> times_of(const deletion &item)
{
    const record_times &own = item.times;
    const u64 record_changed =
        own.record_changed != 0 ? own.record_changed : item.record_changed.value_or(0);
    std::vector<timed_line> lines = {
        {item.deleted.value_or(0), timed_fact::deleted, &item},
        {item.logged.value_or(0), timed_fact::logged, &item},
        {own.created, timed_fact::created, &item},
        {own.modified, timed_fact::modified, &item},
        {record_changed, timed_fact::record_changed, &item},
        {own.accessed, timed_fact::accessed, &item}};
    std::erase_if(lines,
                  [](const timed_line &line) { return !rfc3339(line.filetime); });
    return lines;
}

std::vector<timed_line> timeline_of(const listing &told)
{
    std::vector<timed_line> lines;
    for (const deletion *item : told.items)
        for (const timed_line &line : times_of(*item)) lines.push_back(line);
    std::ranges::stable_sort(lines, {}, &timed_line::filetime);
    return lines;
}

bool is_own_time(timed_fact fact)
{
    return fact >= timed_fact::created;
}

std::string_view timestamp_name(timed_fact fact)
{
    return texts_for(fact).name;
}

std::string_view sentence_for(timed_fact fact)
{
    return texts_for(fact).sentence;
}

std::string_view macb_for(timed_fact fact)
{
    return texts_for(fact).macb;
}

const std::u16string &path_or_name(const deletion &item)
{
    if (item.path) return *item.path;
    return item.data_name.empty() ? item.metadata_name : item.data_name;
}

std::optional<u64> entry_number(const deletion &item)
{
    const auto &entry = item.data_entry ? item.data_entry : item.metadata_entry;
    return entry ? std::optional(entry->entry) : std::nullopt;
}

std::optional<u64> size_of(const deletion &item)
{
    return item.stated_size ? item.stated_size : item.found_size;
}

} // namespace hv

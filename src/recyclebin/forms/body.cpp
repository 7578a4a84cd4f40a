// Body files of the Sleuth Kit 3 and later: lines of eleven cells with "|" between
// them.

#include "base/hv_time.h"
#include "recyclebin/forms/cell_text.h"
#include "recyclebin/forms/timeline.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/moments.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

// Accessed, modified, changed, created: seconds since 1970.
using body_times = std::array<u64, 4>;

// Seconds since 1970; 0, which means "no time" here as well, for what is before, and
// for years that no reader can show.
u64 unix_seconds(u64 filetime)
{
    if (filetime < unix_epoch_filetime || !rfc3339(filetime)) return 0;
    return (filetime - unix_epoch_filetime) / ticks_per_second;
}

// Readers join lines of the same name, so each name has to be of one deletion and fact.
std::string name_cell(const deletion &item, std::string_view what)
{
    std::string name = cell_text(path_or_name(item), "|");
    name.append(" (").append(what);
    for (const std::u16string &part : {item.metadata_name, item.data_name, item.user})
        if (!part.empty()) name += ", " + cell_text(part, "|");
    return name + ", id " + item.id + ")";
}

void write_line(std::ostream &out, const deletion &item, std::string_view what,
                const body_times &times)
{
    const bool is_known = item.is_directory || item.data_entry;
    out << "0|" << name_cell(item, what) << '|' << entry_number(item).value_or(0) << '|'
        << (item.is_directory ? 'd'
            : is_known        ? 'r'
                              : '-')
        << "/----------|0|0|" << size_of(item).value_or(0);
    for (const u64 time : times) out << '|' << time;
    out << '\n';
}

body_times own_times(const deletion &item)
{
    return {unix_seconds(item.times.accessed), unix_seconds(item.times.modified),
            unix_seconds(item.times.record_changed), unix_seconds(item.times.created)};
}

// Readers show a cell of 0 as a line without a date, so all four times of a line are
// the one that it is about. Only a line with the four times of a record has several.
void write_deletion(std::ostream &out, const deletion &item)
{
    const body_times own = own_times(item);
    const bool has_four = std::ranges::find(own, 0u) == own.end();
    for (const timed_line &line : times_of(item)) {
        const u64 time = unix_seconds(line.filetime);
        if (time == 0 || (is_own_time(line.fact) && has_four)) continue;
        write_line(out, item, sentence_for(line.fact), {time, time, time, time});
    }
    if (has_four) write_line(out, item, "own times of the deleted item", own);
}

} // namespace

void write_body(std::ostream &out, const listing &told,
                const form_options & /*options*/)
{
    for (const deletion *item : told.items) write_deletion(out, *item);
}

} // namespace hv

#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/run_context.h"
#include "recyclebin/text_table.h"

#include <algorithm>

namespace hv {

namespace {

// How many deletions the bin of a volume held in one view, and how many in that alone.
struct bin_count {
    u64 rows = 0;
    u64 only_here = 0;
};

bin_count count_bin(const std::vector<const deletion *> &items, u32 region, u32 view,
                    u32 last_view)
{
    bin_count count;
    for (const deletion *item : items) {
        if (item->volume != region || !was_in_bin(*item, view)) continue;
        ++count.rows;
        u32 views = 0;
        for (u32 other = view_now; other <= last_view; ++other)
            views += was_in_bin(*item, other);
        count.only_here += views == 1;
    }
    return count;
}

} // namespace

exit_status run_snapshots(std::ostream &out, const run_context &context)
{
    const cell_side right = cell_side::right;
    text_table table({{"VOLUME"},
                      {"SNAPSHOT", right},
                      {"CREATED (UTC)"},
                      {"ROWS", right},
                      {"ONLY HERE", right}});
    const volume_numbers volumes(context.found);
    const auto &wanted = context.line.wanted.volume;
    const std::vector<const deletion *> items = context.selected();
    bool is_empty = true;
    for (u32 region = 0; region < context.found.regions.size(); ++region) {
        const std::vector<u64> &times = context.found.regions[region].snapshots;
        if (wanted && volumes.number_of(region) != wanted) continue;
        const auto last_view = static_cast<u32>(times.size());
        for (u32 view = 1; view <= last_view; ++view) {
            const bin_count count = count_bin(items, region, view, last_view);
            table.add_row({volumes.text(region), std::to_string(view),
                           short_moment(times[view - 1]), grouped(count.rows),
                           grouped(count.only_here)});
            is_empty = false;
        }
    }
    if (is_empty) return exit_status::no_rows;
    table.write(out, terminal_width());
    return exit_status::rows;
}

} // namespace hv

#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/run_context.h"
#include "recyclebin/text_table.h"

namespace hv {

namespace {

std::string view_text(u32 view)
{
    return view == view_now ? "now" : "snapshot " + std::to_string(view);
}

// Why an item that one of the two views has isn't in the other.
std::string change_text(const deletion &item, u32 to, bool is_new)
{
    if (is_new) return "not in the bin before";
    if (to == view_now && item.state == deletion_state::restored)
        return "restored to " + escaped(item.outside_path);
    return to == view_now ? "gone now" : "gone in " + view_text(to);
}

bool has_view(const run_context &context, u32 view)
{
    return view == view_now || context.snapshots().contains(view);
}

} // namespace

exit_status run_diff(std::ostream &out, const run_context &context)
{
    const u32 from = *context.line.from;
    const u32 to = *context.line.to;
    if (context.found.is_cut_short) {
        complain("nothing is compared: not all was read");
        return exit_status::partly;
    }
    for (const u32 view : {from, to}) {
        if (has_view(context, view)) continue;
        complain("there is no " + view_text(view));
        return exit_status::usage;
    }
    text_table table({{""},
                      {"VOLUME"},
                      {"DELETED (UTC)"},
                      {"SIZE", cell_side::right},
                      {"CHANGE"},
                      {"PATH"}});
    const volume_numbers volumes(context.found);
    bool is_empty = true;
    for (const deletion *item : context.selected()) {
        const bool was_before = was_in_bin(*item, from);
        if (was_before == was_in_bin(*item, to)) continue;
        table.add_row({was_before ? "-" : "+", volumes.text(item->volume),
                       deleted_text(*item), size_text(*item),
                       change_text(*item, to, !was_before), path_text(*item)});
        is_empty = false;
    }
    if (is_empty) return exit_status::no_rows;
    table.write(out, terminal_width());
    return exit_status::rows;
}

} // namespace hv

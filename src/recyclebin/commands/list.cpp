#include "recyclebin/evidence_text.h"
#include "recyclebin/run_context.h"

#include <cstdio>

namespace hv {

namespace {

// "10 rows of 2 users: 8 in the bin, 2 emptied from the bin"
std::string closing_text(const std::vector<const deletion *> &items)
{
    std::set<std::u16string> users;
    std::map<deletion_state, u64> states;
    for (const deletion *item : items) {
        if (!item->user.empty()) users.insert(item->user);
        ++states[item->state];
    }
    std::string text = counted(items.size(), "row");
    if (!users.empty()) text += " of " + counted(users.size(), "user");
    const char *separator = ": ";
    for (const auto &[state, count] : states) {
        text += separator + grouped(count) + " " + std::string(sentence_for(state));
        separator = ", ";
    }
    return text;
}

} // namespace

exit_status run_list(const std::vector<std::ostream *> &outs,
                     const run_context &context)
{
    const u32 view = context.line.wanted.at.value_or(view_now);
    const bool may_have_it = view == view_now || context.found.is_cut_short;
    if (!may_have_it && !context.snapshots().contains(view)) {
        complain("there is no snapshot " + std::to_string(view) +
                 "; the command \"snapshots\" lists those that there are");
        return exit_status::usage;
    }
    const opened_medium &source = context.input.source();
    const listing told{context.found,       context.selected(), *context.medium,
                       context.line.medium, source.description, context.input.access(),
                       context.line.carve};
    for (std::size_t at = 0; at < outs.size(); ++at) {
        const form &how = *context.line.outputs[at].how;
        how.write(*outs[at], told, context.line.how_to_write);
        outs[at]->flush();
    }
    std::fprintf(stderr, "%s; %s\n", closing_text(told.items).c_str(),
                 context.unread_text().c_str());
    return told.items.empty() ? exit_status::no_rows : exit_status::rows;
}

} // namespace hv

#include "recyclebin/deletion_json.h"
#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/run_context.h"
#include "recyclebin/text_table.h"

#include <cstdio>

namespace hv {

namespace {

using item_list = std::vector<const deletion *>;

// The last numbers of SIDs say who is who, unless two users share one.
std::string user_text(const deletion &item, const std::map<std::u16string, int> &owners)
{
    if (item.user.empty()) return "-";
    const std::u16string short_name(short_user(item.user));
    return escaped(owners.at(short_name) > 1 ? item.user : short_name);
}

// How many users have each short name.
std::map<std::u16string, int> count_owners(const item_list &items)
{
    std::set<std::u16string> users;
    for (const deletion *item : items) users.insert(item->user);
    std::map<std::u16string, int> owners;
    for (const std::u16string &user : users) ++owners[std::u16string(short_user(user))];
    return owners;
}

void write_table(std::ostream &out, const item_list &items, const examination &found)
{
    const cell_side right = cell_side::right;
    text_table table({{"VOLUME"},
                      {"DELETED (UTC)"},
                      {"SIZE", right},
                      {"USER", right},
                      {"DATA"},
                      {"SEEN IN"},
                      {"PATH"}});
    const volume_numbers volumes(found);
    const auto owners = count_owners(items);
    for (const deletion *item : items)
        table.add_row({volumes.text(item->volume), deleted_text(*item),
                       size_text(*item), user_text(*item, owners), data_text(*item),
                       places_of(*item).text(), path_text(*item)});
    if (!items.empty()) table.write(out, terminal_width());
}

void write_stories(std::ostream &out, const item_list &items)
{
    for (std::size_t at = 0; at < items.size(); ++at) {
        if (at > 0) out << '\n';
        write_story(out, *items[at]);
    }
}

// "10 rows of 2 users: 8 in the bin, 2 emptied from the bin"
std::string closing_text(const item_list &items)
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

exit_status run_list(std::ostream &out, const run_context &context)
{
    const u32 view = context.line.wanted.at.value_or(view_now);
    if (view != view_now && !context.snapshots().contains(view)) {
        complain("there is no snapshot " + std::to_string(view) +
                 "; the command \"snapshots\" lists those that there are");
        return exit_status::usage;
    }
    const item_list items = context.selected();
    switch (context.line.form) {
    case list_form::table: write_table(out, items, context.found); break;
    case list_form::story: write_stories(out, items); break;
    case list_form::json_lines:
        for (const deletion *item : items)
            out << deletion_json(*item, context.found, *context.medium) << '\n';
        break;
    }
    out.flush();
    std::fprintf(stderr, "%s; %s\n", closing_text(items).c_str(),
                 context.unread_text().c_str());
    return items.empty() ? exit_status::no_rows : exit_status::rows;
}

} // namespace hv

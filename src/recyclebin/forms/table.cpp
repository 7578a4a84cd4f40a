#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/selection.h"
#include "recyclebin/text_table.h"

namespace hv {

namespace {

using item_list = std::vector<const deletion *>;

// The users that each short text stands for.
using user_index = std::map<std::u16string_view, std::set<std::u16string_view>>;

// Names, or the last numbers of SIDs, say who is who, unless two users share one.
std::string user_text(const deletion &item, const user_index &users)
{
    if (item.user.empty()) return "-";
    const std::u16string_view text = shown_user(item);
    return escaped(users.at(text).size() > 1 ? std::u16string_view(item.user) : text);
}

user_index users_of(const item_list &items)
{
    user_index users;
    for (const deletion *item : items) users[shown_user(*item)].insert(item->user);
    return users;
}

} // namespace

void write_table(std::ostream &out, const listing &told,
                 const form_options & /*options*/)
{
    const cell_side right = cell_side::right;
    text_table table({{"VOLUME"},
                      {"DELETED (UTC)"},
                      {"SIZE", right},
                      {"USER", right},
                      {"DATA"},
                      {"SEEN IN"},
                      {"PATH"}});
    const volume_numbers volumes(told.found);
    const user_index users = users_of(told.items);
    for (const deletion *item : told.items)
        table.add_row({volumes.text(item->volume), deleted_text(*item),
                       size_text(*item), user_text(*item, users), data_text(*item),
                       places_of(*item).text(), path_text(*item)});
    if (!told.items.empty()) table.write(out, terminal_width());
}

void write_stories(std::ostream &out, const listing &told,
                   const form_options & /*options*/)
{
    for (std::size_t at = 0; at < told.items.size(); ++at) {
        if (at > 0) out << '\n';
        write_story(out, *told.items[at]);
    }
}

} // namespace hv

#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/selection.h"
#include "recyclebin/text_table.h"

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
    const auto owners = count_owners(told.items);
    for (const deletion *item : told.items)
        table.add_row({volumes.text(item->volume), deleted_text(*item),
                       size_text(*item), user_text(*item, owners), data_text(*item),
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

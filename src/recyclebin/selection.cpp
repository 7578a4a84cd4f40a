#include "recyclebin/selection.h"

#include "recyclebin/evidence_text.h"

#include <algorithm>

namespace hv {

namespace {

template <class List, class Test> bool is_empty_or_any(const List &list, Test test)
{
    return list.empty() || std::any_of(list.begin(), list.end(), test);
}

bool is_in_time(const deletion &item, const selection &wanted)
{
    if (!wanted.since && !wanted.until) return true;
    return item.deleted && (!wanted.since || *item.deleted >= *wanted.since) &&
           (!wanted.until || *item.deleted <= *wanted.until);
}

bool is_of_user(const deletion &item, const std::u16string &user)
{
    return equal_ignoring_case(item.user, user) ||
           (!user.empty() && equal_ignoring_case(item.user_name.name, user)) ||
           equal_ignoring_case(short_user(item.user), user);
}

// Patterns may be written with "/", which no path of Windows holds.
bool has_path_like(const deletion &item, std::u16string pattern)
{
    std::replace(pattern.begin(), pattern.end(), u'/', u'\\');
    return item.path && matches_glob(*item.path, pattern);
}

} // namespace

std::u16string_view short_user(std::u16string_view user)
{
    if (!user.starts_with(u"S-1-")) return user;
    return user.substr(user.rfind(u'-') + 1);
}

std::u16string_view shown_user(const deletion &item)
{
    return item.user_name.name.empty() ? short_user(item.user)
                                       : std::u16string_view(item.user_name.name);
}

bool is_selected(const deletion &item, const selection &wanted,
                 const volume_numbers &volumes)
{
    const seen_places places = places_of(item);
    return is_in_time(item, wanted) &&
           is_empty_or_any(wanted.users,
                           [&](const auto &user) { return is_of_user(item, user); }) &&
           is_empty_or_any(
               wanted.paths,
               [&](const auto &path) { return has_path_like(item, path); }) &&
           is_empty_or_any(wanted.states,
                           [&](deletion_state state) { return state == item.state; }) &&
           is_empty_or_any(wanted.seen_in,
                           [&](seen_place place) { return places.holds(place); }) &&
           (!wanted.at || was_in_bin(item, *wanted.at)) &&
           (!wanted.volume || volumes.number_of(item.volume) == wanted.volume);
}

} // namespace hv

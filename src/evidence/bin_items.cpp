#include "evidence/bin_items.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

char16_t lower(char16_t unit)
{
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
}

bool equal(std::u16string_view a, std::u16string_view b)
{
    return std::ranges::equal(a, b, {}, lower, lower);
}

bool is_digit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

bool is_letter(char16_t unit)
{
    return lower(unit) >= u'a' && lower(unit) <= u'z';
}

// "D", a drive's letter, and digits up to an extension or the end. Network paths have
// what follows "z" for a letter.
bool is_listed_data(std::u16string_view name)
{
    if (name.size() < 3 || lower(name[0]) != u'd') return false;
    if (!is_letter(name[1]) && name[1] != u'{' && name[1] != u'@') return false;
    std::size_t end = 2;
    while (end < name.size() && is_digit(name[end])) ++end;
    return end > 2 && (end == name.size() || name[end] == u'.');
}

} // namespace

bin_name_kind kind_of_name(std::u16string_view name)
{
    if (name.size() > 2 && name[0] == u'$' && lower(name[1]) == u'i')
        return bin_name_kind::metadata;
    if (name.size() > 2 && name[0] == u'$' && lower(name[1]) == u'r')
        return bin_name_kind::data;
    if (equal(name, u"INFO2") || equal(name, u"INFO")) return bin_name_kind::list;
    return is_listed_data(name) ? bin_name_kind::listed_data : bin_name_kind::other;
}

bool is_data_name(const sighting &seen)
{
    const bin_name_kind kind = kind_of_name(seen.name);
    return kind == bin_name_kind::data || kind == bin_name_kind::listed_data;
}

bool shows_metadata(const sighting &seen)
{
    if (seen.kind == sighting_kind::index_name)
        return kind_of_name(seen.name) == bin_name_kind::metadata;
    return seen.kind == sighting_kind::metadata &&
           !(seen.metadata && seen.metadata->is_struck);
}

bool shows_data(const sighting &seen)
{
    return seen.kind == sighting_kind::data_item ||
           (seen.kind == sighting_kind::index_name && is_data_name(seen));
}

bool is_made_by_windows(std::u16string_view name)
{
    constexpr std::size_t prefix = 2, id = 6;
    const bin_name_kind kind = kind_of_name(name);
    if (kind != bin_name_kind::metadata && kind != bin_name_kind::data) return false;
    if (name.size() < prefix + id) return false;
    const bool has_id = std::ranges::all_of(name.substr(prefix, id), [](char16_t unit) {
        return is_digit(unit) || (unit >= u'A' && unit <= u'Z');
    });
    return has_id && (name.size() == prefix + id || name[prefix + id] == u'.');
}

std::u16string item_of_name(std::u16string_view name)
{
    const bin_name_kind kind = kind_of_name(name);
    const bool prefixed =
        kind == bin_name_kind::metadata || kind == bin_name_kind::data;
    return std::u16string(name.substr(prefixed ? 2 : 0));
}

std::u16string listed_data_name(u32 drive, u32 number, std::u16string_view path)
{
    std::u16string name = u"D";
    name += static_cast<char16_t>(u'a' + drive % 27);
    for (const char digit : std::to_string(number))
        name += static_cast<char16_t>(digit);
    const std::size_t dot = path.find_last_of(u".\\");
    if (dot != std::u16string_view::npos && path[dot] == u'.') name += path.substr(dot);
    return name;
}

bool is_bin_folder(std::u16string_view name)
{
    static constexpr std::array<std::u16string_view, 3> bins = {
        u"$Recycle.Bin", u"RECYCLER", u"RECYCLED"};
    return std::ranges::any_of(
        bins, [&](std::u16string_view bin) { return equal(name, bin); });
}

bool is_user_folder(std::u16string_view name)
{
    return name.size() > 4 && equal(name.substr(0, 4), u"S-1-") && is_digit(name[4]);
}

} // namespace hv

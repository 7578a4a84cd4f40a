#include "recyclebin/json_text.h"

#include "recyclebin/evidence_text.h"

#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace hv {

namespace {

using json = nlohmann::ordered_json;

// In a string that was read, this unit and four digits stand for half a surrogate pair,
// and two of this unit for one.
constexpr char16_t mark = 0xffff;
constexpr std::size_t escape_length = 6; // "\ud83d"

void append_string(std::string &out, std::string_view text)
{
    out += '"';
    std::u16string_view rest;
    const std::u16string units = from_lossless_utf8(text);
    for (rest = units; !rest.empty();) {
        const std::u16string_view one = rest.substr(0, code_point_units(rest));
        rest.remove_prefix(one.size());
        if (one == u"\"" || one == u"\\") out += '\\';
        if (one.size() == 1 && is_hidden(one[0])) {
            char escape[escape_length + 1];
            std::snprintf(escape, sizeof escape, "\\u%04x", unsigned{one[0]});
            out += escape;
        } else {
            out += to_lossless_utf8(one);
        }
    }
    out += '"';
}

void append_value(std::string &out, const json &value)
{
    if (value.is_string())
        return append_string(out, value.get_ref<const std::string &>());
    if (!value.is_structured()) {
        out += value.dump();
        return;
    }
    const char *separator = "";
    out += value.is_object() ? '{' : '[';
    for (const auto &item : value.items()) {
        out += separator;
        separator = ",";
        if (value.is_object()) {
            append_string(out, item.key());
            out += ':';
        }
        append_value(out, item.value());
    }
    out += value.is_object() ? '}' : ']';
}

// The unit of an escape that begins here, such as "\ud83d".
bool read_escape(std::string_view text, unsigned &unit)
{
    if (text.size() < escape_length || !text.starts_with("\\u")) return false;
    const char *end = text.data() + escape_length;
    return std::from_chars(text.data() + 2, end, unit, 16).ptr == end;
}

bool is_surrogate(unsigned unit, unsigned first)
{
    return unit >= first && unit < first + 0x400;
}

// The escape that begins here in the form that nlohmann::json reads, and how long it
// is.
std::string marked_escape(std::string_view text, std::size_t &length)
{
    unsigned unit = 0, next = 0;
    length = 2;
    if (!read_escape(text, unit)) return std::string(text.substr(0, length));
    length = escape_length;
    const std::string escape(text.substr(0, length));
    if (unit == mark) return escape + escape;
    if (is_surrogate(unit, 0xd800) && read_escape(text.substr(length), next) &&
        is_surrogate(next, 0xdc00)) {
        length *= 2;
        return std::string(text.substr(0, length));
    }
    const bool is_half = is_surrogate(unit, 0xd800) || is_surrogate(unit, 0xdc00);
    return is_half ? "\\uffff" + escape.substr(2) : escape;
}

} // namespace

std::string json_text(const json &value)
{
    std::string out;
    append_value(out, value);
    return out;
}

bool parse_json(json &value, std::string_view line)
{
    std::string marked;
    while (!line.empty()) {
        std::size_t length = std::min(line.find('\\'), line.size());
        marked += line.substr(0, length);
        line.remove_prefix(length);
        if (line.empty()) break;
        marked += marked_escape(line, length);
        line.remove_prefix(std::min(length, line.size()));
    }
    // The library copies what is nested by calling itself, as deep as that is.
    constexpr int max_depth = 64;
    bool is_shallow = true;
    value = json::parse(
        marked,
        [&is_shallow](int depth, json::parse_event_t, const json &) {
            is_shallow = is_shallow && depth <= max_depth;
            return is_shallow;
        },
        false);
    return is_shallow && !value.is_discarded();
}

std::u16string text_of(const json &value)
{
    if (!value.is_string()) return {};
    const std::u16string units =
        from_lossless_utf8(value.get_ref<const std::string &>());
    std::u16string text;
    for (std::size_t at = 0; at < units.size(); ++at) {
        unsigned half = 0;
        const std::string digits =
            escaped(std::u16string_view(units).substr(at + 1, 4));
        if (units[at] != mark) {
            text += units[at];
        } else if (digits.size() == 4 &&
                   std::from_chars(digits.data(), digits.data() + 4, half, 16).ptr ==
                       digits.data() + 4) {
            text += static_cast<char16_t>(half);
            at += 4;
        } else {
            text += mark;
            ++at;
        }
    }
    return text;
}

} // namespace hv

#include "base/hv_filter.h"

#include "base/hv_fileio.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <algorithm>

namespace hv {

namespace {

// Removes every star from `text` and notes those at the two ends.
void take_stars(std::wstring &text, bool &star_front, bool &star_back)
{
    for (std::size_t at = text.find(L'*'); at != std::wstring::npos;
         at = text.find(L'*', at)) {
        if (at == 0) star_front = true;
        if (at + 1 == text.size()) star_back = true;
        text.erase(at, 1);
    }
}

filter_item item_of_piece(const std::wstring &piece)
{
    filter_item item;
    item.pattern_text = piece;
    item.name_text = piece;
    const std::size_t colon = piece.find(L':');
    if (colon != std::wstring::npos) {
        item.has_stream = true;
        item.stream_text = piece.substr(colon + 1);
        item.name_text.erase(colon);
        item.stream_all = item.stream_text == L"*";
        if (!item.stream_all)
            take_stars(item.stream_text, item.stream_star_front, item.stream_star_back);
    }
    item.match_all = item.name_text == L"*";
    if (item.match_all) return item;
    take_stars(item.name_text, item.star_front, item.star_back);
    item.is_path = item.name_text.starts_with(L'/');
    return item;
}

std::vector<std::string> signature_pieces(const std::string &text)
{
    std::vector<std::string> pieces;
    const char delimiter = text.find('|') != std::string::npos ? '|' : ',';
    split(text, delimiter, pieces, piece_blanks::trim, empty_pieces::keep);
    return pieces;
}

bool parse_hex_bytes(const std::string &text, std::vector<u8> &bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    bytes.clear();
    if (text.size() % 2 != 0) return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const std::size_t high = digits.find(lower_char(text[i]));
        const std::size_t low = digits.find(lower_char(text[i + 1]));
        if (high == std::string_view::npos || low == std::string_view::npos)
            return false;
        bytes.push_back(static_cast<u8>(high << 4 | low));
    }
    return true;
}

// A path pattern matches where it ends at the end of a component of the path.
bool hits_component_end(std::wstring_view path, std::wstring_view pattern)
{
    for (std::size_t at = path.find(pattern); at != std::wstring_view::npos;
         at = path.find(pattern, at + 1)) {
        const std::size_t end = at + pattern.size();
        if (end == path.size() || path[end] == L'/') return true;
    }
    return false;
}

bool hits_path(std::wstring path, const filter_item &item)
{
    if (hits_component_end(path, item.name_text)) return true;
    std::ranges::replace(path, L'\\', L'/');
    return hits_component_end(path, item.name_text);
}

bool has_signature(std::wstring_view path, const filter_item &item)
{
    uni::fileio file;
    std::vector<u8> bytes;
    return !item.signature.empty() && file.open(path, uni::open_mode::read) &&
           file.read_vector(bytes, item.signature.size(), item.signature_offset) &&
           bytes == item.signature;
}

bool hits_name(std::wstring_view name, const filter_item &item)
{
    if (item.match_all) return true;
    const std::wstring_view text = item.name_text;
    if (item.star_front && item.star_back)
        return name.find(text) != std::wstring_view::npos;
    if (item.star_front) return name.ends_with(text);
    if (item.star_back) return name.starts_with(text);
    return name == text;
}

} // namespace

void parse_filter(std::vector<filter_item> &list, std::string_view text)
{
    list.clear();
    const std::wstring all = uni::to_wide(lower_copy(text));
    const wchar_t delimiter = all.find(L'|') != std::wstring::npos ? L'|' : L',';
    std::vector<std::wstring> pieces;
    if (all.find(delimiter) == std::wstring::npos) {
        pieces.push_back(all);
        trim(pieces.front());
    } else {
        split(all, delimiter, pieces, piece_blanks::trim, empty_pieces::drop);
    }
    for (const std::wstring &piece : pieces) {
        if (piece == L"*") list.clear();
        list.push_back(item_of_piece(piece));
        if (piece == L"*") return;
    }
}

filter_item parse_signature_filter(std::string_view text)
{
    filter_item item;
    const std::string value(text);
    item.pattern_text = uni::to_wide(lower_copy(text));
    const std::vector<std::string> pieces = signature_pieces(value);
    if (pieces.empty() || !parse_hex_bytes(pieces[0], item.signature))
        item.signature.clear();
    if (pieces.size() > 1) parse_u64(pieces[1], item.signature_offset);
    return item;
}

bool time_window::holds(const file_times &times) const
{
    if (start_set && times.modified < start && times.changed < start) return false;
    return !stop_set || (times.modified <= stop && times.changed <= stop);
}

bool filter_passes_wide(std::wstring_view path, const std::vector<filter_item> &list)
{
    if (list.empty() || (list.size() == 1 && list[0].match_all)) return true;
    if (path.empty()) return false;
    std::wstring lower(path);
    to_lower(lower);
    const std::size_t backslash = lower.rfind(L'\\');
    const std::size_t cut =
        backslash != std::wstring::npos ? backslash : lower.rfind(L'/');
    const std::wstring_view name = std::wstring_view(lower).substr(cut + 1);
    return std::ranges::any_of(list, [&](const filter_item &item) {
        return (item.is_path && hits_path(lower, item)) || hits_name(name, item) ||
               has_signature(path, item);
    });
}

bool filter_passes(std::string_view utf8_path, const std::vector<filter_item> &list)
{
    if (utf8_path.empty()) return false;
    if (list.empty()) return true;
    return filter_passes_wide(uni::to_wide(utf8_path), list);
}

} // namespace hv

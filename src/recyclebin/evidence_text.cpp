#include "recyclebin/evidence_text.h"

#include <algorithm>
#include <cstdio>

namespace hv {

namespace {

constexpr char32_t replacement = 0xfffd;

bool is_high_surrogate(char32_t c)
{
    return c >= 0xd800 && c < 0xdc00;
}

bool is_low_surrogate(char32_t c)
{
    return c >= 0xdc00 && c < 0xe000;
}

// Takes the next code point off the front; half of a pair is one of its own.
char32_t take_code_point(std::u16string_view &text)
{
    const std::size_t units = code_point_units(text);
    const char32_t first = text[0];
    const char32_t second = units == 2 ? text[1] : 0;
    text.remove_prefix(units);
    return units == 1 ? first : 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
}

void append_utf8(std::string &out, char32_t c)
{
    const auto add = [&out](char32_t byte) { out += static_cast<char>(byte); };
    const auto add_tail = [&](unsigned shift) { add(0x80 | (c >> shift & 0x3f)); };
    if (c < 0x80) return add(c);
    if (c < 0x800) {
        add(0xc0 | c >> 6);
        return add_tail(0);
    }
    if (c < 0x10000) {
        add(0xe0 | c >> 12);
        add_tail(6);
        return add_tail(0);
    }
    add(0xf0 | c >> 18);
    add_tail(12);
    add_tail(6);
    add_tail(0);
}

// How many bytes the sequence has that begins with this one; 0 if none does.
std::size_t sequence_length(unsigned char first)
{
    if (first < 0x80) return 1;
    if (first >= 0xc2 && first < 0xe0) return 2;
    if (first >= 0xe0 && first < 0xf0) return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

// Takes the next character off the front. False, with one byte taken, where there is
// none. Three bytes that stand for half a surrogate pair are a character.
bool take_utf8(std::string_view &text, char32_t &c)
{
    const auto byte_at = [&text](std::size_t at) {
        return static_cast<unsigned char>(text[at]);
    };
    const std::size_t length = sequence_length(byte_at(0));
    c = byte_at(0);
    bool is_good = length > 0 && length <= text.size();
    if (is_good && length > 1) c &= 0xffu >> (length + 1);
    for (std::size_t at = 1; is_good && at < length; ++at) {
        is_good = (byte_at(at) & 0xc0) == 0x80;
        c = c << 6 | (byte_at(at) & 0x3f);
    }
    constexpr char32_t min_of_length[] = {0, 0, 0x80, 0x800, 0x10000};
    is_good = is_good && c >= min_of_length[length] && c <= 0x10ffff;
    if (!is_good) c = byte_at(0);
    text.remove_prefix(is_good ? length : 1);
    return is_good;
}

struct code_range {
    char32_t first;
    char32_t last;
};

template <std::size_t Count> bool holds(const code_range (&ranges)[Count], char32_t c)
{
    return std::any_of(ranges, ranges + Count, [c](const code_range &range) {
        return c >= range.first && c <= range.last;
    });
}

void append_escaped(std::string &out, char32_t c)
{
    if (!is_hidden(c)) return append_utf8(out, c);
    const char *format = c < 0x100 ? "\\x%02x" : c < 0x10000 ? "\\u%04x" : "\\U%08x";
    char text[16];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(c));
    out += text;
}

// Columns of one character of an escaped text.
std::size_t width_of(char32_t c)
{
    static constexpr code_range none[] = {
        {0x300, 0x36f},   {0x483, 0x489},   {0x591, 0x5bd},   {0x64b, 0x65f},
        {0x1ab0, 0x1aff}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}};
    static constexpr code_range two[] = {
        {0x1100, 0x115f},   {0x2e80, 0xa4cf},   {0xac00, 0xd7a3},  {0xf900, 0xfaff},
        {0xfe30, 0xfe6f},   {0xff00, 0xff60},   {0xffe0, 0xffe6},  {0x1f300, 0x1f64f},
        {0x1f680, 0x1f6ff}, {0x1f900, 0x1f9ff}, {0x20000, 0x3fffd}};
    if (c < 0x300 || holds(none, c)) return c < 0x300 ? 1 : 0;
    return holds(two, c) ? 2 : 1;
}

} // namespace

bool is_hidden(char32_t code_point)
{
    static constexpr code_range hidden[] = {
        {0, 0x1f},          {0x7f, 0x9f},       {0xad, 0xad},     {0x61c, 0x61c},
        {0x180e, 0x180e},   {0x200b, 0x200f},   {0x2028, 0x202e}, {0x2060, 0x206f},
        {0xd800, 0xdfff},   {0xfeff, 0xfeff},   {0xfff0, 0xfffb}, {0xfffe, 0xffff},
        {0xe0000, 0xe0fff}, {0xf0000, 0x10ffff}};
    return holds(hidden, code_point);
}

std::size_t code_point_units(std::u16string_view text)
{
    const bool is_pair =
        text.size() > 1 && is_high_surrogate(text[0]) && is_low_surrogate(text[1]);
    return is_pair ? 2 : 1;
}

std::string escaped(std::u16string_view text)
{
    std::string out;
    while (!text.empty()) append_escaped(out, take_code_point(text));
    return out;
}

std::string escaped(std::string_view utf8)
{
    std::string out;
    char32_t c = 0;
    while (!utf8.empty()) {
        if (take_utf8(utf8, c)) {
            append_escaped(out, c);
            continue;
        }
        char text[8];
        std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(c));
        out += text;
    }
    return out;
}

std::string to_lossless_utf8(std::u16string_view text)
{
    std::string out;
    while (!text.empty()) append_utf8(out, take_code_point(text));
    return out;
}

std::u16string from_lossless_utf8(std::string_view text)
{
    std::u16string out;
    char32_t c = 0;
    while (!text.empty()) {
        if (!take_utf8(text, c)) c = replacement;
        if (c < 0x10000) {
            out += static_cast<char16_t>(c);
            continue;
        }
        out += static_cast<char16_t>(0xd800 + ((c - 0x10000) >> 10));
        out += static_cast<char16_t>(0xdc00 + ((c - 0x10000) & 0x3ff));
    }
    return out;
}

std::size_t display_width(std::string_view escaped_text)
{
    std::size_t width = 0;
    char32_t c = 0;
    while (!escaped_text.empty()) {
        take_utf8(escaped_text, c);
        width += width_of(c);
    }
    return width;
}

std::string fit_end(std::string_view escaped_text, std::size_t columns)
{
    std::size_t width = display_width(escaped_text);
    if (width <= columns) return std::string(escaped_text);
    char32_t c = 0;
    while (!escaped_text.empty() && width + 1 > columns) {
        take_utf8(escaped_text, c);
        width -= width_of(c);
    }
    return "\u2026" + std::string(escaped_text);
}

std::string grouped(u64 number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;) digits.insert(at -= 3, ",");
    return digits;
}

std::string counted(u64 count, std::string_view noun)
{
    return grouped(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

char16_t lower_unit(char16_t unit)
{
    const auto within = [unit](char16_t first, char16_t last) {
        return unit >= first && unit <= last;
    };
    const auto plus = [unit](int distance) {
        return static_cast<char16_t>(unit + distance);
    };
    if (within(u'A', u'Z')) return plus(0x20);
    if (within(0xc0, 0xde) && unit != 0xd7) return plus(0x20);
    if (within(0x100, 0x137) || within(0x14a, 0x177)) return unit | 1;
    if (within(0x139, 0x148) || within(0x179, 0x17e)) return plus(unit & 1);
    if (within(0x391, 0x3ab)) return plus(0x20);
    if (within(0x410, 0x42f)) return plus(0x20);
    return within(0x400, 0x40f) ? plus(0x50) : unit;
}

bool equal_ignoring_case(std::u16string_view a, std::u16string_view b)
{
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(),
        [](char16_t x, char16_t y) { return lower_unit(x) == lower_unit(y); });
}

bool matches_glob(std::u16string_view path, std::u16string_view pattern)
{
    std::size_t at = 0;
    std::size_t in_pattern = 0;
    std::size_t star = std::u16string_view::npos; // the last one passed
    std::size_t after_star = 0;                   // where its text ends for now
    while (at < path.size()) {
        if (in_pattern < pattern.size() && pattern[in_pattern] == u'*') {
            star = in_pattern++;
            after_star = at;
        } else if (in_pattern < pattern.size() &&
                   (pattern[in_pattern] == u'?' ||
                    lower_unit(pattern[in_pattern]) == lower_unit(path[at]))) {
            ++in_pattern;
            ++at;
        } else if (star != std::u16string_view::npos) {
            in_pattern = star + 1;
            at = ++after_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(u'*', in_pattern) == std::u16string_view::npos;
}

} // namespace hv

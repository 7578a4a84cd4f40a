#include "base/hv_string.h"

#include <algorithm>
#include <cstdlib>

namespace hv {

namespace {

// Variables are replaced only while the text is shorter than this.
constexpr std::size_t expansion_limit = 513;

// A variable may name itself, so replacements are counted, and after this many the text
// stays as it is.
constexpr int max_replacements = 512;

constexpr std::string_view blank_characters = " \t\r\n";

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

template <class String> void trim_both_ends(String &text, typename String::value_type c)
{
    const std::size_t first = text.find_first_not_of(c);
    if (first == String::npos) {
        text.clear();
        return;
    }
    text.erase(text.find_last_not_of(c) + 1);
    text.erase(0, first);
}

template <class String> void trim_end(String &text, typename String::value_type c)
{
    const std::size_t last = text.find_last_not_of(c);
    text.erase(last == String::npos ? 0 : last + 1);
}

} // namespace

char lower_char(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

void to_lower(std::string &text)
{
    std::ranges::transform(text, text.begin(), lower_char);
}

void to_upper(std::string &text)
{
    for (char &c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
}

void to_lower(std::wstring &text)
{
    for (wchar_t &c : text)
        if (c >= L'A' && c <= L'Z') c += 32;
}

std::string lower_copy(std::string_view text)
{
    std::string copy(text);
    to_lower(copy);
    return copy;
}

bool equal_ignoring_case(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, lower_char, lower_char);
}

bool trim(std::string &text)
{
    const std::size_t first = text.find_first_not_of(blank_characters);
    if (first == std::string::npos) {
        text.clear();
        return false;
    }
    text.erase(text.find_last_not_of(blank_characters) + 1);
    text.erase(0, first);
    return true;
}

bool trim(std::wstring &text)
{
    trim_both_ends(text, L' ');
    trim_both_ends(text, L'\t');
    trim_end(text, L'\r');
    trim_end(text, L'\n');
    return !text.empty();
}

std::size_t trim_line_end(std::string &text)
{
    const std::size_t before = text.size();
    text.erase(text.find_last_not_of("\r\n") + 1);
    return before - text.size();
}

void trim_nuls(std::string &text)
{
    trim_end(text, '\0');
}

bool replace_first(std::string &text, std::string &what, std::string_view with,
                   bool ignore_case)
{
    if (ignore_case) to_lower(what);
    const std::size_t at = ignore_case ? lower_copy(text).find(what) : text.find(what);
    if (at == std::string::npos) return false;
    text.replace(at, what.size(), with);
    return true;
}

void replace_char(std::string &text, char from, char to, bool ignore_case)
{
    if (from == to) return;
    for (char &c : text)
        if (c == from || (ignore_case && lower_char(c) == lower_char(from))) c = to;
}

void remove_char(std::string &text, char c)
{
    std::erase(text, c);
}

void escape_line_breaks(std::string &text)
{
    const bool has_lf = text.find('\n') != std::string::npos;
    if (!has_lf && text.find('\r') == std::string::npos) return;
    std::string escaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (!has_lf && c == '\r') {
            escaped += "[CR]";
        } else if (c == '\r' && next == '\n') {
            escaped += "[CRLF]";
            ++i;
        } else if (c == '\n' && next == '\r') {
            escaped += "[LFCR]";
            ++i;
        } else if (c == '\n') {
            escaped += "[LF]";
        } else {
            escaped += c;
        }
    }
    text.swap(escaped);
}

bool split_lines(std::string_view bytes, std::vector<std::string> &lines)
{
    lines.clear();
    for (std::size_t start = 0; start < bytes.size();) {
        std::size_t end = bytes.find('\n', start);
        if (end == std::string_view::npos) end = bytes.size();
        std::string line(bytes.substr(start, end - start));
        line.erase(0, std::min(line.find_first_not_of('\r'), line.size()));
        trim(line);
        lines.push_back(std::move(line));
        start = end + 1;
    }
    return !lines.empty();
}

std::string join_args(const std::vector<std::string> &args, std::size_t first,
                      char quote)
{
    std::string text;
    for (std::size_t i = first; i < args.size(); ++i) {
        if (i != first) text += ' ';
        if (args[i].find(' ') == std::string::npos)
            text += args[i];
        else
            text += quote + args[i] + quote;
    }
    return text;
}

std::string quoted_pair(std::string_view key, std::string_view value)
{
    std::string text = "\"";
    return text.append(key).append("\":\"").append(value).append("\"");
}

std::size_t last_separator(std::string_view path)
{
    const std::size_t backslash = path.rfind('\\');
    return backslash != std::string_view::npos ? backslash : path.rfind('/');
}

std::size_t next_separator_or_end(std::string_view path, std::size_t at)
{
    std::size_t end = path.find('\\', at);
    if (end == std::string_view::npos) end = path.find('/', at);
    return std::min(end, path.size());
}

bool ends_in_separator(std::string_view path)
{
    return path.ends_with('\\') || path.ends_with('/');
}

bool split_path(std::string_view path, std::string &directory, std::string &name)
{
    directory.clear();
    name.clear();
    if (path.empty()) return false;
    const std::size_t cut = last_separator(path);
    if (cut == std::string_view::npos) {
        const bool is_parent = path == "..";
        directory = is_parent ? ".." : ".";
        name = is_parent ? "." : path;
        return true;
    }
    directory = path.substr(0, cut);
    name = path.substr(cut + 1);
    if (name == "..") {
        name = ".";
        directory += path[cut] == '\\' ? "\\.." : "//..";
    }
    return true;
}

bool split_path_ext(std::string_view path, std::string &directory, std::string &stem,
                    std::string &extension)
{
    extension.clear();
    if (!split_path(path, directory, stem)) return false;
    const std::size_t dot = stem.rfind('.');
    if (dot == std::string::npos) return true;
    extension = stem.substr(dot + 1);
    stem.erase(dot);
    return true;
}

void shadow_device_prefix(std::string &text, letter_case letters)
{
    text += "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    if (letters == letter_case::lower) to_lower(text);
}

std::string expand_variables(std::string_view source, bool allow_vss)
{
    std::string text(source);
    std::size_t from = 0;
    for (int count = 0; count < max_replacements && text.size() < expansion_limit;) {
        const std::size_t open = text.find('%', from);
        if (open == std::string::npos) break;
        const std::size_t close = text.find('%', open + 1);
        if (close == std::string::npos) break;
        const std::string word = text.substr(open + 1, close - open - 1);
        std::string value;
        if (const char *found = std::getenv(word.c_str())) {
            value = found;
        } else if (allow_vss && equal_ignoring_case(word, "vss")) {
            shadow_device_prefix(value, letter_case::as_is);
        } else {
            from = close + 1;
            continue;
        }
        text.replace(open, close + 1 - open, value);
        from = open;
        ++count;
    }
    return text;
}

bool parse_u32(std::string_view source, u32 &value)
{
    value = 0;
    std::string text = lower_copy(source);
    if (!trim(text)) return false;
    const auto read = [&](std::size_t at, int base) {
        value = static_cast<u32>(std::strtoul(text.c_str() + at, nullptr, base));
        return true;
    };
    if (text.starts_with("0x")) return read(2, 16);
    if (text[0] == 'x') return read(1, 16);
    if (text[0] == 'o') return read(1, 8);
    if (text[0] == '+' || text[0] == '-' || is_digit(text[0])) return read(0, 10);
    if (text.size() != 3 || text[0] != '\'' || text[2] != '\'') return false;
    value = static_cast<u8>(text[1]);
    return true;
}

bool parse_u64(std::string_view source, u64 &value)
{
    constexpr std::size_t max_text = 30;
    constexpr std::size_t max_hex_digits = 16;
    constexpr std::size_t octal_digits = 22;
    constexpr std::size_t decimal_digits = 20;
    value = 0;
    const std::string text(
        source.substr(std::min(source.find_first_not_of(' '), source.size())));
    if (text.empty() || source.size() > max_text) return false;
    if (text.find(' ') != std::string::npos) return false;
    int base = 10;
    std::size_t at = 0;
    std::size_t max_digits = decimal_digits;
    if (text.size() > 2) {
        const char first = lower_char(text[0]);
        if (lower_char(text[1]) == 'x' || first == 'x') {
            base = 16;
            at = first == 'x' ? 1 : 2;
            max_digits = max_hex_digits;
        } else if (first == 'o') {
            base = 8;
            at = 1;
            max_digits = octal_digits;
        }
    }
    if (text.size() - at > max_digits) return false;
    char *end = nullptr;
    value = std::strtoull(text.c_str() + at, &end, base);
    return end != text.c_str() + at;
}

std::string number_text(u64 value, bool hex, unsigned width)
{
    if (!hex) return std::to_string(value);
    if (width == 0)
        width = value < 0xFF ? 2 : value < 0xFFFF ? 4 : value < 0xFFFFFF ? 6 : 8;
    std::string digits;
    for (u64 rest = value; rest != 0; rest >>= 4)
        digits.push_back("0123456789abcdef"[rest & 0xF]);
    if (digits.size() < width) digits.append(width - digits.size(), '0');
    digits += "x0";
    std::ranges::reverse(digits);
    return digits;
}

std::string hex_digits(u64 value, unsigned width)
{
    return number_text(value, true, width).substr(2);
}

bool guid_text(std::string &result, byte_view guid)
{
    // Four bytes, two and two are little-endian numbers; the last eight keep their
    // order.
    static constexpr u8 order[16] = {3, 2, 1,  0,  5,  4,  7,  6,
                                     8, 9, 10, 11, 12, 13, 14, 15};
    result.clear();
    fixed_view<16> all;
    if (!guid.fixed(0, all)) return false;
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) result.push_back('-');
        const u8 byte = guid.bytes()[order[i]];
        result.push_back("0123456789abcdef"[byte >> 4]);
        result.push_back("0123456789abcdef"[byte & 0xF]);
    }
    return true;
}

} // namespace hv

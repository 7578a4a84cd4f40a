#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"

#include <string>
#include <string_view>
#include <vector>

/// Small text helpers: case, trimming, splitting, paths and numbers. None of them
/// prints. Narrow text is UTF-8, wide text has one code point in each element.
namespace hv {

// ---- Case. Only ASCII letters change; all other bytes stay as they are, so that
// results never depend on the locale of the machine.

void to_lower(std::string &text);
/// Kept for callers of the library.
void to_upper(std::string &text);
void to_lower(std::wstring &text);
std::string lower_copy(std::string_view text);
char lower_char(char c);
bool equal_ignoring_case(std::string_view a, std::string_view b);

// ---- Trimming

/// Removes blanks, tabs, CR and LF from both ends. False if nothing is left.
bool trim(std::string &text);
/// Removes, one after the other: blanks from both ends, tabs from both ends, CR from
/// the end, LF from the end. False if nothing is left.
bool trim(std::wstring &text);
/// Removes all CR and LF at the end and returns how many there were.
std::size_t trim_line_end(std::string &text);
/// Removes all NUL bytes at the end. Kept for callers of the library.
void trim_nuls(std::string &text);

// ---- Replacing

/// Replaces the first occurrence of `what`; false if there is none. With `ignore_case`
/// the search ignores case, and `what` becomes lower case.
bool replace_first(std::string &text, std::string &what, std::string_view with,
                   bool ignore_case);
/// Replaces every `from`, with `ignore_case` in both its cases.
void replace_char(std::string &text, char from, char to, bool ignore_case = false);
void remove_char(std::string &text, char c);
/// Makes line breaks visible: a pair becomes "[CRLF]" or "[LFCR]", a lone LF "[LF]".
/// Where there is no LF at all, each CR becomes "[CR]"; elsewhere a lone CR stays.
void escape_line_breaks(std::string &text);

// ---- Splitting and joining

/// What becomes of blanks at the ends of a piece.
enum class piece_blanks { keep, trim };
/// What becomes of pieces without a character, after trimming.
enum class empty_pieces { drop, keep };

/// Cuts `text` at each `delimiter` into `parts`, which is cleared first. False for
/// empty text.
template <class String>
bool split(const String &text, typename String::value_type delimiter,
           std::vector<String> &parts, piece_blanks blanks, empty_pieces empty)
{
    parts.clear();
    if (text.empty()) return false;
    for (std::size_t start = 0; start <= text.size();) {
        std::size_t end = text.find(delimiter, start);
        if (end == String::npos) end = text.size();
        String piece = text.substr(start, end - start);
        if (blanks == piece_blanks::trim) trim(piece);
        if (!piece.empty() || empty == empty_pieces::keep)
            parts.push_back(std::move(piece));
        start = end + 1;
    }
    return true;
}

/// Cuts `bytes` at each LF into `lines`, removes CRs at the start of each line, and
/// trims it. Bytes without an LF are one line. False if there is no line.
bool split_lines(std::string_view bytes, std::vector<std::string> &lines);

/// The texts of a range, with `separator` between each two of them.
template <class Texts, class String>
String join_texts(const Texts &texts, const String &separator)
{
    String result;
    bool is_first = true;
    for (const auto &text : texts) {
        if (!is_first) result += separator;
        result += text;
        is_first = false;
    }
    return result;
}

/// The elements from index `first` on, joined by one blank. An element that holds a
/// blank is enclosed in two `quote` characters.
std::string join_args(const std::vector<std::string> &args, std::size_t first,
                      char quote = '\'');

/// "key":"value", with the quotes.
std::string quoted_pair(std::string_view key, std::string_view value);

// ---- Paths. Both separators are understood; in a path that has both, only the
// backslash counts.

/// The position of the last backslash or, if there is none, of the last slash; npos if
/// there is neither.
std::size_t last_separator(std::string_view path);
/// The position of the next backslash from `at` on or, if there is none, of the next
/// slash; the path's length if there is neither.
std::size_t next_separator_or_end(std::string_view path, std::size_t at);
bool ends_in_separator(std::string_view path);

/// Cuts a path at its last separator. Without one, the directory is ".". A path that
/// ends in ".." stays a directory: the name is then ".". False for an empty path.
bool split_path(std::string_view path, std::string &directory, std::string &name);
/// `split_path`, with the name cut at its last ".", which belongs to neither part. Kept
/// for callers of the library.
bool split_path_ext(std::string_view path, std::string &directory, std::string &stem,
                    std::string &extension);
/// How a text is spelled.
enum class letter_case { as_is, lower };
/// Appends the device path of the shadow copies, from the global root on, to `text`.
/// With `lower` the whole of `text` becomes lower case.
void shadow_device_prefix(std::string &text, letter_case letters);
/// Replaces each %NAME% by the environment variable NAME, while the text has fewer than
/// 513 characters. A value may hold further variables. With `allow_vss`, an unset
/// variable "vss" means the device path of the shadow copies.
std::string expand_variables(std::string_view text, bool allow_vss);

// ---- Numbers

/// Reads "0x10", "x10" (hexadecimal), "o20" (octal), "16", "+16", or a character in
/// single quotes. What follows the digits is ignored, and larger numbers wrap. False,
/// and 0, for anything else.
bool parse_u32(std::string_view text, u32 &value);
/// Reads "0x10", "x10", "o20" and "16" after any blanks. False, and 0, for text without
/// a number, with a blank after it, or with more digits than 64 bits can need.
bool parse_u64(std::string_view text, u64 &value);
/// Decimal, or with `hex` "0x" and lower-case digits, filled with zeros to `width`
/// digits; if `width` is 0, to 2, 4, 6 or 8, depending on the value.
std::string number_text(u64 value, bool hex, unsigned width = 0);
/// The lower-case hexadecimal digits of `value`, filled with zeros to `width`.
std::string hex_digits(u64 value, unsigned width);
/// The text form of a GUID as stored on disk, in lower case and without braces. False,
/// with an empty `result`, for fewer than 16 bytes.
bool guid_text(std::string &result, byte_view guid);

} // namespace hv

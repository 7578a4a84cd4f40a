#pragma once

#include "base/hv_types.h"

#include <string>
#include <string_view>

/// Names and paths of evidence as text. They come from disks that nobody vouches for:
/// they may hold control characters, marks that turn the direction of writing, and half
/// surrogate pairs.
namespace hv {

/// For people: UTF-8 in which each character that a terminal would obey or hide is
/// written as its number: `\x1b`, `\u202e`, `\ud83d`, `\U000e0001`.
std::string escaped(std::u16string_view text);
/// The same for UTF-8. A byte that isn't part of any character is written as `\xff`.
std::string escaped(std::string_view utf8);

/// For machines: UTF-8 in which a half surrogate pair is a sequence of three bytes, so
/// that nothing is lost.
std::string to_lossless_utf8(std::u16string_view text);
/// The opposite. Bytes that aren't UTF-8 of this kind become U+FFFD.
std::u16string from_lossless_utf8(std::string_view text);

/// Whether a terminal obeys, turns around or doesn't show this code point.
bool is_hidden(char32_t code_point);
/// How many units the first code point of a text that isn't empty has, 1 or 2.
std::size_t code_point_units(std::u16string_view text);

/// How many columns of a terminal an escaped text takes.
std::size_t display_width(std::string_view escaped_text);
/// The end of an escaped text that takes at most `columns`, after a "…" if something
/// was cut off. The end of a path says more than its start.
std::string fit_end(std::string_view escaped_text, std::size_t columns);

/// Decimal digits in groups of three: "5,242,880".
std::string grouped(u64 number);
/// "1 row", "2 rows".
std::string counted(u64 count, std::string_view noun);

/// The unit in lower case; knows Latin, Greek and Cyrillic letters.
char16_t lower_unit(char16_t unit);
bool equal_ignoring_case(std::u16string_view a, std::u16string_view b);
/// Whether a path matches a pattern, ignoring case: `*` is any text, "\" included, and
/// `?` any one unit.
bool matches_glob(std::u16string_view path, std::u16string_view pattern);

} // namespace hv

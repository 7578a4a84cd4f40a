#pragma once

#include "base/hv_byte_view.h"

#include <string>
#include <string_view>
#include <vector>

/// Conversions between the three forms of text: UTF-16LE on disk, UTF-8 in narrow
/// strings, and wide strings with one code point in each element. A damaged name from a
/// disk is converted as well as possible, and never lost.
namespace uni {

/// Converts all whole UTF-16LE units of `units`; a NUL unit becomes a NUL byte. False
/// if there is no unit, or at a high surrogate without its partner; `result` then holds
/// the text before it. A lone low surrogate becomes a sequence of three bytes.
bool utf16_to_utf8(std::string &result, hv::byte_view units);

/// Converts units, given as numbers, to wide text under the rules of `utf16_to_utf8`.
/// Kept for callers of the library.
bool utf16_vector_to_wide(std::wstring &result, const std::vector<char16_t> &units);

/// Converts UTF-16LE up to the first NUL unit or the end. If a surrogate has no
/// partner, each unit becomes an element of its own. Returns the bytes taken, without
/// the NUL.
std::size_t utf16_to_wide(hv::byte_view units, std::wstring &result);

/// Decodes UTF-8. False if `text` is empty or malformed; `result` then holds what is
/// before the bad byte. Overlong forms and encoded surrogates are accepted.
bool utf8_to_wide(std::wstring &result, std::string_view text);

/// The same as a value; empty for malformed text.
std::wstring to_wide(std::string_view text);

/// Encodes each element as 1 to 4 bytes of UTF-8, whatever its value.
void wide_to_utf8(std::string &result, std::wstring_view text);

/// The same as a value.
std::string to_utf8(std::wstring_view text);

/// Converts a name of an on-disk structure to UTF-8: UTF-16LE up to the first NUL unit
/// or the end, under the rules of `utf16_to_wide`. Returns the bytes taken, without the
/// NUL.
std::size_t utf16_name_to_utf8(hv::byte_view units, std::string &result);

} // namespace uni

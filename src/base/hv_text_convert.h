#pragma once

#include "base/hv_byte_view.h"

#include <string>
#include <string_view>
#include <vector>

/// Conversions between the three forms of text: UTF-16LE as it lies on disk, UTF-8 in
/// narrow strings, and wide strings with one code point in each element. They are
/// lenient: a name from a damaged disk degrades, but is never lost.
namespace uni {

/// Converts all whole UTF-16LE units of `units`; a NUL unit becomes a NUL byte. False
/// if there is no unit, or at a high surrogate without its partner; `result` then holds
/// the text before it. A low surrogate on its own passes as a three-byte sequence.
bool utf16_to_utf8(std::string &result, hv::byte_view units);

/// Converts units (numbers, no longer bytes) to wide text, under the rules of
/// `utf16_to_utf8`.
bool utf16_vector_to_wide(std::wstring &result, const std::vector<char16_t> &units);

/// Converts UTF-16LE up to the first NUL unit or the end. If a surrogate is bad, each
/// unit is copied as an element of its own. Returns the bytes taken, without the NUL.
std::size_t utf16_to_wide(hv::byte_view units, std::wstring &result);

/// Decodes UTF-8. False if `text` is empty or malformed; `result` then holds what
/// stands before the bad byte. Overlong forms and encoded surrogates pass.
bool utf8_to_wide(std::wstring &result, std::string_view text);

/// The same as a value; empty for malformed text.
std::wstring to_wide(std::string_view text);

/// Encodes each element in 1 to 4 bytes. No element is refused.
void wide_to_utf8(std::string &result, std::wstring_view text);

/// The same as a value.
std::string to_utf8(std::wstring_view text);

/// Decodes a name of an on-disk structure: UTF-16LE up to the first NUL unit or the
/// end, as `utf16_to_wide` reads it, to UTF-8. Returns the bytes taken; with
/// `skip_terminator`, and if anything was taken, the NUL unit counts as well where it
/// lies within `units`.
std::size_t utf16_name_to_utf8(hv::byte_view units, std::string &result,
                               bool skip_terminator);

} // namespace uni

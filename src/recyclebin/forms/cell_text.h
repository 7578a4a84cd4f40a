#pragma once

#include <string>
#include <string_view>

/// Names and paths of evidence for forms that have no escapes of their own.
namespace hv {

/// One line of valid UTF-8 from which the text can be read back exactly. What a
/// terminal obeys or doesn't show, half surrogate pairs and the ASCII characters of
/// `refused` are written as `<U+202E>`. No name that Windows lets users give has a "<";
/// where one does, and "U+" follows it, it is written as `<U+003C>`.
std::string cell_text(std::u16string_view text, std::string_view refused = {});
/// The same for UTF-8 that may have bytes of other kinds: these become U+FFFD.
std::string cell_text_of_utf8(std::string_view text, std::string_view refused = {});

} // namespace hv

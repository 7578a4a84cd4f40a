#pragma once

#include <string>
#include <string_view>

/// Names of the system that the program runs on: any bytes, though mostly UTF-8.
namespace hv {

/// UTF-16 in which each byte that isn't part of UTF-8 is a half surrogate pair, U+DC80
/// to U+DCFF. Different names stay different.
std::u16string from_system_name(std::string_view name);
/// The opposite: the bytes that `from_system_name` was given. Other half pairs become
/// three bytes each.
std::string to_system_name(std::u16string_view text);

} // namespace hv

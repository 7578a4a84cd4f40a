#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Readers that look for an option by name. Names compare without regard to case and in
/// full: there are no abbreviations.
namespace hv {

using arg_list = std::vector<std::string>;

/// Finds a flag and, unless `keep` is set, removes its first occurrence.
bool take_flag(arg_list &args, std::string_view name, bool keep = false);
/// Finds an option and removes it together with its value, the element after it. An
/// option in the last place has no value: it counts as absent, and stays.
bool take_value(arg_list &args, std::string_view name, std::string &value);
/// True if the flag is at `start` or after it.
bool find_flag(const arg_list &args, std::string_view name, std::size_t start);
/// Copies the value of the first occurrence at `start` or after it. Nothing is removed.
bool find_value(const arg_list &args, std::string_view name, std::string &value,
                std::size_t start);

} // namespace hv

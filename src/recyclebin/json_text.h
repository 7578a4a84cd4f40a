#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

/// JSON whose texts may hold half surrogate pairs, as names on a disk may. JSON can
/// write them, as `\ud83d`, but nlohmann::json neither writes nor reads them.
namespace hv {

/// The value as one line without its end. Strings are lossless UTF-8. Half surrogate
/// pairs and what a terminal obeys or hides are written as `\u` and four digits.
std::string json_text(const nlohmann::ordered_json &value);

/// Reads one line. False if it isn't JSON. Its texts are then to be taken through
/// `text_of`.
bool parse_json(nlohmann::ordered_json &value, std::string_view line);

/// The text of a string that `parse_json` has read; empty for anything else.
std::u16string text_of(const nlohmann::ordered_json &value);

} // namespace hv

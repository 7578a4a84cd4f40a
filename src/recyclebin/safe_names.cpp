#include "recyclebin/safe_names.h"

#include "recyclebin/evidence_text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <utf8proc.h>

namespace hv {

namespace {

// A component may have 255 bytes; a number, the name of a stream and a suffix may
// follow.
constexpr std::size_t max_name = 200;
constexpr std::size_t max_ending = 16;
// A path may have 4095 bytes, with that of the folder that all goes to.
constexpr std::size_t max_path = 3000;
constexpr std::size_t max_folders = 200;

constexpr std::string_view reserved = "<>:\"/\\|?*";

std::string percent(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += '%';
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

bool is_surrogate(char16_t unit)
{
    return (unit & 0xF800) == 0xD800;
}

// One character of a name.
std::string safe_text(std::u16string_view character)
{
    if (character.size() == 1 && is_surrogate(character[0]))
        return "%u" + escaped(character).substr(2);
    const std::string utf8 = to_lossless_utf8(character);
    const char32_t code_point =
        character.size() == 1
            ? char32_t{character[0]}
            : 0x10000 + ((character[0] & 0x3FFU) << 10U) + (character[1] & 0x3FFU);
    const bool is_safe =
        code_point >= 0x20 && code_point != 0x7F && !is_hidden(code_point) &&
        (utf8.size() > 1 || reserved.find(utf8[0]) == std::string_view::npos);
    return is_safe ? utf8 : percent(utf8);
}

// Names of devices, with any ending, are no names of files on Windows.
bool is_device(const std::string &name)
{
    static constexpr auto devices =
        std::to_array<std::string_view>({"con", "prn", "aux", "nul", "com", "lpt"});
    std::string stem = name.substr(0, name.find('.'));
    std::ranges::transform(stem, stem.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    });
    stem.erase(stem.find_last_not_of(' ') + 1);
    const bool has_number = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9' &&
                            (stem.starts_with("com") || stem.starts_with("lpt"));
    if (has_number) return true;
    return stem.size() == 3 && stem != "com" && stem != "lpt" &&
           std::ranges::find(devices, stem) != devices.end();
}

// Where the ending begins, ".txt"; the size of the name if it has none.
std::size_t ending_of(const std::string &name)
{
    const std::size_t dot = name.rfind('.');
    const bool is_ending =
        dot != std::string::npos && dot > 0 && name.size() - dot <= max_ending;
    return is_ending ? dot : name.size();
}

// At most this many bytes, without a part of a character.
std::string cut(std::string text, std::size_t limit)
{
    if (text.size() <= limit) return text;
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0U) == 0x80)
        --limit;
    text.resize(limit);
    return text;
}

// Names are the same for some system if their folded forms are.
std::string folded(const std::string &name)
{
    struct release {
        void operator()(utf8proc_uint8_t *text) const { std::free(text); }
    };
    const void *bytes = name.data();
    utf8proc_uint8_t *made = nullptr;
    const utf8proc_ssize_t size =
        utf8proc_map(static_cast<const utf8proc_uint8_t *>(bytes),
                     static_cast<utf8proc_ssize_t>(name.size()), &made,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE |
                                                    UTF8PROC_CASEFOLD));
    const std::unique_ptr<utf8proc_uint8_t, release> owner(made);
    if (size < 0) return name;
    return {made, made + size};
}

std::vector<std::u16string_view> components_of(std::u16string_view path)
{
    std::vector<std::u16string_view> parts;
    for (;;) {
        const std::size_t end = std::min(path.find(u'\\'), path.size());
        parts.push_back(path.substr(0, end));
        if (end == path.size()) return parts;
        path.remove_prefix(end + 1);
    }
}

} // namespace

std::string safe_name(std::u16string_view name)
{
    std::string safe;
    while (!name.empty()) {
        const std::size_t units = code_point_units(name);
        safe += safe_text(name.substr(0, units));
        name.remove_prefix(units);
    }
    if (safe.empty()) return "_";
    // Also what the folder itself and the one above it are called.
    if (safe.back() == '.' || safe.back() == ' ')
        safe = safe.substr(0, safe.size() - 1) + percent(safe.substr(safe.size() - 1));
    if (is_device(safe)) safe = "_" + safe;
    if (safe.size() <= max_name) return safe;
    const std::string ending = safe.substr(ending_of(safe));
    return cut(safe, max_name - ending.size()) + ending;
}

std::vector<std::string> safe_path(std::u16string_view path)
{
    std::vector<std::string> safe;
    const bool is_network = path.starts_with(u"\\\\");
    if (is_network) {
        safe.emplace_back("network");
        path.remove_prefix(2);
    }
    std::size_t bytes = 0;
    for (const std::u16string_view part : components_of(path)) {
        // The drive: "C:".
        const bool is_drive = safe.empty() && part.size() == 2 && part[1] == u':';
        safe.push_back(safe_name(is_drive ? part.substr(0, 1) : part));
        bytes += safe.back().size() + 1;
    }
    if (bytes <= max_path && safe.size() <= max_folders) return safe;
    return {safe.front(), "long path", safe.back()};
}

std::string stream_file_name(const std::string &file, std::u16string_view stream)
{
    return cut(file, max_name / 2) + ";" + cut(safe_name(stream), max_name / 2);
}

std::string used_names::add(const std::string &parent, const std::string &name,
                            std::size_t ending)
{
    const std::string key = folded(parent + "/" + name);
    if (m_used.insert(key).second) return name;
    for (unsigned &count = m_counts[key];;) {
        std::string numbered = name.substr(0, ending) + " (" +
                               std::to_string(++count + 1) + ")" + name.substr(ending);
        if (m_used.insert(folded(parent + "/" + numbered)).second) return numbered;
    }
}

std::string used_names::folder(const std::string &parent, const std::string &name)
{
    const std::string key = folded(parent + "/" + name);
    const auto known = m_folders.find(key);
    if (known != m_folders.end()) return known->second;
    return m_folders[key] = add(parent, name, name.size());
}

std::string used_names::file(const std::string &parent, const std::string &name)
{
    return add(parent, name, ending_of(name));
}

} // namespace hv

#include "media/vmdk_descriptor.h"

#include "base/hv_string.h"

#include <algorithm>
#include <charconv>

namespace hv {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string without_quotes(std::string_view text)
{
    text = trimmed(text);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        text = text.substr(1, text.size() - 2);
    return std::string(text);
}

// Takes the first word off a text; a name in quotes is one word.
std::string_view take_word(std::string_view &text)
{
    text = trimmed(text);
    std::size_t end = std::min(text.find_first_of(blanks), text.size());
    if (text.starts_with('"')) end = std::min(text.find('"', 1), text.size() - 1) + 1;
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

bool read_number(std::string_view text, u64 &number)
{
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

bool read_extent(std::string_view line, vmdk_extent_line &extent)
{
    const std::string access = lower_copy(std::string(take_word(line)));
    if (access != "rw" && access != "rdonly" && access != "noaccess") return false;
    if (!read_number(take_word(line), extent.sectors)) return false;
    extent.type = take_word(line);
    extent.file = without_quotes(take_word(line));
    const std::string_view offset = take_word(line);
    return !extent.type.empty() &&
           (offset.empty() || read_number(offset, extent.offset));
}

void read_line(std::string_view line, vmdk_descriptor &descriptor)
{
    static constexpr struct {
        std::string_view key;
        std::string vmdk_descriptor::*value;
    } keys[] = {
        {"cid", &vmdk_descriptor::content_id},
        {"parentcid", &vmdk_descriptor::parent_id},
        {"parentfilenamehint", &vmdk_descriptor::parent_name},
        {"createtype", &vmdk_descriptor::type},
    };
    vmdk_extent_line extent;
    if (read_extent(line, extent)) {
        descriptor.extents.push_back(std::move(extent));
        return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const std::string key = lower_copy(std::string(trimmed(line.substr(0, equals))));
    for (const auto &[name, value] : keys)
        if (key == name) descriptor.*value = without_quotes(line.substr(equals + 1));
}

} // namespace

vmdk_descriptor parse_vmdk_descriptor(byte_view text)
{
    const auto bytes = text.bytes();
    const std::string whole(bytes.begin(), std::ranges::find(bytes, u8{0}));
    std::string_view rest = whole;
    vmdk_descriptor descriptor;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        read_line(rest.substr(0, end), descriptor);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return descriptor;
}

} // namespace hv

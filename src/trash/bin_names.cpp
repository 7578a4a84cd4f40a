#include "trash/bin_names.h"

#include "base/hv_string.h"

namespace hv {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view info2_name = "INFO2";
constexpr std::string_view dollar_i_prefix = "$I";
constexpr std::string_view dollar_r_prefix = "$R";

// "$I" and six characters.
constexpr std::size_t min_dollar_i_name = 8;

// From `start` to the next separator.
std::string_view component_at(std::string_view path, std::size_t start)
{
    return path.substr(start, next_separator_or_end(path, start) - start);
}

} // namespace

bool is_bin_name(std::string_view name)
{
    for (const char *bin : bin_folder_names)
        if (equal_ignoring_case(name, bin)) return true;
    return false;
}

std::size_t bin_name_end(std::string_view folder)
{
    const std::string lower = lower_copy(folder);
    for (const char *bin : bin_folder_names) {
        const std::string name = lower_copy(bin);
        const std::size_t at = lower.find(name);
        if (at != npos) return at + name.size();
    }
    return npos;
}

bool is_old_bin_name(std::string_view name)
{
    return name.starts_with('R');
}

bool is_metadata_record_name(std::string_view name)
{
    return name == info2_name ||
           (name.size() >= min_dollar_i_name && name.starts_with(dollar_i_prefix));
}

bool is_metadata_file_name(std::string_view name)
{
    return name.starts_with(dollar_i_prefix) || name.find(info2_name) != npos;
}

bool may_be_metadata(std::string_view name)
{
    return name.starts_with(dollar_i_prefix) || name == info2_name;
}

bool is_info2_name(std::string_view name)
{
    return equal_ignoring_case(name, info2_name);
}

std::string_view item_in_path(std::string_view path, std::string_view bin_text,
                              bool old_layout)
{
    const std::size_t bin = path.find(bin_text);
    if (bin == npos) return {};
    const std::size_t item = path.find(old_layout ? "\\D" : "\\$R", bin + 1);
    return item == npos ? std::string_view() : component_at(path, item + 1);
}

std::string_view item_after_user(std::string_view path)
{
    const std::size_t sid = find_user_sid(path);
    if (sid == npos) return {};
    const std::size_t item = path.find(dollar_r_prefix, sid + 1);
    return item == npos ? std::string_view() : component_at(path, item);
}

std::size_t find_user_sid(std::string_view path)
{
    const std::size_t at = path.find("S-1-5-");
    return at != npos ? at : path.find("S-1-12-1-");
}

bool is_evidence_name(std::string_view path)
{
    while (true) {
        const std::size_t separator = path.find('/');
        if (separator == npos) return is_metadata_file_name(path);
        if (is_bin_name(path.substr(0, separator))) return true;
        path.remove_prefix(separator + 1);
    }
}

std::string path_below(std::string_view folder, std::string_view name, path_join join)
{
    std::string path(folder);
    switch (join) {
    case path_join::backslash:
        if (!path.ends_with('\\')) path += '\\';
        break;
    case path_join::as_is: break;
    case path_join::or_top:
        if (!ends_in_separator(path)) path = "\\";
        break;
    case path_join::a_separator:
        if (!ends_in_separator(path)) path += '\\';
        break;
    }
    return path.append(name);
}

} // namespace hv

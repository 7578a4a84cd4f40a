#include "output/row_text.h"

#include "base/hv_string.h"

#include <array>
#include <map>
#include <vector>

namespace hv {

namespace {

constexpr u32 info2_version = 0;

std::string pair(std::string_view key, std::string_view value)
{
    std::string text = "\"";
    return text.append(key).append("\":\"").append(value).append("\"");
}

// The record that a row's file facts come from; a blank one for a carved row.
inode_record facts_of(const trash_entry &entry, const trash_options &options)
{
    return entry.data_record == no_index ? inode_record{}
                                         : options.records[entry.data_record];
}

std::string file_path(const trash_entry &entry, const trash_options &options)
{
    if (entry.data_record == no_index) return {};
    return std::string(options.records.path(entry.data_record));
}

std::string info2_numbers(const trash_entry &entry, const trash_options &options)
{
    if (entry.version != info2_version) return {};
    return ";" + pair("rec#", options.number(entry.record_number)) + ";" +
           pair("vol#", options.number(entry.drive_number));
}

std::string offset_text(u64 position, u64 source_offset, const trash_options &options)
{
    const u64 offset = position != 0 ? position : source_offset;
    return offset == 0 ? "" : ";" + pair("offset", options.number(offset));
}

// " [internet]" and the like behind the number of a zone; nothing behind anything else.
std::string zone_label(std::string_view key, std::string_view value)
{
    static constexpr std::array<std::string_view, 5> labels = {
        " [local machine]", " [intranet]", " [trusted]", " [internet]", " [untrusted]"};
    u32 zone = 0;
    if (!key.starts_with("ZoneId") || !parse_u32(value, zone) || zone >= labels.size())
        return {};
    return std::string(labels[zone]);
}

// The lines "key=value" of a zone stream, sorted by key; the first of a repeated key
// wins.
std::string zone_text(const std::vector<u8> &zone_data)
{
    std::vector<std::string> lines;
    split_lines(std::string(zone_data.begin(), zone_data.end()), lines);
    std::map<std::string, std::string> pairs;
    for (const std::string &line : lines) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos)
            pairs.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
    std::string text;
    for (const auto &[key, value] : pairs) {
        if (!text.empty()) text += ';';
        text += pair(key, value + zone_label(key, value));
    }
    return text.empty() ? text : "zone_info={" + text + "};";
}

} // namespace

std::string_view version_label(u32 version)
{
    switch (version) {
    case info2_version: return "WinXP";
    case 1: return "Win7 or 8";
    case 2: return "Win10";
    default: return "unk";
    }
}

const std::string &shown_path(const trash_entry &entry)
{
    return entry.has_data_file ? entry.restored_path : entry.deleted_path;
}

std::string shown_size(const trash_entry &entry, const trash_options &options)
{
    return options.number(entry.has_data_file ? facts_of(entry, options).real_size
                                              : entry.file_size);
}

std::string source_of_data(const trash_entry &entry, const trash_options &options)
{
    const inode_record record = facts_of(entry, options);
    const std::string file = file_path(entry, options);
    std::string text = "{";
    if (record.entry == 0) {
        text += pair("trash_file", file);
    } else {
        text += file + "=[" + pair("inode", options.number(record.entry));
        if (record.has_parents())
            text += ";" + pair("parent_inode", options.number(record.first_parent));
        text += "]";
    }
    text += info2_numbers(entry, options);
    if (!entry.metadata_name.empty()) text += ";" + pair("src", entry.metadata_name);
    text += offset_text(record.position, entry.source_offset, options);
    return text + "}";
}

std::string source_notes(const trash_entry &entry, const trash_options &options)
{
    const inode_record record = facts_of(entry, options);
    std::string text = "{";
    if (record.entry == 0)
        text += pair("trash_file", file_path(entry, options));
    else if (record.has_parents())
        text += pair("parent_inode", options.number(record.first_parent));
    text += info2_numbers(entry, options);
    text += offset_text(record.position, entry.source_offset, options);
    return text + "}";
}

std::string extra_info(const trash_entry &entry, const trash_options &options)
{
    static const std::vector<u8> no_zone;
    const std::vector<u8> &zone_data =
        entry.data_record == no_index
            ? no_zone
            : options.records.extras_or_blank(entry.data_record).zone_data;
    if (zone_data.empty() && entry.other_info.empty()) return {};
    std::string text = "{" + zone_text(zone_data);
    // The quote has no partner: the cell has always been written this way.
    if (!entry.other_info.empty()) text += "\"other_info=[" + entry.other_info + "]";
    return text + "}";
}

void replace_forbidden(std::string &text, const trash_options &options)
{
    if (options.forbidden_char != 0)
        replace_char(text, options.forbidden_char, options.replacement_char);
}

} // namespace hv

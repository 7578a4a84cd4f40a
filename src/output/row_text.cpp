#include "output/row_text.h"

#include "base/hv_string.h"

#include <array>
#include <map>
#include <vector>

namespace hv {

namespace {

constexpr u32 info2_version = 0;

// The record that a row's file facts come from; a blank one for a carved row.
inode_record facts_of(const trash_entry &entry, const inode_store &records)
{
    return entry.data_record == no_index ? inode_record{} : records[entry.data_record];
}

std::string file_path(const trash_entry &entry, const inode_store &records)
{
    if (entry.data_record == no_index) return {};
    return std::string(records.path(entry.data_record));
}

std::string info2_numbers(const trash_entry &entry, const output_form &form)
{
    if (entry.version != info2_version) return {};
    return ";" + quoted_pair("rec#", form.number(entry.record_number)) + ";" +
           quoted_pair("vol#", form.number(entry.drive_number));
}

std::string offset_text(u64 position, u64 source_offset, const output_form &form)
{
    const u64 offset = position != 0 ? position : source_offset;
    return offset == 0 ? "" : ";" + quoted_pair("offset", form.number(offset));
}

// " [internet]" and the like for the number of a zone; nothing for any other line.
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
        text += quoted_pair(key, value + zone_label(key, value));
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

std::string shown_size(const trash_entry &entry, const inode_store &records,
                       const output_form &form)
{
    return form.number(entry.has_data_file ? facts_of(entry, records).real_size
                                           : entry.file_size);
}

std::string source_of_data(const trash_entry &entry, const inode_store &records,
                           const output_form &form)
{
    const inode_record record = facts_of(entry, records);
    const std::string file = file_path(entry, records);
    std::string text = "{";
    if (record.entry == 0) {
        text += quoted_pair("trash_file", file);
    } else {
        text += file + "=[" + quoted_pair("inode", form.number(record.entry));
        if (record.has_parents())
            text += ";" + quoted_pair("parent_inode", form.number(record.first_parent));
        text += "]";
    }
    text += info2_numbers(entry, form);
    if (!entry.metadata_name.empty())
        text += ";" + quoted_pair("src", entry.metadata_name);
    text += offset_text(record.position, entry.source_offset, form);
    return text + "}";
}

std::string source_notes(const trash_entry &entry, const inode_store &records,
                         const output_form &form)
{
    const inode_record record = facts_of(entry, records);
    std::string text = "{";
    if (record.entry == 0)
        text += quoted_pair("trash_file", file_path(entry, records));
    else if (record.has_parents())
        text += quoted_pair("parent_inode", form.number(record.first_parent));
    text += info2_numbers(entry, form);
    text += offset_text(record.position, entry.source_offset, form);
    return text + "}";
}

std::string extra_info(const trash_entry &entry, const inode_store &records)
{
    static const std::vector<u8> no_zone;
    const std::vector<u8> &zone_data =
        entry.data_record == no_index
            ? no_zone
            : records.extras_or_blank(entry.data_record).zone_data;
    if (zone_data.empty() && entry.other_info.empty()) return {};
    std::string text = "{" + zone_text(zone_data);
    // Readers compare this cell byte for byte: the missing quote stays.
    if (!entry.other_info.empty()) text += "\"other_info=[" + entry.other_info + "]";
    return text + "}";
}

void replace_forbidden(std::string &text, const output_form &form)
{
    if (form.forbidden_char != 0)
        replace_char(text, form.forbidden_char, form.replacement_char);
}

} // namespace hv

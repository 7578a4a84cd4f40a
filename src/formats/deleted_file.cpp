#include "formats/deleted_file.h"

#include "base/hv_time.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

constexpr u64 unix_year_1980 = 315'532'800;
constexpr u64 unix_year_2108 = 4'354'819'200;

// Windows ends a path within its field of 520 bytes, so the last two units are never
// part of one; a reader that keeps to this loses text that damage put there.
constexpr u64 fixed_path_bytes = 516;
constexpr u64 path_field_bytes = 520;

// Up to here, nothing of the path has been reached.
constexpr u64 min_torn_dollar_i = 24;
// A shorter rest of a record of 800 bytes holds no path worth reporting, where only
// paths in UTF-16 count.
constexpr u64 min_fixed_torn_record = list_record::wide_path + 5;
// A list may lack its last four bytes.
constexpr u64 fixed_whole_record = list_record::size - 4;

// "X:\" and at least one more unit.
constexpr std::size_t min_sure_path = 4;
constexpr u64 max_sure_size = u64{1} << 56;
constexpr u32 max_sure_number = 0xFFFFFF;
constexpr u32 network_drive = 26;

// The upper half of code page 1252, where it isn't that of Latin 1.
constexpr std::array<char16_t, 32> code_page_1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// Text up to its ending zero, or to the end of the bytes.
struct read_text {
    std::u16string text;
    bool has_end = false; // the ending zero was reached
};

read_text read_wide(byte_view bytes)
{
    read_text result;
    u16 unit = 0;
    for (u64 at = 0; bytes.read(at, unit); at += sizeof(unit)) {
        result.has_end = unit == 0;
        if (result.has_end) break;
        result.text.push_back(unit);
    }
    return result;
}

bool is_letter(char16_t unit)
{
    return (unit | 0x20) >= 'a' && (unit | 0x20) <= 'z';
}

bool begins_with_drive(std::u16string_view path)
{
    return path.size() >= 2 && is_letter(path[0]) && path[1] == ':';
}

bool begins_with_server(std::u16string_view path)
{
    return path.starts_with(u"\\\\");
}

// One unit at the end of what is there can't be judged.
bool may_begin_path(std::u16string_view path)
{
    return path.size() < 2 || begins_with_drive(path) || begins_with_server(path);
}

bool is_believable_path(std::u16string_view path)
{
    if (path.size() < min_sure_path) return false;
    const bool begins_well =
        begins_with_server(path) || (begins_with_drive(path) && path[2] == '\\');
    return begins_well &&
           std::ranges::none_of(path, [](char16_t unit) { return unit < 0x20; });
}

bool passes_time(u64 filetime, const parse_rules &rules)
{
    return rules.any_time || is_plausible_filetime(filetime);
}

// ---- `$I` files

// The fields of version 1 that only `parse_dollar_i` tests: what has to be there.
bool passes_size_1(byte_view file, const parse_rules &rules)
{
    if (rules.torn_metadata) return file.size() >= min_torn_dollar_i;
    return file.size() >= dollar_i::size_1 &&
           file.read_padded<u16>(dollar_i::path_1) != 0;
}

bool passes_size_2(byte_view file, const parse_rules &rules)
{
    if (rules.torn_metadata) return file.size() >= min_torn_dollar_i;
    const u32 units = file.read_padded<u32>(dollar_i::path_units.offset);
    return file.size() >= dollar_i::min_size_2 &&
           file.read_padded<u32>(dollar_i::path_2) != 0 && units >= 2 &&
           units <= dollar_i::max_units;
}

void read_path_1(deleted_file &out, byte_view file, const parse_rules &rules)
{
    const u64 limit = rules.full_paths ? path_field_bytes : fixed_path_bytes;
    read_text path = read_wide(file.clip(dollar_i::path_1, limit));
    out.path = std::move(path.text);
    out.path_is_whole = path.has_end || file.size() >= dollar_i::size_1;
    out.length = std::min<u64>(file.size(), dollar_i::size_1);
}

// The stored length may pass the end of the file: a torn one still has the front of its
// path.
void read_path_2(deleted_file &out, byte_view file)
{
    const u64 units = file.read_padded<u32>(dollar_i::path_units.offset);
    read_text path = read_wide(file.clip(dollar_i::path_2, 2 * units));
    out.path = std::move(path.text);
    out.path_is_whole = path.has_end || file.fits(dollar_i::path_2, 2 * units);
    out.length = std::min<u64>(file.size(), dollar_i::path_2 + 2 * units);
}

// ---- Records of lists

// The 8-bit path of a record. A struck one has its first byte back: the drive's letter.
read_text read_ansi(byte_view record, u32 drive)
{
    read_text result;
    const auto bytes =
        record.clip(list_record::ansi_path, list_record::ansi_path_size).bytes();
    for (std::size_t i = 0; i < bytes.size() && !result.has_end; ++i) {
        const u8 byte = bytes[i];
        const bool is_struck = i == 0 && byte == 0 && bytes.size() > 1 && bytes[1] != 0;
        if (is_struck)
            result.text.push_back(
                drive < network_drive ? static_cast<char16_t>('A' + drive) : u'\\');
        else if (byte == 0)
            result.has_end = true;
        else if (byte >= 0x80 && byte < 0xA0)
            result.text.push_back(code_page_1252[byte - 0x80u]);
        else
            result.text.push_back(byte);
    }
    return result;
}

// Short names and characters that 8 bits can't hold show that the 8-bit path isn't
// spelled as the file was.
bool is_spelled_out(std::u16string_view ansi_path)
{
    return std::ranges::none_of(ansi_path, [](char16_t unit) {
        return unit >= 0x80 || unit == '~' || unit == '?';
    });
}

// The path of a record of 800 bytes. Where the one in UTF-16 is cut off, the 8-bit path
// may still have all of it.
void choose_path(deleted_file &out, read_text wide, bool wide_is_there, read_text ansi,
                 const parse_rules &rules)
{
    const bool whole = wide.has_end || wide_is_there;
    if (!wide.text.empty() && (whole || !rules.torn_metadata)) {
        out.path = std::move(wide.text);
        out.path_is_whole = whole;
        return;
    }
    const bool same_start = ansi.text.starts_with(wide.text);
    out.path_is_whole = whole || (same_start && is_spelled_out(ansi.text));
    const bool takes_ansi =
        wide.text.size() < min_sure_path || (same_start && out.path_is_whole);
    out.path = std::move(takes_ansi ? ansi.text : wide.text);
}

void read_record_path(deleted_file &out, byte_view record, const parse_rules &rules)
{
    read_text ansi = read_ansi(record, out.drive);
    if (list_record_size(out.format) == list_record::short_size) {
        out.path = std::move(ansi.text);
        return;
    }
    const u64 limit = rules.full_paths ? path_field_bytes : fixed_path_bytes;
    read_text wide = read_wide(record.clip(list_record::wide_path, limit));
    bool wide_is_there = record.fits(list_record::wide_path, limit);
    if (rules.network_paths && !wide.text.empty() && !may_begin_path(wide.text)) {
        wide = {};
        wide_is_there = false;
    }
    choose_path(out, std::move(wide), wide_is_there, std::move(ansi), rules);
}

deleted_file read_record_fields(byte_view record, metadata_format format)
{
    deleted_file file;
    file.format = format;
    file.number = record.read_padded<u32>(list_record::number.offset);
    file.drive = record.read_padded<u32>(list_record::drive.offset);
    file.deleted = record.read_padded<u64>(list_record::deleted_time.offset);
    file.size = record.read_padded<u32>(list_record::file_size.offset);
    file.is_struck = record.read_padded<u8>(list_record::ansi_path) == 0;
    file.length = std::min<u64>(record.size(), list_record_size(format));
    return file;
}

bool passes_record_path(const deleted_file &read, byte_view record,
                        const parse_rules &rules)
{
    if (rules.network_paths)
        return begins_with_drive(read.path) || begins_with_server(read.path);
    if (list_record_size(read.format) == list_record::short_size)
        return begins_with_drive(read.path);
    return begins_with_drive(
        read_wide(record.clip(list_record::wide_path, 2 * sizeof(char16_t))).text);
}

// The drive's number and the path say the same.
bool agrees_with_drive(const deleted_file &file)
{
    if (file.drive == network_drive) return begins_with_server(file.path);
    return begins_with_drive(file.path) &&
           (file.path[0] | 0x20u) == file.drive + static_cast<u32>('a');
}

bool is_sure(const deleted_file &file)
{
    return is_believable_path(file.path) && agrees_with_drive(file);
}

// Whether a UTF-16 path goes on as far as its 8-bit form, with the same letters, up to
// the first that isn't ASCII: from there on a code page may count letters otherwise.
// Names that the code page doesn't have are there in their short form: then nothing
// agrees but the drive.
bool agrees_with_ansi(std::u16string_view wide, std::u16string_view ansi)
{
    if (ansi.find(u'~') != std::u16string_view::npos) return true;
    const auto first = std::ranges::find_if(
        ansi, [](char16_t unit) { return unit >= 0x80 || unit == u'?'; });
    const auto plain = static_cast<std::size_t>(first - ansi.begin());
    const bool is_all = plain == ansi.size() && plain + 1 < list_record::ansi_path_size;
    return wide.substr(0, plain) == ansi.substr(0, plain) &&
           (!is_all || wide.size() == plain);
}

// What is left of a record's UTF-16 path is surely one: it begins like the path of this
// drive and, if all of its field is there, ends in it.
bool has_sure_wide_path(byte_view record, deleted_file file)
{
    const byte_view field = record.clip(list_record::wide_path, path_field_bytes);
    read_text wide = read_wide(field);
    const std::u16string ansi = read_ansi(record, file.drive).text;
    if (is_believable_path(ansi) && !agrees_with_ansi(wide.text, ansi)) return false;
    file.path = std::move(wide.text);
    return is_sure(file) && (wide.has_end || field.size() < path_field_bytes);
}

// Without a list to go by: what the bytes after the 8-bit path look like.
metadata_format format_of(byte_view record, const deleted_file &fields,
                          std::optional<metadata_format> list)
{
    const bool is_wide = has_sure_wide_path(record, fields);
    const bool is_cut =
        !record.fits(list_record::wide_path, min_sure_path * sizeof(char16_t));
    if (list && (!is_wide || list_record_size(*list) == list_record::size))
        return *list;
    return is_wide || is_cut ? metadata_format::info2_800 : metadata_format::info2_280;
}

// A list whose header is damaged: the records that are sure without it. They follow
// each other again after one that is damaged, too.
void parse_headless_list(std::vector<listed_file> &out, byte_view file)
{
    constexpr u64 step = 4; // of all records' places in a list
    std::optional<metadata_format> list;
    for (u64 at = 0; file.fits(at, list_record::short_size);) {
        listed_file listed{.offset = at, .file = {}};
        if (!may_be_list_record(file, at) ||
            !recognize_list_record(listed.file, file.from(at), list)) {
            at += step;
            continue;
        }
        list = listed.file.format;
        at += list_record_size(*list);
        out.push_back(std::move(listed));
    }
}

} // namespace

bool is_believable_time(u64 filetime)
{
    return filetime >= unix_to_filetime(unix_year_1980) &&
           filetime < unix_to_filetime(unix_year_2108);
}

u32 list_record_size(metadata_format format)
{
    switch (format) {
    case metadata_format::info2_800:
    case metadata_format::info_800: return list_record::size;
    case metadata_format::info2_280:
    case metadata_format::info_280: return list_record::short_size;
    default: return 0;
    }
}

bool parse_dollar_i(deleted_file &out, byte_view file, const parse_rules &rules)
{
    const u32 version = file.read_padded<u32>(dollar_i::version.offset);
    deleted_file read;
    read.size = file.read_padded<u64>(dollar_i::file_size.offset);
    read.deleted = file.read_padded<u64>(dollar_i::deleted_time.offset);
    if (!passes_time(read.deleted, rules)) return false;
    if (version == 1 && passes_size_1(file, rules)) {
        read.format = metadata_format::dollar_i_1;
        read_path_1(read, file, rules);
    } else if (version == 2 && passes_size_2(file, rules)) {
        read.format = metadata_format::dollar_i_2;
        read_path_2(read, file);
    } else {
        return false;
    }
    out = std::move(read);
    return true;
}

bool parse_list_header(metadata_format &out, byte_view file, const parse_rules &rules)
{
    fixed_view<list_header::size> header;
    if (!file.fixed(0, header)) return false;
    const u32 version = header.get<list_header::version>();
    const u32 size = header.get<list_header::record_size>();
    if (size == list_record::size)
        out = version == 2 ? metadata_format::info_800 : metadata_format::info2_800;
    else if (size == list_record::short_size && rules.lists_of_280)
        out = version == 0 ? metadata_format::info_280 : metadata_format::info2_280;
    else
        return false;
    return true;
}

bool parse_list_record(deleted_file &out, byte_view record, metadata_format format,
                       const parse_rules &rules)
{
    const u64 size = list_record_size(format);
    const u64 min_size = rules.torn_metadata         ? u64{list_record::short_size}
                         : size == list_record::size ? min_fixed_torn_record
                                                     : size;
    if (size == 0 || record.size() < min_size) return false;
    record = record.clip(0, size);
    deleted_file read = read_record_fields(record, format);
    if (!passes_time(read.deleted, rules)) return false;
    if (rules.all_drives ? read.drive > network_drive : read.drive == 0) return false;
    read_record_path(read, record, rules);
    if (!passes_record_path(read, record, rules)) return false;
    out = std::move(read);
    return true;
}

void parse_list(std::vector<listed_file> &out, byte_view file, const parse_rules &rules)
{
    metadata_format format{};
    if (!parse_list_header(format, file, rules)) {
        if (rules.torn_metadata) parse_headless_list(out, file);
        return;
    }
    const u64 size = list_record_size(format);
    bool found = false;
    for (u64 at = list_header::size; at < file.size(); at += size) {
        // A record that is cut off at the end is believed only after a good one, unless
        // torn metadata counts.
        const byte_view record = file.clip(at, size);
        if (record.size() < fixed_whole_record && record.size() < size &&
            !rules.torn_metadata && !found)
            continue;
        listed_file listed{.offset = at, .file = {}};
        if (!parse_list_record(listed.file, record, format, rules)) continue;
        out.push_back(std::move(listed));
        found = true;
    }
}

bool recognize_dollar_i(deleted_file &out, byte_view bytes)
{
    u64 version = 0;
    if (!bytes.read(dollar_i::version.offset, version) || version < 1 || version > 2)
        return false;
    deleted_file read;
    if (!parse_dollar_i(read, bytes, parse_rules::complete()) ||
        !is_believable_time(read.deleted) || read.size >= max_sure_size ||
        !is_believable_path(read.path))
        return false;
    if (version == 1) {
        // A whole field ends its path.
        if (bytes.size() >= dollar_i::size_1 &&
            read.path.size() >= path_field_bytes / sizeof(char16_t))
            return false;
    } else {
        const u64 units = bytes.read_padded<u32>(dollar_i::path_units.offset);
        const bool is_cut = !read.path_is_whole && read.path.size() < units;
        if (units > dollar_i::longest_path ||
            (read.path.size() + 1 != units && !is_cut))
            return false;
    }
    out = std::move(read);
    return true;
}

bool recognize_list_header(metadata_format &out, byte_view bytes)
{
    const u32 version = bytes.read_padded<u32>(list_header::version.offset);
    const u32 size = bytes.read_padded<u32>(list_header::record_size.offset);
    const bool is_short = size == list_record::short_size;
    const bool fits_version =
        is_short ? version == 0 || version == 4 : version == 2 || version == 5;
    return fits_version && parse_list_header(out, bytes, parse_rules::complete());
}

bool may_be_list_record(byte_view bytes, u64 at)
{
    byte_view numbers;
    if (!bytes.sub(at + list_record::number.offset,
                   list_record::wide_path - list_record::number.offset, numbers))
        return false;
    const auto field = [numbers]<class T>(le_field<T> where) {
        return little_endian<T>(numbers.bytes().data() + where.offset -
                                list_record::number.offset);
    };
    return field(list_record::drive) <= network_drive &&
           field(list_record::number) <= max_sure_number &&
           is_believable_time(field(list_record::deleted_time));
}

bool recognize_list_record(deleted_file &out, byte_view bytes,
                           std::optional<metadata_format> list)
{
    if (!may_be_list_record(bytes, 0)) return false;
    deleted_file read = read_record_fields(bytes, metadata_format::info2_280);
    read_text ansi = read_ansi(bytes, read.drive);
    read.path = std::move(ansi.text);
    const bool is_whole = bytes.fits(0, list_record::size);
    if (!is_sure(read) && !(is_whole && has_sure_wide_path(bytes, read))) return false;

    const metadata_format format = format_of(bytes, read, list);
    // Where the UTF-16 path was written over, the record ends before it.
    const bool has_wide = has_sure_wide_path(bytes, read);
    const byte_view record =
        bytes.clip(0, has_wide ? list_record::size : list_record::short_size);
    deleted_file parsed;
    if (!parse_list_record(parsed, record, format, parse_rules::complete()) ||
        !is_sure(parsed))
        return false;
    out = std::move(parsed);
    return true;
}

} // namespace hv

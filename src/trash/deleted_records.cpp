#include "trash/deleted_records.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time.h"

#include <algorithm>
#include <limits>

namespace hv {

namespace {

// The path field holds 520 bytes. Windows ends a path within it, so the last two units
// are never part of one; a damaged record that has text there loses these.
constexpr u64 max_path_bytes = 516;

// A shorter rest of a record can't hold a path worth reporting.
constexpr std::size_t min_torn_size =
    info2::cursor_to_record + list_record::wide_path + 5;

enum dollar_i_version : u32 { version_1 = 1, version_2 = 2 };

std::string read_wide_path(byte_view bytes, u64 limit)
{
    std::string path;
    uni::utf16_name_to_utf8(bytes.clip(0, limit), path);
    return path;
}

void fill_from_source(trash_entry &entry, const metadata_source &source)
{
    entry.source_offset = source.position;
    entry.metadata_name = source.name;
    entry.other_info = source.target_name;
    entry.meta_record = source.record;
}

trash_entry read_dollar_i(byte_view file, const metadata_source &source)
{
    trash_entry entry;
    entry.version = file.read_padded<u32>(dollar_i::version.offset);
    entry.deleted_time = file.read_padded<u64>(dollar_i::deleted_time.offset);
    entry.file_size = file.read_padded<u64>(dollar_i::file_size.offset);
    fill_from_source(entry, source);
    return entry;
}

// The 8-bit path is taken byte for byte: its code page isn't known.
std::string read_ansi_path(byte_view record)
{
    const auto bytes =
        record.clip(list_record::ansi_path, list_record::ansi_path_size).bytes();
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), u8{0})};
}

trash_entry read_info2_record(byte_view record, u64 path_limit,
                              const metadata_source &source, entry_origin origin)
{
    trash_entry entry;
    entry.deleted_path =
        read_wide_path(record.from(list_record::wide_path), path_limit);
    if (entry.deleted_path.empty()) entry.deleted_path = read_ansi_path(record);
    entry.version = 0;
    entry.record_number = record.read_padded<u32>(list_record::number.offset);
    entry.drive_number = record.read_padded<u32>(list_record::drive.offset);
    entry.deleted_time = record.read_padded<u64>(list_record::deleted_time.offset);
    entry.file_size = record.read_padded<u32>(list_record::file_size.offset);
    entry.carved = origin == entry_origin::carved;
    fill_from_source(entry, source);
    return entry;
}

// Letter, zero, colon, zero. The path of a file on a network doesn't begin like this.
bool begins_with_drive(byte_view record)
{
    const u32 letter = record.read_padded<u16>(list_record::wide_path) | 0x20u;
    return letter >= 'a' && letter <= 'z' &&
           record.read_padded<u16>(list_record::wide_path + 2) == ':';
}

bool has_plausible_fields(byte_view record)
{
    if (record.read_padded<u8>(list_record::ansi_path) == 0 &&
        record.read_padded<u16>(list_record::wide_path) == 0)
        return false;
    // Without this, zeroed regions would pass; drive A hardly ever had a bin.
    if (record.read_padded<u32>(list_record::drive.offset) == 0) return false;
    return is_plausible_filetime(
        record.read_padded<u64>(list_record::deleted_time.offset));
}

bool is_convincing(byte_view record)
{
    return has_plausible_fields(record) && begins_with_drive(record);
}

} // namespace

bool check_i1(byte_view file)
{
    return file.read_padded<u32>(dollar_i::version.offset) == version_1 &&
           file.size() >= dollar_i::size_1 &&
           file.read_padded<u16>(dollar_i::path_1) != 0 &&
           is_plausible_filetime(file.read_padded<u64>(dollar_i::deleted_time.offset));
}

bool check_i2(byte_view file)
{
    const u32 units = file.read_padded<u32>(dollar_i::path_units.offset);
    return file.read_padded<u32>(dollar_i::version.offset) == version_2 &&
           file.size() >= dollar_i::min_size_2 &&
           file.read_padded<u32>(dollar_i::path_2) != 0 && units >= 2 &&
           units <= dollar_i::max_units &&
           is_plausible_filetime(file.read_padded<u64>(dollar_i::deleted_time.offset));
}

bool looks_like_info2(byte_view from_cursor)
{
    return from_cursor.size() >= list_record::size &&
           is_convincing(from_cursor.from(info2::cursor_to_record));
}

bool has_info2_header(byte_view file)
{
    u32 record_size = 0;
    return file.read(list_header::record_size.offset, record_size) &&
           record_size == list_record::size;
}

bool parse_i1(std::vector<trash_entry> &parsed, byte_view file,
              const metadata_source &source)
{
    if (!check_i1(file)) return false;
    trash_entry entry = read_dollar_i(file, source);
    entry.deleted_path = read_wide_path(file.from(dollar_i::path_1), max_path_bytes);
    parsed.push_back(std::move(entry));
    return true;
}

bool parse_i2(std::vector<trash_entry> &parsed, byte_view file,
              const metadata_source &source)
{
    if (!check_i2(file)) return false;
    trash_entry entry = read_dollar_i(file, source);
    const u64 units = file.read_padded<u32>(dollar_i::path_units.offset);
    // The stored length may pass the end of the file: a truncated record still has the
    // front of its path.
    entry.deleted_path = read_wide_path(file.from(dollar_i::path_2), 2 * units);
    parsed.push_back(std::move(entry));
    return true;
}

bool parse_info2(std::vector<trash_entry> &parsed, byte_view file,
                 const metadata_source &source, entry_origin origin)
{
    if (file.size() < info2::min_size || !has_info2_header(file)) return false;
    bool found = false;
    byte_view rest = file.from(info2::first_cursor);
    for (; rest.size() >= list_record::size; rest = rest.from(list_record::size)) {
        if (!looks_like_info2(rest)) continue;
        const byte_view record = rest.from(info2::cursor_to_record);
        parsed.push_back(read_info2_record(record, max_path_bytes, source, origin));
        found = true;
    }
    // What is left is shorter than a record. It is believed only after a good record.
    if (!found) return false;
    const byte_view record = rest.from(info2::cursor_to_record);
    if (rest.size() < min_torn_size || !is_convincing(record)) return true;
    const u64 limit =
        std::min<u64>(max_path_bytes, record.size() - list_record::wide_path);
    parsed.push_back(read_info2_record(record, limit, source, origin));
    return true;
}

bool parse_metadata(std::vector<trash_entry> &parsed, byte_view file,
                    const metadata_source &source)
{
    if (has_info2_header(file))
        return parse_info2(parsed, file, source, entry_origin::file);
    if (check_i1(file)) return parse_i1(parsed, file, source);
    return parse_i2(parsed, file, source);
}

u64 useful_metadata_size(byte_view head)
{
    if (has_info2_header(head)) return std::numeric_limits<u64>::max();
    return dollar_i::path_2 + u64{2} * dollar_i::max_units;
}

} // namespace hv

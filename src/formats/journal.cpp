#include "formats/journal.h"

#include "formats/deleted_file.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u32 max_name_bytes = 2 * 255;
constexpr u32 min_extent_length = 56;
constexpr u64 sector = 512;

template <std::unsigned_integral T> T field(byte_view bytes, le_field<T> where)
{
    return bytes.read_padded<T>(where.offset);
}

bool has_head(byte_view bytes, u16 version, u32 min_length)
{
    const u32 length = field(bytes, journal_head::length);
    return field(bytes, journal_head::version) == version && length >= min_length &&
           length % journal_step == 0 && bytes.fits(0, length);
}

void read_v2(journal_record &out, byte_view bytes)
{
    out.reference = field(bytes, journal_v2::reference);
    out.parent = field(bytes, journal_v2::parent);
    out.usn = field(bytes, journal_v2::usn);
    out.time = field(bytes, journal_v2::time);
    out.reason = field(bytes, journal_v2::reason);
    out.attributes = field(bytes, journal_v2::attributes);
}

void read_v3(journal_record &out, byte_view bytes)
{
    out.reference = field(bytes, journal_v3::reference);
    out.parent = field(bytes, journal_v3::parent);
    out.usn = field(bytes, journal_v3::usn);
    out.time = field(bytes, journal_v3::time);
    out.reason = field(bytes, journal_v3::reason);
    out.attributes = field(bytes, journal_v3::attributes);
}

// False if the name passes the end of its record.
bool read_name(journal_record &out, byte_view record, u64 offset, u64 name_bytes)
{
    byte_view name;
    if (name_bytes == 0 || name_bytes % 2 != 0 || name_bytes > max_name_bytes ||
        !record.sub(offset, name_bytes, name))
        return false;
    u16 unit = 0;
    for (u64 at = 0; name.read(at, unit); at += sizeof(unit)) out.name.push_back(unit);
    return true;
}

bool is_name_unit(char16_t unit)
{
    return unit != 0 && unit != '/' && unit != '\\' && unit != ':';
}

} // namespace

bool parse_journal_record(journal_record &out, byte_view bytes)
{
    const bool is_v3 = has_head(bytes, 3, journal_v3::size);
    if (!is_v3 && !has_head(bytes, 2, journal_v2::size)) return false;
    journal_record read;
    read.length = field(bytes, journal_head::length);
    read.version = field(bytes, journal_head::version);
    const byte_view record = bytes.clip(0, read.length);
    const u64 offset =
        field(record, is_v3 ? journal_v3::name_offset : journal_v2::name_offset);
    const u64 name_bytes =
        field(record, is_v3 ? journal_v3::name_bytes : journal_v2::name_bytes);
    if (offset < (is_v3 ? journal_v3::size : journal_v2::size) ||
        !read_name(read, record, offset, name_bytes))
        return false;
    is_v3 ? read_v3(read, record) : read_v2(read, record);
    out = std::move(read);
    return true;
}

bool recognize_journal_record(journal_record &out, byte_view bytes, u64 position)
{
    journal_record read;
    if (field(bytes, journal_head::minor) != 0 || !parse_journal_record(read, bytes))
        return false;
    const u64 head = read.version == 3 ? journal_v3::size : journal_v2::size;
    const u64 used = head + 2 * read.name.size();
    const bool fits_page =
        read.usn % journal_page_size + read.length <= journal_page_size;
    const bool fits_place = read.usn % sector == position % sector;
    const bool fits_name =
        read.length == (used + journal_step - 1) / journal_step * journal_step;
    if (!fits_page || !fits_place || !fits_name || !is_believable_time(read.time) ||
        read.reference == 0 || read.parent == 0 || read.reason == 0 ||
        !std::ranges::all_of(read.name, is_name_unit))
        return false;
    out = std::move(read);
    return true;
}

u32 journal_extent_length(byte_view bytes)
{
    return has_head(bytes, 4, min_extent_length) ? field(bytes, journal_head::length)
                                                 : 0;
}

} // namespace hv

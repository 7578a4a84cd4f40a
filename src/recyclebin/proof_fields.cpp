#include "recyclebin/proof_fields.h"

#include "formats/deleted_file.h"
#include "formats/journal.h"
#include "ntfs/hv_ntfs_layout.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"

#include <cstdio>

namespace hv {

namespace {

std::string entry_text(u64 reference)
{
    return "record " + std::to_string(reference_entry(reference)) + ", sequence " +
           std::to_string(reference_sequence(reference));
}

std::string hex(u64 number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::u16string read_units(byte_view bytes)
{
    std::u16string text;
    u16 unit = 0;
    for (u64 at = 0; bytes.read(at, unit); at += sizeof unit) text.push_back(unit);
    return text;
}

// Collects fields that are there in full.
class field_list {
public:
    explicit field_list(byte_view bytes) : m_bytes(bytes) {}

    template <std::unsigned_integral T, class Meaning>
    void number(le_field<T> field, Meaning meaning)
    {
        T value = 0;
        if (m_bytes.read(field.offset, value))
            m_fields.push_back({field.offset, sizeof(T), meaning(value)});
    }
    void bytes(u64 offset, u64 length, const std::string &meaning)
    {
        const byte_view part = m_bytes.clip(offset, length);
        if (!part.empty()) m_fields.push_back({offset, part.size(), meaning});
    }
    void name(u64 offset, u64 length)
    {
        bytes(offset, length, escaped(read_units(m_bytes.clip(offset, length))));
    }
    // A text that ends with a zero unit.
    void path(u64 offset, u64 length)
    {
        std::u16string text = read_units(m_bytes.clip(offset, length));
        text.resize(std::min(text.find(u'\0'), text.size()));
        bytes(offset, length, escaped(text));
    }
    std::vector<proof_field> take() { return std::move(m_fields); }

private:
    byte_view m_bytes;
    std::vector<proof_field> m_fields;
};

std::string size_meaning(u64 size)
{
    return "size " + grouped(size);
}

std::string deleted_meaning(u64 filetime)
{
    return "deleted " + whole_moment(filetime);
}

void add_dollar_i(field_list &fields, byte_view bytes, bool is_version_1)
{
    fields.bytes(0, 8,
                 is_version_1 ? "version 1 (Windows Vista to 8.1)"
                              : "version 2 (Windows 10 and later)");
    fields.number(dollar_i::file_size, size_meaning);
    fields.number(dollar_i::deleted_time, deleted_meaning);
    if (is_version_1) return fields.path(dollar_i::path_1, bytes.size());
    fields.number(dollar_i::path_units, [](u32 units) {
        return counted(units, "unit") + " of path, with the ending zero";
    });
    fields.path(dollar_i::path_2,
                u64{2} * bytes.read_padded<u32>(dollar_i::path_units.offset));
}

std::string drive_meaning(u32 drive)
{
    if (drive > 26) return "drive " + std::to_string(drive);
    if (drive == 26) return "drive 26: a network path";
    return std::string("drive ") + static_cast<char>('A' + drive);
}

void add_list_record(field_list &fields, byte_view bytes)
{
    const bool is_struck = bytes.read_padded<u8>(list_record::ansi_path) == 0;
    fields.bytes(list_record::ansi_path, list_record::ansi_path_size,
                 is_struck ? "8-bit path, struck out: its first byte is zero"
                           : "8-bit path");
    fields.number(list_record::number,
                  [](u32 number) { return "record " + std::to_string(number); });
    fields.number(list_record::drive, drive_meaning);
    fields.number(list_record::deleted_time, deleted_meaning);
    fields.number(list_record::file_size, size_meaning);
    fields.path(list_record::wide_path, list_record::size - list_record::wide_path);
}

std::string flags_meaning(u16 flags)
{
    const bool in_use = (flags & file_record::flag_in_use) != 0;
    const bool is_directory = (flags & file_record::flag_directory) != 0;
    return std::string(in_use ? "in use" : "freed") +
           (is_directory ? ", a folder" : "");
}

void add_file_record(field_list &fields)
{
    fields.bytes(file_record::signature_field.offset, 4, "FILE record");
    fields.number(file_record::sequence, [](u16 sequence) {
        return "sequence number " + std::to_string(sequence);
    });
    fields.number(file_record::flags, flags_meaning);
    fields.number(file_record::bytes_in_use,
                  [](u32 count) { return counted(count, "byte") + " in use"; });
    fields.number(file_record::base_reference, [](u64 base) {
        return base == 0 ? "the base record of its file"
                         : "extends " + entry_text(base);
    });
    fields.number(file_record::entry,
                  [](u32 entry) { return "record " + std::to_string(entry); });
}

// The layout of a name, in a record's attribute or in an index entry.
void add_file_name(field_list &fields, byte_view bytes, u64 at)
{
    const auto moment = [](const char *what) {
        return [what](u64 filetime) { return what + (" " + whole_moment(filetime)); };
    };
    fields.number(le_field<u64>{at + file_name::parent}, [](u64 reference) {
        return "in the folder of " + entry_text(reference);
    });
    fields.number(le_field<u64>{at + file_name::created}, moment("created"));
    fields.number(le_field<u64>{at + file_name::modified}, moment("modified"));
    fields.number(le_field<u64>{at + file_name::mft_changed}, moment("record changed"));
    fields.number(le_field<u64>{at + file_name::accessed}, moment("accessed"));
    fields.number(le_field<u64>{at + file_name::real_size}, size_meaning);
    fields.name(at + file_name::name,
                u64{2} * bytes.read_padded<u8>(at + file_name::name_length));
}

// The fields that both versions have.
struct journal_layout {
    le_field<u64> reference, parent, usn, time;
    le_field<u32> reason;
    le_field<u16> name_bytes, name_offset;
};
constexpr journal_layout layout_2 = {journal_v2::reference,  journal_v2::parent,
                                     journal_v2::usn,        journal_v2::time,
                                     journal_v2::reason,     journal_v2::name_bytes,
                                     journal_v2::name_offset};
constexpr journal_layout layout_3 = {journal_v3::reference,  journal_v3::parent,
                                     journal_v3::usn,        journal_v3::time,
                                     journal_v3::reason,     journal_v3::name_bytes,
                                     journal_v3::name_offset};

void add_journal(field_list &fields, byte_view bytes, const journal_layout &at)
{
    fields.number(journal_head::version,
                  [](u16 version) { return "version " + std::to_string(version); });
    fields.number(at.reference, entry_text);
    fields.number(at.parent, [](u64 reference) {
        return "in the folder of " + entry_text(reference);
    });
    fields.number(at.usn, [](u64 usn) { return "USN " + std::to_string(usn); });
    fields.number(at.time, [](u64 time) { return "logged " + whole_moment(time); });
    fields.number(at.reason, [](u32 reason) { return "reason " + hex(reason); });
    fields.name(bytes.read_padded<u16>(at.name_offset.offset),
                bytes.read_padded<u16>(at.name_bytes.offset));
}

bool is_dollar_i(metadata_format format)
{
    return format == metadata_format::dollar_i_1 ||
           format == metadata_format::dollar_i_2;
}

void add_metadata(field_list &fields, byte_view bytes, metadata_format format)
{
    if (is_dollar_i(format))
        add_dollar_i(fields, bytes, format == metadata_format::dollar_i_1);
    else
        add_list_record(fields, bytes);
}

bool begins_with_record(byte_view bytes)
{
    return bytes.read_padded<u32>(file_record::signature_field.offset) ==
           file_record::signature;
}

} // namespace

std::vector<proof_field> proof_fields(const sighting &seen, byte_view bytes)
{
    field_list fields(bytes);
    if (begins_with_record(bytes)) {
        add_file_record(fields);
        return fields.take();
    }
    switch (seen.kind) {
    case sighting_kind::metadata:
        if (seen.metadata) add_metadata(fields, bytes, seen.metadata->format);
        break;
    case sighting_kind::journal_line:
        add_journal(fields, bytes,
                    bytes.read_padded<u16>(journal_head::version.offset) == 3
                        ? layout_3
                        : layout_2);
        break;
    case sighting_kind::index_name:
    case sighting_kind::data_item:
    case sighting_kind::restored_item: add_file_name(fields, bytes, 0); break;
    }
    return fields.take();
}

std::optional<deleted_file> read_statement(byte_view bytes, metadata_format format)
{
    deleted_file stated;
    const parse_rules rules = parse_rules::complete();
    const bool is_read = is_dollar_i(format)
                             ? parse_dollar_i(stated, bytes, rules)
                             : parse_list_record(stated, bytes, format, rules);
    return is_read && stated.format == format ? std::optional(stated) : std::nullopt;
}

} // namespace hv

#include "ntfs/hv_file_record.h"

#include "base/hv_text_convert.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

constexpr u32 smallest_sector = 512;
constexpr std::size_t min_typed_size = 1024;
constexpr u16 max_fixups_of_bad = 10;

struct type_name {
    u32 type;
    std::string_view short_name;
    std::string_view long_name;
};

// clang-format off
constexpr std::array<type_name, 17> type_names = {{
    { 16, "$StdInfo",   "Standard Info Attrib"},
    { 32, "AttribList", "Attribute list"},
    { 48, "$Filename",  "Filename Attrib"},
    { 64, "$ObjectID",  "Oject ID Attrib"},
    { 80, "$Security",  "Security Desc Attrib"},
    { 96, "$VolName",   "Volume name Attrib"},
    {112, "$VolInfo",   "Volume Info Attrib"},
    {128, "$Data",      "Data Attrib"},
    {144, "$IndxRoot",  "Index Root Attrib"},
    {160, "$IndxAlloc", "Index Allocation Attrib"},
    {176, "$Bitmap",    "Bitmap Attrib"},
    {192, "$Reparse",   "Reparse point Attrib"},
    {208, "$EaInfo",    "EA Info Attrib"},
    {224, "$Ea",        "NTFS_EA"},
    {240, "$Property",  "Property Set Attrib"},
    {256, "$Log",       "Logged Utility Stream Attrib"},
    {attribute::end_marker, "NTFS_ATTRIBUTE_END_MARKER", "NTFS_ATTRIBUTE_END_MARKER"},
}};
// clang-format on

u16 fixup_count_of(byte_view block)
{
    return block.read_padded<u16>(file_record::fixup_count.offset);
}

void restore_tails_of(std::span<u8> block, u32 sector_size)
{
    const byte_view view{block};
    const u16 count = fixup_count_of(view);
    restore_sector_tails(block, view.read_padded<u16>(file_record::fixup_offset.offset),
                         count, fixup_step(count, block.size(), sector_size));
}

} // namespace

bool passes_record_test(byte_view record, const parse_rules &rules)
{
    using namespace file_record;
    fixed_view<header_size> header;
    if (!record.fixed(0, header)) return false;
    const u16 array = header.get<fixup_offset>();
    return header.get<signature_field>() == signature &&
           (array == required_fixup_offset ||
            (rules.records_of_old_systems && array == old_fixup_offset)) &&
           header.get<fixup_count>() <= max_fixups &&
           header.get<first_attribute>() <= max_first_attribute;
}

std::optional<u32> stored_entry_number(byte_view record)
{
    using namespace file_record;
    u32 number = 0;
    if (record.read_padded<u16>(fixup_offset.offset) == old_fixup_offset ||
        !record.read(entry.offset, number))
        return std::nullopt;
    return number;
}

u32 fixup_step(u16 count, std::size_t block_size, u32 sector_size)
{
    if (count > 1 && (count - 1u) * std::size_t{smallest_sector} == block_size)
        return smallest_sector;
    return std::max(sector_size, smallest_sector);
}

void restore_sector_tails(std::span<u8> block, std::size_t array_offset, u16 count,
                          u32 sector_size)
{
    if (sector_size < 2) return;
    const byte_view view{block};
    for (std::size_t i = 1; i < count && i * sector_size <= block.size(); ++i) {
        u16 tail = 0;
        if (!view.read(array_offset + 2 * i, tail)) return;
        const std::size_t at = i * sector_size - 2;
        block[at] = static_cast<u8>(tail & 0xFF);
        block[at + 1] = static_cast<u8>(tail >> 8);
    }
}

bool apply_fixup(std::span<u8> block, u32 sector_size, const parse_rules &rules)
{
    const byte_view view{block};
    if (!passes_record_test(view, rules) &&
        !has_signature(view, index_block::signature))
        return false;
    restore_tails_of(block, sector_size);
    return true;
}

block_type apply_fixup_typed(std::span<u8> block, u32 sector_size,
                             const parse_rules &rules)
{
    const byte_view view{block};
    const u16 count = fixup_count_of(view);
    const std::size_t covered =
        count == 0
            ? 0
            : (count - 1u) * std::size_t{fixup_step(count, block.size(), sector_size)};
    if (block.size() < min_typed_size || block.size() < covered)
        return block_type::unknown;
    if (has_signature(view, file_record::bad_signature))
        return count <= max_fixups_of_bad ? block_type::bad : block_type::unknown;
    if (!apply_fixup(block, sector_size, rules)) return block_type::unknown;
    return has_signature(view, index_block::signature) ? block_type::index
                                                       : block_type::file;
}

std::string attribute_ref::name() const
{
    const u64 units = m_bytes.read_padded<u8>(attribute::name_length);
    const u64 offset = m_bytes.read_padded<u16>(attribute::name_offset);
    std::string text;
    uni::utf16_name_to_utf8(m_bytes.clip(offset, 2 * units), text);
    return text;
}

byte_view attribute_ref::content() const
{
    if (non_resident()) return {};
    return m_bytes.clip(m_bytes.read_padded<u16>(attribute::content_offset),
                        m_bytes.read_padded<u32>(attribute::content_length));
}

byte_view attribute_ref::run_list() const
{
    if (!non_resident()) return {};
    return m_bytes.from(m_bytes.read_padded<u16>(attribute::runs_offset));
}

std::string_view attribute_type_name(u32 type, bool long_name)
{
    const auto found = std::ranges::find(type_names, type, &type_name::type);
    if (found == type_names.end()) return "unk";
    return long_name ? found->long_name : found->short_name;
}

bool is_extension_of(byte_view record, u64 entry, byte_view base)
{
    const u64 named = record.read_padded<u64>(file_record::base_reference.offset);
    const u16 wanted = reference_sequence(named);
    const u16 sequence = base.read_padded<u16>(file_record::sequence.offset);
    return named != 0 && reference_entry(named) == entry &&
           (wanted == 0 || sequence == 0 || wanted == sequence);
}

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_parse_rules.h"
#include "ntfs/hv_ntfs_layout.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The "FILE" record: its test, its update sequence, and the walk over its attributes.
/// An update sequence protects a record or an index block against torn writes: the last
/// two bytes of each sector are kept in an array in the header, and a check value is
/// written in their place.
namespace hv {

/// What a block is according to its signature: "FILE", "INDX" or "BAAD".
enum class block_type : u32 { unknown = 0, file = 1, index = 2, bad = 3 };

/// The test that a record has to pass before anything else of it is read: its
/// signature, the place and size of its update sequence array, and where its attributes
/// begin. With `records_of_old_systems` the array may be at 42 as well as at 48.
bool passes_record_test(byte_view record,
                        const parse_rules &rules = parse_rules::fixed());
/// The entry number that a record holds of itself. None for a record of an old system,
/// which has its update sequence array in that place, and for one that is too short.
std::optional<u32> stored_entry_number(byte_view record);
/// True if the first four bytes of a block are `signature`, as a little-endian number.
inline bool has_signature(byte_view block, u32 signature)
{
    u32 stored = 0;
    return block.read(0, stored) && stored == signature;
}

/// Puts the sector tails of a block back from its update sequence array, which begins
/// `array_offset` bytes into the block and has `count` elements, the check value first.
/// The check value isn't compared: a record torn by a crash still yields its names.
/// Tails and array elements outside the block are skipped.
void restore_sector_tails(std::span<u8> block, std::size_t array_offset, u16 count,
                          u32 sector_size);
/// The bytes from one sector tail to the next: `sector_size`, or 512 if an array of
/// `count` elements then covers the block exactly. Volumes with sectors of 4096 bytes
/// are written like this.
u32 fixup_step(u16 count, std::size_t block_size, u32 sector_size);

/// Applies the update sequence of a "FILE" record that passes the record test, or of
/// any "INDX" block. False for anything else.
bool apply_fixup(std::span<u8> block, u32 sector_size,
                 const parse_rules &rules = parse_rules::fixed());
/// The same, and returns what the block is; a "BAAD" block stays as it is. Blocks of
/// fewer than 1024 bytes, or shorter than their array says, are unknown.
block_type apply_fixup_typed(std::span<u8> block, u32 sector_size,
                             const parse_rules &rules = parse_rules::fixed());

/// One attribute of a record: its header and its content or run list, cut to its own
/// length. Fields that the attribute is too short for read as zero.
class attribute_ref {
public:
    attribute_ref() = default;
    explicit attribute_ref(byte_view bytes) : m_bytes(bytes) {}

    byte_view bytes() const { return m_bytes; }
    u32 type() const { return m_bytes.read_padded<u32>(attribute::type); }
    bool is(attribute_type wanted) const { return is_type(type(), wanted); }
    bool non_resident() const
    {
        return m_bytes.read_padded<u8>(attribute::non_resident) != 0;
    }
    u16 flags() const { return m_bytes.read_padded<u16>(attribute::flags); }
    u16 id() const { return m_bytes.read_padded<u16>(attribute::id); }
    bool has_name() const
    {
        return m_bytes.read_padded<u8>(attribute::name_length) != 0;
    }
    /// The name in UTF-8, cut at the attribute's end.
    std::string name() const;
    /// The resident content, cut at the attribute's end; empty if non-resident.
    byte_view content() const;
    /// Sizes of the non-resident form, in bytes.
    u64 allocated_size() const
    {
        return m_bytes.read_padded<u64>(attribute::allocated_size);
    }
    u64 real_size() const { return m_bytes.read_padded<u64>(attribute::real_size); }
    u64 valid_size() const { return m_bytes.read_padded<u64>(attribute::valid_size); }
    /// The encoded run list of the non-resident form, up to the attribute's end; empty
    /// if resident.
    byte_view run_list() const;

private:
    byte_view m_bytes;
};

/// True if a record is an extension of the base record `base`, which has this entry
/// number: it names that number as its base and, where neither sequence number is zero,
/// the base's sequence. By damage or on purpose, an attribute list may lead to the
/// record of another file; that one must not lend its attributes.
bool is_extension_of(byte_view record, u64 entry, byte_view base);

/// Calls `visit` for each attribute of a record, from its first on, until it returns
/// false. The walk ends at the end marker, at a length of zero, or at one that leaves
/// the record; every step shrinks what is left.
template <class Visit> void for_each_attribute(byte_view record, Visit visit)
{
    const u16 first = record.read_padded<u16>(file_record::first_attribute.offset);
    byte_view rest = first == 0 ? byte_view{} : record.from(first);
    u32 type = 0;
    u32 length = 0;
    while (rest.read(attribute::type, type) && type != attribute::end_marker &&
           rest.read(attribute::length, length)) {
        byte_view bytes;
        if (length == 0 || !rest.sub(0, length, bytes)) return;
        if (!visit(attribute_ref(bytes))) return;
        rest = rest.from(length);
    }
}

/// The first attribute of a record for which `is_wanted` returns true; false if there
/// is none.
template <class Predicate>
bool find_attribute(byte_view record, Predicate is_wanted, attribute_ref &found)
{
    bool any = false;
    for_each_attribute(record, [&](attribute_ref attribute) {
        any = is_wanted(attribute);
        if (any) found = attribute;
        return !any;
    });
    return any;
}

/// The short or the long name of an attribute type; "unk" for an unknown one. Kept for
/// callers of the library.
std::string_view attribute_type_name(u32 type, bool long_name);

} // namespace hv

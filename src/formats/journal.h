#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"

#include <string>

/// The change journal (`$UsnJrnl:$J`): a line for each change of a file. Its records
/// never cross a page of 4096 bytes; the rest of a page is zeros.
namespace hv {

// clang-format off

/// Record of the journal: the head, which all versions share.
namespace journal_head {
inline constexpr le_field<u32> length       { 0}; ///< bytes, a multiple of 8
inline constexpr le_field<u16> version      { 4}; ///< 2, 3 or 4
inline constexpr le_field<u16> minor        { 6}; ///< 0
inline constexpr std::size_t   size         =  8;
} // namespace journal_head

/// Record of version 2.
namespace journal_v2 {
inline constexpr le_field<u64> reference    { 8};
inline constexpr le_field<u64> parent       {16};
inline constexpr le_field<u64> usn          {24}; ///< position of the record in the journal
inline constexpr le_field<u64> time         {32}; ///< FILETIME
inline constexpr le_field<u32> reason       {40};
inline constexpr le_field<u32> attributes   {52};
inline constexpr le_field<u16> name_bytes   {56};
inline constexpr le_field<u16> name_offset  {58};
inline constexpr std::size_t   size         = 60; ///< the name follows, UTF-16LE
} // namespace journal_v2

/// Record of version 3: its references have 16 bytes, of which NTFS uses the first 8.
namespace journal_v3 {
inline constexpr le_field<u64> reference    { 8};
inline constexpr le_field<u64> parent       {24};
inline constexpr le_field<u64> usn          {40};
inline constexpr le_field<u64> time         {48};
inline constexpr le_field<u32> reason       {56};
inline constexpr le_field<u32> attributes   {68};
inline constexpr le_field<u16> name_bytes   {72};
inline constexpr le_field<u16> name_offset  {74};
inline constexpr std::size_t   size         = 76;
} // namespace journal_v3

// clang-format on

inline constexpr u64 journal_page_size = 4096;
/// Records begin at multiples of this.
inline constexpr u64 journal_step = 8;

/// One line of the journal.
struct journal_record {
    u32 length = 0;    ///< bytes of the record
    u16 version = 0;   ///< 2 or 3
    u64 reference = 0; ///< of the file: entry, and sequence in the upper 16 bits
    u64 parent = 0;    ///< of its folder, likewise
    u64 usn = 0;       ///< position of the record in the journal
    u64 time = 0;      ///< FILETIME
    u32 reason = 0;    ///< USN_REASON_ bits
    u32 attributes = 0;
    std::u16string name;
};

/// Reads the record that `bytes` begins with, of a place where a record has to be.
/// False, with `out` untouched, if there is none of version 2 or 3, or if it or its
/// name passes the end of `bytes`.
bool parse_journal_record(journal_record &out, byte_view bytes);

/// True if `bytes` surely begin with a record, wherever they are from: each field is
/// what Windows writes. `position` is where they are on the medium: a record is as far
/// from the start of a sector as its USN says.
bool recognize_journal_record(journal_record &out, byte_view bytes, u64 position);

/// The length of the record of version 4 that `bytes` begins with, which says nothing
/// about names; 0 if there is none.
u32 journal_extent_length(byte_view bytes);

/// Calls `visit` with the offset and the content of each record of a page, or of what
/// is left of one. After zeros or garbage, the walk goes on at the next record that is
/// sure; every step shrinks what is left.
template <class Visit> void for_each_journal_record(byte_view page, Visit visit)
{
    bool is_at_record = true;
    u64 at = 0;
    while (page.fits(at, journal_head::size)) {
        const byte_view rest = page.from(at);
        journal_record record;
        u64 length = 0;
        if (is_at_record ? parse_journal_record(record, rest)
                         : recognize_journal_record(record, rest, at)) {
            visit(at, record);
            length = record.length;
        } else {
            length = journal_extent_length(rest);
        }
        is_at_record = length != 0;
        at += is_at_record ? length : journal_step;
    }
}

} // namespace hv

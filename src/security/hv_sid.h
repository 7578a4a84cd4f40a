#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_string.h"
#include "security/hv_security_layout.h"

#include <ostream>
#include <string>

/// Security identifiers (SIDs) as text. A SID has a revision, an authority of 6 bytes,
/// and a counted list of u32 subauthorities; the last of several is the RID.
namespace hv {

/// The bytes of the SID at offset `at`: as many as its count of subauthorities asks
/// for, cut at the end of `bytes`.
byte_view sid_at(byte_view bytes, u64 at);

/// The text of the SID at the start of `sid`, such as "S-1-5-32-544"; more bytes may
/// follow. Of the authority, only the last byte is used. False, with an empty text, for
/// fewer than 12 bytes and for a SID that passes the end.
bool sid_to_text(std::string &out_text, byte_view sid);

/// The well-known name of the SID at the start of `sid`: by authority and value if it
/// has one subauthority, by the RID alone if it has more. "unk" for any other SID, and
/// for one that passes the end.
void sid_to_name(std::string &out_name, byte_view sid);

/// Writes a SID, one field on each line. Fields after the end are left out.
void dump_sid(std::ostream &out, byte_view sid);

/// Writes one line of a dump: the label, two digits for each byte of the field, and
/// `explained`. Nothing for a field that passes the end.
template <std::unsigned_integral T>
void dump_field(std::ostream &out, byte_view bytes, const labelled_field<T> &field,
                std::string_view explained = {})
{
    T value = 0;
    if (bytes.read(field.offset, value))
        out << field.label << hex_digits(value, 2 * sizeof(T)) << explained << '\n';
}

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"
#include "security/hv_security_layout.h"
#include "security/hv_sid.h"

#include <map>
#include <ostream>
#include <string>
#include <string_view>

/// Self-relative security descriptors as NTFS stores them: the SIDs of owner and group,
/// and two access control lists, each a row of ACEs. Damage is silent: what passes the
/// end of the bytes gives an empty text, or is left out.
namespace hv {

/// What an ACL says of one trustee by ACEs of one kind.
struct ace_summary {
    std::string sid;   ///< empty for a SID that can't be read
    std::string type;  ///< short name
    std::string masks; ///< names of the rights, those of several ACEs joined by " | "
    std::string name;  ///< of the SID; "unk" without one
};
/// By the key that begins with the SID and ends with the type, as reports are ordered.
using ace_map = std::map<std::string, ace_summary>;

/// No ACL has more bytes: the field that tells its size has 16 bits.
inline constexpr u64 max_acl_bytes = 65535;

/// Calls `visit` with the bytes from each ACE on, in the order of the list; `acl`
/// begins with the ACL's header and may go on behind it. Each ACE says where the next
/// one is, be it in the same place or inside itself, and the header how many there are.
/// ACEs of a sound ACL lie apart; a walk that has seen `max_acl_bytes` has met some
/// more than once and ends, so that a few bytes can't ask for 65535 texts. False for
/// a header that passes the end.
template <class Visit> bool for_each_ace(byte_view acl, Visit visit)
{
    u16 count = 0;
    if (!acl.fits(0, acl_layout::header_size) ||
        !acl.read(acl_layout::ace_count.offset, count))
        return false;
    u64 bytes_left = max_acl_bytes;
    byte_view rest = acl.from(acl_layout::header_size);
    for (u32 i = 0; i < count && rest.fits(0, ace_layout::sid); ++i) {
        const u64 size = ace_layout::sid + sid_at(rest, ace_layout::sid).size();
        if (size > bytes_left) break;
        bytes_left -= size;
        visit(rest);
        rest = rest.from(rest.read_padded<u16>(ace_layout::size.offset));
    }
    return true;
}

/// Folds the ACL at `acl_offset` of a descriptor: ACEs of one SID and one type become
/// one. An ACL without ACEs gives none, and success; false for one whose header passes
/// the end.
bool collect_acl(ace_map &out_aces, byte_view descriptor, u32 acl_offset);

/// The SID of the owner. False, with an empty text, for a descriptor without one, or if
/// it passes the end.
bool owner_sid_text(std::string &out_text, byte_view descriptor);

/// Writes a report of a whole descriptor, each line with `indent` ahead of it. Leaves
/// the stream aligned to the right.
void report_descriptor(std::ostream &out, byte_view descriptor,
                       std::string_view indent = {});
/// The same data, each piece between its key in pointed brackets.
void write_descriptor_keys(std::ostream &out, byte_view descriptor,
                           std::string_view indent = {});

/// Write the header of a descriptor, an ACE with its SID, and an ACL with its ACEs,
/// field by field, one on each line. Fields behind the end are left out.
void dump_descriptor(std::ostream &out, byte_view descriptor);
void dump_ace(std::ostream &out, byte_view ace);
void dump_acl(std::ostream &out, byte_view acl);

} // namespace hv

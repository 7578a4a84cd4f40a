#pragma once

#include "base/hv_byte_view.h"
#include "security/hv_security_layout.h"
#include "security/hv_sid.h"

#include <map>
#include <ostream>
#include <string>
#include <string_view>

/// Self-relative security descriptors as NTFS stores them: the SIDs of owner and group,
/// and two access control lists (ACLs) of entries (ACEs). Damage is not reported: what
/// passes the end of the bytes becomes an empty text, or is left out.
namespace hv {

/// All ACEs of one type that an ACL has for one trustee.
struct ace_summary {
    std::string sid;   ///< empty for a SID that can't be read
    std::string type;  ///< short name, such as "access allowed"
    std::string masks; ///< names of the rights, those of several ACEs joined by " | "
    std::string name;  ///< of the SID; "unk" without one
};
/// By SID text + type, which is the order of reports.
using ace_map = std::map<std::string, ace_summary>;

/// No ACL has more bytes: its size field has 16 bits.
inline constexpr u64 max_acl_bytes = 65535;

/// Calls `visit` with each ACE of an ACL, in the order of the list. `acl` starts with
/// the ACL's header, and each ACE with its own; more bytes may follow both. The size of
/// an ACE leads to the next one, even if that is the same one again or overlaps it. The
/// header says how many there are. ACEs of a sound ACL don't overlap: after
/// `max_acl_bytes` the walk has met some of them more than once, and ends, so that a
/// few bytes can't ask for 65535 texts. False for a header that passes the end.
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

/// Folds the ACL at `acl_offset` (bytes from the start of the descriptor): ACEs of the
/// same SID and type become one. An ACL without ACEs is a success with an empty map.
/// False, with an empty map, for an ACL whose header passes the end.
bool collect_acl(ace_map &out_aces, byte_view descriptor, u32 acl_offset);

/// The SID text of the owner. False, with an empty text, for a descriptor without an
/// owner, and for a SID that passes the end.
bool owner_sid_text(std::string &out_text, byte_view descriptor);

/// Writes a report of a whole descriptor, `indent` before each line. Leaves the stream
/// aligned to the right.
void report_descriptor(std::ostream &out, byte_view descriptor,
                       std::string_view indent = {});
/// Writes the same data with a key in angle brackets before and after each value.
void write_descriptor_keys(std::ostream &out, byte_view descriptor,
                           std::string_view indent = {});

/// Write the header of a descriptor, an ACE with its SID, or an ACL with its ACEs, one
/// field on each line. Fields after the end are left out. Kept for callers of the
/// library.
void dump_descriptor(std::ostream &out, byte_view descriptor);
void dump_ace(std::ostream &out, byte_view ace);
void dump_acl(std::ostream &out, byte_view acl);

} // namespace hv

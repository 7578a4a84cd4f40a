#pragma once

#include "base/hv_byte_view.h"
#include "ntfs/hv_file_record.h"
#include "ntfs/hv_ntfs_layout.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

/// $ATTRIBUTE_LIST: the attributes of a file that don't fit its own record, each with
/// the record that holds it.
namespace hv {

class CNtfs;

/// Type and id of an attribute, which order it in this way.
using attribute_key = std::pair<u32, u16>;

/// Windows lets no list grow larger. Bytes after that are never read, which bounds how
/// many records a list can have us read.
inline constexpr u64 max_list_bytes = u64{256} * 1024;

/// One entry of a list.
struct attribute_list_entry {
    attribute_key key; ///< of the attribute
    u64 record = 0;    ///< entry number of the record that holds the attribute
    byte_view name;    ///< UTF-16LE, cut at the list's end
};

/// Calls `visit` with each entry of a list's content. The walk ends at a length of zero
/// or where no whole entry is left; every step shrinks what is left.
template <class Visit> void for_each_list_entry(byte_view rest, Visit visit)
{
    u16 length = 0;
    while (rest.fits(0, list_entry::size) && rest.read(list_entry::length, length) &&
           length != 0) {
        const u64 name_bytes = u64{2} * rest.read_padded<u8>(list_entry::name_length);
        visit(attribute_list_entry{
            {rest.read_padded<u32>(list_entry::type),
             rest.read_padded<u16>(list_entry::id)},
            reference_entry(rest.read_padded<u64>(list_entry::reference)),
            rest.clip(rest.read_padded<u8>(list_entry::name_offset), name_bytes)});
        rest = rest.from(length);
    }
}

/// The content of a list attribute. Of a non-resident one these are whole clusters, up
/// to the first that can't be read, and about `max_list_bytes` at most. `budget` is how
/// many bytes may still be read; it shrinks by those that were. Nothing is read once it
/// is 0.
std::vector<u8> read_attribute_list(const CNtfs &volume, attribute_ref list,
                                    u64 &budget);

/// The attributes that lists name, grouped by record, so that each record is read and
/// walked once, however often a list names it.
class listed_records {
public:
    struct listed_record {
        u64 entry = 0;
        std::set<attribute_key> keys;
    };

    /// Adds an attribute of the record with this entry number.
    void add(u64 entry, attribute_key key);
    /// In the order in which the records were first named.
    const std::vector<listed_record> &records() const { return m_records; }

private:
    std::vector<listed_record> m_records;
    std::map<u64, std::size_t> m_index;
};

/// Calls `visit` with the attributes of `record` that `keys` names; of two with the
/// same type and id, with the first.
template <class Visit>
void for_each_listed(byte_view record, std::set<attribute_key> keys, Visit visit)
{
    if (record.read_padded<u16>(file_record::first_attribute.offset) == 0) return;
    for_each_attribute(record, [&](attribute_ref attribute) {
        if (keys.erase({attribute.type(), attribute.id()}) != 0) visit(attribute);
        return !keys.empty();
    });
}

} // namespace hv

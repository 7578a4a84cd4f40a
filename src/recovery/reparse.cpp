#include "recovery/reparse.h"

#include "ntfs/hv_ntfs_layout.h"

namespace hv {

namespace {

constexpr u32 tag_mount_point = 0xA0000003;
constexpr u32 tag_symbolic_link = 0xA000000C;
constexpr u32 tag_compressed = 0x80000017;
constexpr u64 link_flags_size = 4; // before the names of a symbolic link

} // namespace

std::optional<reparse_fact> read_reparse(const file_facts &facts)
{
    const stream_fact *stream = facts.stream(attribute_type::reparse_point);
    if (stream == nullptr) return std::nullopt;
    const byte_view bytes{stream->content};
    reparse_fact fact;
    fact.tag = bytes.read_padded<u32>(reparse_point::tag);
    fact.is_compressed = fact.tag == tag_compressed;
    if (fact.tag != tag_mount_point && fact.tag != tag_symbolic_link) return fact;
    const u64 names =
        reparse_point::buffer + (fact.tag == tag_symbolic_link ? link_flags_size : 0);
    fact.link_target = units_of(
        bytes.clip(names + bytes.read_padded<u16>(reparse_point::substitute_offset),
                   bytes.read_padded<u16>(reparse_point::substitute_length)));
    return fact;
}

} // namespace hv

#pragma once

#include "base/hv_parse_rules.h"
#include "evidence/bin_items.h"
#include "evidence/volume_view.h"
#include "ntfs/hv_ntfs_layout.h"

/// What the parts of a walk over a volume have in common.
namespace hv::walk {

inline constexpr u64 extend_entry = 11; ///< the folder $Extend
inline constexpr int max_depth = 1024;  ///< of a path
inline constexpr parse_rules rules = parse_rules::complete();

inline u64 reference_of(const entry_id &id)
{
    return id.entry | u64{id.sequence} << 48U;
}

inline entry_id entry_of(u64 reference)
{
    return {reference_entry(reference), reference_sequence(reference)};
}

/// An index entry's reference may have been written over by the end of its index.
inline bool is_believable(u64 reference)
{
    constexpr u64 max_entry = u64{1} << 32U;
    return reference_sequence(reference) != 0 && reference_entry(reference) < max_entry;
}

/// The part of ranges that follow each other in a file.
inline std::vector<byte_range> part_of(const std::vector<byte_range> &ranges,
                                       u64 offset, u64 length)
{
    std::vector<byte_range> part;
    for (const byte_range &range : ranges) {
        if (offset < range.length && length > 0) {
            const u64 count = std::min(range.length - offset, length);
            append_range(part, {range.offset + offset, count});
            length -= count;
            offset = 0;
        } else {
            offset -= std::min(offset, range.length);
        }
    }
    return part;
}

/// The times of a $FILE_NAME value.
inline record_times times_of(byte_view bytes, u64 value)
{
    return {bytes.read_padded<u64>(value + file_name::created),
            bytes.read_padded<u64>(value + file_name::modified),
            bytes.read_padded<u64>(value + file_name::mft_changed),
            bytes.read_padded<u64>(value + file_name::accessed)};
}

inline bool is_interesting(bin_name_kind kind)
{
    return kind != bin_name_kind::other;
}

} // namespace hv::walk

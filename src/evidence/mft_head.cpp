#include "evidence/mft_head.h"

#include "ntfs/hv_data_run.h"
#include "ntfs/hv_file_record.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 min_mirrored = 4;
// Volumes of large clusters keep more copies, but only the first records matter.
constexpr u64 max_mirrored = 64;
// How many records may be gone at the start of an $MFT, and between two of its records.
constexpr u64 max_lost_records = 256;
constexpr u32 fixup_step_bytes = 512;

using record_bytes = std::vector<u8>;

// The records of one volume, read by their place.
class record_reader {
public:
    record_reader(const byte_source &medium, u64 volume_offset,
                  const ntfs_geometry &geometry)
        : m_medium(medium),
          m_offset(volume_offset),
          m_geometry(geometry)
    {
    }

    // The position on the medium of record `number` of the stretch at cluster `lcn`;
    // all ones if 64 bits can't hold it.
    u64 position(u64 lcn, u64 number) const
    {
        u64 start = 0;
        u64 at = 0;
        return checked_position(lcn, m_geometry.cluster_size, m_offset, start) &&
                       checked_position(number, m_geometry.record_size, start, at)
                   ? at
                   : ~u64{0};
    }
    // Empty if the medium ends in the record.
    record_bytes read(u64 lcn, u64 number) const
    {
        record_bytes record =
            read_bytes(m_medium, position(lcn, number), m_geometry.record_size);
        if (record.size() < m_geometry.record_size) record.clear();
        return record;
    }

private:
    const byte_source &m_medium;
    u64 m_offset;
    const ntfs_geometry &m_geometry;
};

bool states_number(byte_view record, u64 number)
{
    // Where the update sequence begins before 48, records don't hold their number.
    const u16 fixups = record.read_padded<u16>(file_record::fixup_offset.offset);
    return fixups < file_record::required_fixup_offset ||
           record.read_padded<u32>(file_record::entry.offset) ==
               static_cast<u32>(number);
}

bool is_record(byte_view record, u64 number)
{
    return has_signature(record, file_record::signature) &&
           states_number(record, number);
}

// Whether a record is entry 0 of an $MFT that begins at `mft_lcn`.
bool is_entry_of_mft(record_bytes record, u64 mft_lcn)
{
    if (!is_record(byte_view{record}, mft_entry_number)) return false;
    const byte_view header{record};
    const u16 count = header.read_padded<u16>(file_record::fixup_count.offset);
    restore_sector_tails(record,
                         header.read_padded<u16>(file_record::fixup_offset.offset),
                         count, fixup_step(count, record.size(), fixup_step_bytes));
    attribute_ref data;
    const auto is_data = [](attribute_ref attribute) {
        return attribute.is(attribute_type::data) && !attribute.has_name() &&
               attribute.non_resident();
    };
    data_run_list runs;
    return find_attribute(byte_view{record}, is_data, data) &&
           decode_run_list(data.run_list(), runs, data.type(), true) && !runs.empty() &&
           runs.front().lcn == mft_lcn;
}

// The patches that put records of $MFTMirr where the $MFT lacks them.
std::vector<source_patch> mirror_patches(const record_reader &records,
                                         const ntfs_geometry &geometry,
                                         bool entry_is_whole)
{
    const u64 mirrored = std::clamp<u64>(geometry.cluster_size / geometry.record_size,
                                         min_mirrored, max_mirrored);
    std::vector<source_patch> patches;
    for (u64 number = entry_is_whole ? 1 : 0; number < mirrored; ++number) {
        const record_bytes own = records.read(geometry.mft_lcn, number);
        if (own.empty()) break;
        if (number != 0 && is_record(byte_view{own}, number)) continue;
        if (!is_record(byte_view{records.read(geometry.mirror_lcn, number)}, number))
            continue;
        patches.push_back({records.position(geometry.mft_lcn, number),
                           {},
                           records.position(geometry.mirror_lcn, number),
                           geometry.record_size});
    }
    return patches;
}

// How many records lie in one stretch from the start of the $MFT on.
u64 count_records(const record_reader &records, const ntfs_geometry &geometry,
                  record_search search)
{
    const u64 limit = std::min(static_cast<u64>(search),
                               geometry.volume_size() / geometry.record_size);
    u64 count = 0;
    for (u64 i = 0; i < limit && i - count < max_lost_records; ++i) {
        const record_bytes record = records.read(geometry.mft_lcn, i);
        if (record.empty()) break;
        if (is_record(byte_view{record}, i)) count = i + 1;
    }
    return count;
}

void put(record_bytes &record, std::size_t offset, u64 value, std::size_t width)
{
    for (std::size_t i = 0; i < width && offset + i < record.size(); ++i)
        record[offset + i] = static_cast<u8>(value >> (8 * i));
}

// A number as the fewest bytes that hold it without becoming negative.
std::size_t signed_width(u64 value)
{
    std::size_t width = 1;
    while (width < 8 && value >> (8 * width - 1) != 0) ++width;
    return width;
}

// Puts the $DATA of an $MFT in one run.
void put_data(record_bytes &record, std::size_t at, const ntfs_geometry &geometry,
              u64 bytes)
{
    constexpr std::size_t header = 64;
    constexpr std::size_t length = 88;
    const u64 clusters = (bytes + geometry.cluster_size - 1) / geometry.cluster_size;
    const u64 allocated = clusters * geometry.cluster_size;
    put(record, at + attribute::type, static_cast<u32>(attribute_type::data), 4);
    put(record, at + attribute::length, length, 4);
    put(record, at + attribute::non_resident, 1, 1);
    put(record, at + attribute::last_vcn, clusters - 1, 8);
    put(record, at + attribute::runs_offset, header, 2);
    put(record, at + attribute::allocated_size, allocated, 8);
    put(record, at + attribute::real_size, bytes, 8);
    put(record, at + attribute::valid_size, bytes, 8);
    const std::size_t count_width = signed_width(clusters);
    const std::size_t lcn_width = signed_width(geometry.mft_lcn);
    put(record, at + header, lcn_width << 4 | count_width, 1);
    put(record, at + header + 1, clusters, count_width);
    put(record, at + header + 1 + count_width, geometry.mft_lcn, lcn_width);
    put(record, at + length, attribute::end_marker, 4);
    put(record, file_record::bytes_in_use.offset, at + length + 8, 4);
}

// An entry 0 that leads to `records` records in one stretch.
record_bytes make_entry(const ntfs_geometry &geometry, u64 records)
{
    record_bytes record(geometry.record_size);
    const std::size_t fixups = record.size() / fixup_step_bytes + 1;
    const std::size_t first =
        (file_record::required_fixup_offset + 2 * fixups + 7) / 8 * 8;
    put(record, 0, file_record::signature, 4);
    put(record, file_record::fixup_offset.offset, file_record::required_fixup_offset,
        2);
    put(record, file_record::fixup_count.offset, fixups, 2);
    put(record, file_record::sequence.offset, 1, 2);
    put(record, file_record::first_attribute.offset, first, 2);
    put(record, file_record::flags.offset, file_record::flag_in_use, 2);
    put(record, file_record::bytes_allocated.offset, record.size(), 4);
    put_data(record, first, geometry, records * geometry.record_size);
    // Its sectors end in zeros, and so does the array: only the check value is needed.
    put(record, file_record::required_fixup_offset, 1, 2);
    for (std::size_t end = fixup_step_bytes; end <= record.size();
         end += fixup_step_bytes)
        put(record, end - 2, 1, 2);
    return record;
}

} // namespace

mft_head find_mft_head(const byte_source &medium, u64 volume_offset,
                       const ntfs_geometry &geometry, record_search search)
{
    const record_reader records(medium, volume_offset, geometry);
    mft_head head;
    const record_bytes entry = records.read(geometry.mft_lcn, 0);
    // On a medium that is cut off before its $MFT, $MFTMirr leads nowhere.
    if (entry.empty()) return head;
    const bool is_whole = is_entry_of_mft(entry, geometry.mft_lcn);
    if (is_whole ||
        is_entry_of_mft(records.read(geometry.mirror_lcn, 0), geometry.mft_lcn)) {
        head.patches = mirror_patches(records, geometry, is_whole);
        head.state = head.patches.empty() ? mft_state::whole : mft_state::from_mirror;
        return head;
    }
    head.records = count_records(records, geometry, search);
    if (head.records == 0) return head;
    head.state = mft_state::rebuilt;
    head.patches.push_back({records.position(geometry.mft_lcn, 0),
                            make_entry(geometry, head.records), 0, 0});
    return head;
}

} // namespace hv

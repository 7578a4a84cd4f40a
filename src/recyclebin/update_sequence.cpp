#include "recyclebin/update_sequence.h"

#include "base/hv_byte_view.h"
#include "ntfs/hv_ntfs_layout.h"

#include <algorithm>
#include <array>
#include <optional>

namespace hv {

namespace {

constexpr u64 sector = 512;
constexpr u64 max_record_size = 4096;

// The head of the record or block that a byte of the medium is in.
struct record_head {
    u64 position = 0;
    std::array<u8, sector> bytes{};
    u64 size = 0;   // of the record
    u64 fixups = 0; // sectors that have a check value
    u64 array = 0;  // where the check value is in the head; the true bytes follow

    byte_view view() const { return {bytes.data(), bytes.size()}; }
    u64 stride() const { return size / fixups; }
    bool holds(u64 at) const { return at >= position && at - position < size; }
    /// A head without it may be content of a record that holds it.
    bool has_own_tail() const
    {
        return view().read_padded<u16>(sector - 2) == view().read_padded<u16>(array);
    }
};

bool read_head(record_head &head, const byte_source &medium, u64 position)
{
    if (medium.read(position, head.bytes) != head.bytes.size()) return false;
    const byte_view view = head.view();
    const u32 signature = view.read_padded<u32>(file_record::signature_field.offset);
    head.position = position;
    head.size = signature == index_block::signature
                    ? index_block::size
                    : view.read_padded<u32>(file_record::bytes_allocated.offset);
    head.array = view.read_padded<u16>(file_record::fixup_offset.offset);
    const u64 count = view.read_padded<u16>(file_record::fixup_count.offset);
    head.fixups = count > 0 ? count - 1 : 0;
    if (head.fixups == 0 || !view.fits(head.array, 2 * count)) return false;
    // The volume knows how large its records are, whatever is left of this field.
    if (head.size % head.fixups != 0 || head.stride() < sector ||
        head.size > max_record_size)
        head.size = head.fixups * sector;
    return (signature == file_record::signature ||
            signature == index_block::signature) &&
           head.size <= max_record_size;
}

// The record that holds this byte: the nearest head before it, one with its own tail
// first.
std::optional<record_head> find_head(const byte_source &medium, u64 position)
{
    const u64 first = position - position % sector;
    std::optional<record_head> torn;
    for (u64 back = 0; back < max_record_size && back <= first; back += sector) {
        record_head head;
        if (!read_head(head, medium, first - back)) continue;
        if (head.holds(position) && head.has_own_tail()) return head;
        if (!torn && head.holds(position)) torn = head;
    }
    return torn;
}

// Puts back what belongs to the sector with this number, if its tail is in `bytes`,
// which begin at `begin` on the medium.
bool put_back(std::span<u8> bytes, u64 begin, const record_head &head, u64 number)
{
    const u64 tail = head.position + (number + 1) * head.stride() - 2;
    if (tail + 2 <= begin || tail >= begin + bytes.size()) return false;
    const std::span<const u8> head_bytes = head.bytes;
    const auto check = head_bytes.subspan(head.array, 2);
    const auto truth = head_bytes.subspan(head.array + 2 * (number + 1), 2);
    for (u64 at = 0; at < 2; ++at)
        if (tail + at >= begin && tail + at < begin + bytes.size() &&
            bytes[tail + at - begin] != check[at])
            return false;
    for (u64 at = 0; at < 2; ++at)
        if (tail + at >= begin && tail + at < begin + bytes.size())
            bytes[tail + at - begin] = truth[at];
    return true;
}

} // namespace

std::size_t undo_update_sequence(std::span<u8> bytes, const byte_source &medium,
                                 const std::vector<byte_range> &ranges)
{
    std::size_t count = 0;
    for (const byte_range &range : ranges) {
        const std::span<u8> part =
            bytes.first(std::min<u64>(bytes.size(), range.length));
        bytes = bytes.subspan(part.size());
        // A proof is in one record, or in none.
        const auto head = find_head(medium, range.offset);
        for (u64 number = 0; head && number < head->fixups; ++number)
            count += put_back(part, range.offset, *head, number);
    }
    return count;
}

} // namespace hv

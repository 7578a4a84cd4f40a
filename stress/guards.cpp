#include "stress/guards.h"

#include "samples/crc32.h"
#include "stress/numbers.h"

namespace stress {

namespace {

constexpr u64 step = 512;

void put(std::span<u8> bytes, u64 at, u64 value, std::size_t width)
{
    for (std::size_t i = 0; i < width; ++i)
        bytes[at + i] = static_cast<u8>(value >> 8 * i);
}

} // namespace

update_sequence undo_updates(std::span<u8> bytes)
{
    if (!has_text(bytes, 0, "FILE") && !has_text(bytes, 0, "INDX")) return {};
    const u64 array = number_at(bytes, 4, 2), count = number_at(bytes, 6, 2);
    if (array < 8 || count != bytes.size() / step + 1 || array + 2 * count > step - 2)
        return {};
    const u64 check = number_at(bytes, array, 2);
    for (u64 i = 1; i < count; ++i)
        if (number_at(bytes, i * step - 2, 2) != check) return {};
    for (u64 i = 1; i < count; ++i)
        put(bytes, i * step - 2, number_at(bytes, array + 2 * i, 2), 2);
    return {array, static_cast<u16>(check)};
}

void redo_updates(std::span<u8> bytes, const update_sequence &updates)
{
    if (updates.array == 0) return;
    put(bytes, updates.array, updates.check, 2);
    for (u64 i = 1; i <= bytes.size() / step; ++i) {
        put(bytes, updates.array + 2 * i, number_at(bytes, i * step - 2, 2), 2);
        put(bytes, i * step - 2, updates.check, 2);
    }
}

std::vector<u64> gpt_headers(std::span<const u8> medium,
                             const std::vector<structure> &structures)
{
    std::vector<u64> found;
    for (const structure &each : structures)
        if (each.kind == structure_kind::partition_table &&
            has_text(medium, each.offset, "EFI PART"))
            found.push_back(each.offset);
    return found;
}

void redo_checksums(std::span<u8> medium, u64 header)
{
    const std::span<u8> bytes = clipped(medium, header, step);
    const u64 first = number_at(bytes, 72, 8), size = number_at(bytes, 12, 4);
    const u64 length = number_at(bytes, 80, 4) * number_at(bytes, 84, 4);
    if (bytes.size() < step || size < 92 || size > step) return;
    if (first < medium.size() / step && length <= medium.size() - first * step) {
        const auto entries = medium.subspan(first * step, length);
        put(bytes, 88, test_support::crc32({entries.begin(), entries.end()}), 4);
    }
    put(bytes, 16, 0, 4);
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(size);
    put(bytes, 16, test_support::crc32({bytes.begin(), end}), 4);
}

} // namespace stress

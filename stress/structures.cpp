#include "stress/structures.h"

#include "stress/numbers.h"

#include <algorithm>
#include <array>
#include <set>

namespace stress {

namespace {

using bytes = std::span<const u8>;

constexpr u64 sector = 512;
constexpr u64 entry_bits = 0xFFFFFFFFFFFF; // of a reference
constexpr u64 own_entries = 24;            // of the volume's own files

u64 whole_sectors(u64 length)
{
    return (length + sector - 1) / sector * sector;
}

bool is_zero(bytes part)
{
    return std::ranges::all_of(part, [](u8 byte) { return byte == 0; });
}

// A power of two that a record, a block or a cluster can have, or the usual size.
u64 size_or(u64 stated, u64 usual)
{
    const bool is_power = (stated & (stated - 1)) == 0;
    return is_power && stated >= sector && stated <= 65536 ? stated : usual;
}

// Between 1980 and 2108, as a FILETIME.
bool is_time(u64 value)
{
    return value > 119600064000000000 && value < 160000000000000000;
}

// Each of these returns the length of its structure if one starts here, else 0.

u64 boot_sector(bytes from)
{
    return has_text(from, 3, "NTFS    ") && number_at(from, 510, 2) == 0xAA55 ? sector
                                                                              : 0;
}

// Four entries with a state that can be, one of them in use.
u64 partition_table(bytes from)
{
    if (has_text(from, 0, "EFI PART")) return sector;
    if (number_at(from, 510, 2) != 0xAA55) return 0;
    bool is_used = false;
    for (u64 at = 446; at < 510; at += 16) {
        if ((from[at] & 0x7F) != 0) return 0;
        is_used = is_used || (from[at + 4] != 0 && number_at(from, at + 12, 4) != 0);
    }
    return is_used ? sector : 0;
}

u64 file_record(bytes from)
{
    return has_text(from, 0, "FILE") ? size_or(number_at(from, 28, 4), 1024) : 0;
}

u64 index_block(bytes from)
{
    return has_text(from, 0, "INDX") ? size_or(24 + number_at(from, 32, 4), 4096) : 0;
}

u64 shadow_block(bytes from)
{
    if (number_at(from, 0, 8) != 0x4E48C1763808876B ||
        number_at(from, 8, 8) != 0x52C76C6E0404AEB7)
        return 0;
    constexpr u64 volume_header = 1;
    return number_at(from, 20, 4) == volume_header ? sector : 16384;
}

u64 dollar_i(bytes from)
{
    if (!is_time(number_at(from, 16, 8))) return 0;
    const u64 version = number_at(from, 0, 8), units = number_at(from, 24, 4);
    if (version == 1) return whole_sectors(544);
    return version == 2 && units > 0 && units <= 0x8000 ? whole_sectors(28 + 2 * units)
                                                        : 0;
}

u64 list_file(bytes from)
{
    const u64 version = number_at(from, 0, 4), size = number_at(from, 12, 4);
    if (version > 5 || (size != 800 && size != 280)) return 0;
    u64 end = 20;
    while (is_time(number_at(from, end + 268, 8))) end += size;
    return whole_sectors(end);
}

u64 bin_metadata(bytes from)
{
    return std::max(dollar_i(from), list_file(from));
}

u64 journal_page(bytes from)
{
    constexpr u64 page = 4096;
    u64 end = 0;
    while (end < page) {
        const u64 length = number_at(from, end, 4), major = number_at(from, end + 4, 4);
        if ((major != 2 && major != 3) || length < 60 || length % 8 != 0 ||
            length > page - end)
            break;
        end += length;
    }
    return whole_sectors(end);
}

struct recognizer {
    structure_kind kind;
    u64 (*length_of)(bytes from);
};
constexpr std::array recognizers = {
    recognizer{structure_kind::boot_sector, boot_sector},
    recognizer{structure_kind::file_record, file_record},
    recognizer{structure_kind::index_block, index_block},
    recognizer{structure_kind::shadow_block, shadow_block},
    recognizer{structure_kind::journal_page, journal_page},
    recognizer{structure_kind::bin_metadata, bin_metadata},
    recognizer{structure_kind::partition_table, partition_table},
};

structure structure_at(bytes medium, u64 offset)
{
    using enum structure_kind;
    const bytes from = medium.subspan(offset);
    for (const auto &[kind, length_of] : recognizers) {
        const u64 length = from.size() < sector ? 0 : length_of(from);
        if (length == 0) continue;
        const bool is_vital =
            kind == partition_table || kind == boot_sector || kind == shadow_block;
        return {kind, offset, std::min<u64>(length, from.size()), is_vital};
    }
    return {plain, offset, std::min<u64>(sector, from.size()), false};
}

// Where the entries of each GPT lie: `first` sector, and length in bytes.
std::vector<byte_range> gpt_entries(bytes medium)
{
    std::vector<byte_range> found;
    for (u64 at = 0; at + sector <= medium.size(); at += sector) {
        if (!has_text(medium, at, "EFI PART")) continue;
        const u64 first = number_at(medium, at + 72, 8);
        const u64 length =
            number_at(medium, at + 80, 4) * number_at(medium, at + 84, 4);
        if (first < medium.size() / sector && length <= 65536)
            found.push_back({first * sector, whole_sectors(length)});
    }
    return found;
}

// "3808876b": the names of the catalog and of all stores have it.
bool has_name_of_shadow_copies(bytes record)
{
    constexpr std::u16string_view name = u"3808876b";
    for (u64 at = 0; at + 2 * name.size() <= record.size(); at += 2) {
        std::size_t same = 0;
        while (same < name.size() && number_at(record, at + 2 * same, 2) == name[same])
            ++same;
        if (same == name.size()) return true;
    }
    return false;
}

bool is_vital_record(bytes record)
{
    constexpr u64 directory = 2;
    return number_at(record, 44, 4) < own_entries ||
           (number_at(record, 22, 2) & directory) != 0 ||
           has_name_of_shadow_copies(record);
}

// Marks the records that others depend on, then those that continue these.
void mark_vital_records(std::vector<structure> &found, bytes medium)
{
    std::set<u64> vital;
    const auto record = [&](const structure &each) {
        return medium.subspan(each.offset, each.length);
    };
    for (structure &each : found) {
        if (each.kind != structure_kind::file_record) continue;
        each.is_vital = is_vital_record(record(each));
        if (each.is_vital) vital.insert(number_at(record(each), 44, 4));
    }
    for (structure &each : found) {
        if (each.kind != structure_kind::file_record) continue;
        const u64 base = number_at(record(each), 32, 8);
        if (base != 0 && vital.contains(base & entry_bits)) each.is_vital = true;
    }
}

} // namespace

std::vector<structure> find_structures(std::span<const u8> medium)
{
    std::vector<structure> found;
    const std::vector<byte_range> entries = gpt_entries(medium);
    const auto is_entry = [&](u64 at) {
        return std::ranges::any_of(entries, [at](const byte_range &range) {
            return at >= range.offset && at - range.offset < range.length;
        });
    };
    for (u64 at = 0; at < medium.size();) {
        if (is_zero(clipped(medium, at, sector))) {
            at += sector;
            continue;
        }
        found.push_back(structure_at(medium, at));
        if (is_entry(at))
            found.back() = {structure_kind::partition_table, at, sector, true};
        at += whole_sectors(found.back().length);
    }
    mark_vital_records(found, medium);
    return found;
}

} // namespace stress

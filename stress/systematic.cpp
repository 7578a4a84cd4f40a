#include "stress/systematic.h"

#include "base/hv_byte_view.h"
#include "stress/dependencies.h"

#include <algorithm>

namespace stress {

namespace {

constexpr u64 sector = 512;
constexpr u64 record_number_offset = 44;

// Of the volume's own files, those that rows depend on: $MFT, the root, $Bitmap.
bool counts(const structure &part, hv::byte_view medium)
{
    if (part.kind == structure_kind::plain) return false;
    if (part.kind != structure_kind::file_record) return true;
    const u32 number = medium.read_padded<u32>(part.offset + record_number_offset);
    return number == 0 || number == 5 || number == 6 || number >= 24;
}

} // namespace

systematic_damage::systematic_damage(const sweep_medium &medium) : m_medium(medium)
{
    const hv::byte_view bytes{medium.bytes};
    for (const structure &part : medium.before.structures) {
        if (part.kind == structure_kind::plain) continue;
        for (u64 at = part.offset; at < part.offset + part.length; at += sector)
            m_sectors.push_back(at);
        if (!medium.takes_bits || !counts(part, bytes)) continue;
        for (u64 at = part.offset; at < part.offset + part.length; ++at)
            if (bytes.read_padded<u8>(at) != 0) m_bytes.push_back(at);
    }
}

damage systematic_damage::apply(std::vector<u8> &copy, u64 item) const
{
    const u64 sectors = m_sectors.size();
    if (item < sectors) return cut(copy, m_sectors[item]);
    if (item < 2 * sectors) return zero(copy, m_sectors[item - sectors]);
    if (item < 3 * sectors) return swap(copy, m_sectors[item - 2 * sectors]);
    const u64 bit = item - 3 * sectors;
    return turn_bit(copy, m_bytes[bit / 8], static_cast<unsigned>(bit % 8));
}

// Only bytes that are others now count as touched.
void systematic_damage::note(damage &done, const std::vector<u8> &copy,
                             byte_range range) const
{
    for (u64 at = range.offset; at < range.offset + range.length; ++at) {
        const bool is_same = at < copy.size() && copy[at] == m_medium.bytes[at];
        if (is_same) continue;
        auto &touched = done.touched;
        if (!touched.empty() && touched.back().offset + touched.back().length == at)
            ++touched.back().length;
        else
            touched.push_back({at, 1});
    }
    for (const structure &part : m_medium.before.structures)
        if (part.is_vital)
            done.is_vital =
                done.is_vital ||
                have_common_bytes({{part.offset, part.length}}, done.touched);
}

damage systematic_damage::cut(std::vector<u8> &copy, u64 at) const
{
    damage done;
    copy.resize(at);
    done.story = "cut at " + std::to_string(at);
    const byte_range lost{at, m_medium.bytes.size() - at};
    done.touched = {lost};
    for (const structure &part : m_medium.before.structures)
        done.is_vital =
            done.is_vital || (part.is_vital && part.offset + part.length > at);
    return done;
}

damage systematic_damage::zero(std::vector<u8> &copy, u64 at) const
{
    damage done;
    const u64 length = std::min(sector, copy.size() - at);
    std::fill_n(copy.begin() + static_cast<std::ptrdiff_t>(at), length, u8{0});
    done.story = "sector at " + std::to_string(at) + " zeroed";
    note(done, copy, {at, length});
    return done;
}

damage systematic_damage::swap(std::vector<u8> &copy, u64 at) const
{
    damage done;
    if (copy.size() < at + 2 * sector) return zero(copy, at);
    const auto first = copy.begin() + static_cast<std::ptrdiff_t>(at);
    constexpr auto step = static_cast<std::ptrdiff_t>(sector);
    std::swap_ranges(first, first + step, first + step);
    done.story = "sector at " + std::to_string(at) + " swapped with the next";
    note(done, copy, {at, 2 * sector});
    return done;
}

damage systematic_damage::turn_bit(std::vector<u8> &copy, u64 at, unsigned bit) const
{
    damage done;
    copy[at] = static_cast<u8>(copy[at] ^ (1U << bit));
    done.story = "bit " + std::to_string(bit) + " of byte " + std::to_string(at);
    note(done, copy, {at, 1});
    return done;
}

} // namespace stress

#include "stress/damage.h"

#include "stress/edit_field.h"
#include "stress/guards.h"
#include "stress/numbers.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace stress {

namespace {

constexpr u64 sector = 512;

std::string hex(u64 number)
{
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << number;
    return text.str();
}

void join_touching(std::vector<byte_range> &ranges)
{
    std::sort(ranges.begin(), ranges.end());
    std::vector<byte_range> joined;
    for (const byte_range &each : ranges) {
        if (joined.empty() || joined.back().offset + joined.back().length < each.offset)
            joined.push_back(each);
        const u64 end = std::max(joined.back().offset + joined.back().length,
                                 each.offset + each.length);
        joined.back().length = end - joined.back().offset;
    }
    ranges.swap(joined);
}

// One damage in the making. Stretches are watched before they are written to, and what
// is other afterwards has been touched.
class damaging {
public:
    damaging(damage &done, std::vector<u8> &medium,
             const std::vector<structure> &structures, choices &decide)
        : m_done(done),
          m_medium(medium),
          m_structures(structures),
          m_decide(decide)
    {
    }
    ~damaging() { note_changes(); }
    damaging(const damaging &) = delete;
    damaging &operator=(const damaging &) = delete;

    std::vector<u8> &medium() { return m_medium; }
    const std::vector<structure> &structures() const { return m_structures; }
    u64 below(u64 limit) { return m_decide.below(limit); }
    choices &decide() { return m_decide; }
    void tell(const std::string &what) { m_done.story += what + "; "; }

    std::span<u8> write_to(u64 offset, u64 length)
    {
        const std::span<u8> part = clipped(std::span<u8>(m_medium), offset, length);
        m_before.push_back({offset, {part.begin(), part.end()}});
        return part;
    }
    void cut(u64 size)
    {
        note(byte_range{size, m_medium.size() - size});
        m_medium.resize(size);
    }
    /// A structure that isn't plain and is all there still, or null.
    const structure *pick()
    {
        const auto is_wanted = [this](const structure &each) {
            return each.kind != structure_kind::plain &&
                   each.offset + each.length <= m_medium.size();
        };
        const auto count = std::ranges::count_if(m_structures, is_wanted);
        u64 left = below(static_cast<u64>(count));
        for (const structure &each : m_structures)
            if (is_wanted(each) && left-- == 0) return &each;
        return nullptr;
    }
    /// The start of a sector of a structure or, one time in four, of any.
    u64 pick_sector()
    {
        const structure *found = below(4) == 0 ? nullptr : pick();
        const byte_range range = found == nullptr
                                     ? byte_range{0, m_medium.size()}
                                     : byte_range{found->offset, found->length};
        return range.offset + below((range.length + sector - 1) / sector) * sector;
    }

private:
    struct kept {
        u64 offset = 0;
        std::vector<u8> bytes;
    };

    void note_changes()
    {
        for (const kept &each : m_before) {
            for (u64 i = 0; i < each.bytes.size(); ++i)
                if (m_medium[each.offset + i] != each.bytes[i])
                    note({each.offset + i, 1});
        }
        join_touching(m_done.touched);
    }
    void note(const byte_range &range)
    {
        if (range.length == 0) return;
        std::vector<byte_range> &touched = m_done.touched;
        if (!touched.empty() &&
            touched.back().offset + touched.back().length == range.offset)
            touched.back().length += range.length;
        else
            touched.push_back(range);
        m_done.is_vital = m_done.is_vital || touches_vital(range);
    }
    bool touches_vital(const byte_range &range) const
    {
        const auto ends_before = [](const structure &each, u64 offset) {
            return each.offset + each.length <= offset;
        };
        auto each = std::lower_bound(m_structures.begin(), m_structures.end(),
                                     range.offset, ends_before);
        for (; each != m_structures.end() && each->offset < range.offset + range.length;
             ++each)
            if (each->is_vital) return true;
        return false;
    }

    damage &m_done;
    std::vector<u8> &m_medium;
    const std::vector<structure> &m_structures;
    choices &m_decide;
    std::vector<kept> m_before;
};

// Damage as media have it

// A byte of a sector that was picked.
u64 pick_byte(damaging &out)
{
    const u64 at = out.pick_sector();
    return at + out.below(std::min<u64>(sector, out.medium().size() - at));
}

void flip_bit(damaging &out)
{
    const u64 at = pick_byte(out), bit = out.below(8);
    out.write_to(at, 1)[0] ^= static_cast<u8>(1U << bit);
    out.tell("bit " + std::to_string(bit) + " of byte " + hex(at));
}

void set_byte(damaging &out)
{
    const u64 at = pick_byte(out), value = out.below(256);
    out.write_to(at, 1)[0] = static_cast<u8>(value);
    out.tell("byte " + hex(at) + " = " + hex(value));
}

void fill_sector(damaging &out)
{
    const u64 at = out.pick_sector();
    constexpr std::array<u8, 4> fillers = {0, 0, 0xFF, 'A'};
    const u8 filler = fillers[out.below(fillers.size())];
    std::ranges::fill(out.write_to(at, sector), filler);
    out.tell("sector " + hex(at) + " filled with " + hex(filler));
}

void swap_sectors(damaging &out)
{
    const u64 first = out.pick_sector(), second = out.pick_sector();
    const std::span<u8> one = out.write_to(first, sector);
    const std::span<u8> other = out.write_to(second, one.size());
    std::swap_ranges(other.begin(), other.end(), one.begin());
    out.tell("sectors " + hex(first) + " and " + hex(second) + " swapped");
}

void copy_sector(damaging &out)
{
    const u64 from = out.pick_sector(), to = out.pick_sector();
    const std::span<u8> target = out.write_to(to, sector);
    const auto source = clipped(std::span<const u8>(out.medium()), from, target.size());
    const std::vector<u8> copy(source.begin(), source.end());
    std::ranges::copy(copy, target.begin());
    out.tell("sector " + hex(from) + " copied to " + hex(to));
}

void cut_end(damaging &out)
{
    const u64 at = out.below(2) == 0 ? out.pick_sector() : pick_byte(out);
    out.cut(at);
    out.tell("cut at " + hex(at));
}

// Damage as someone would plan it

void edit_structure(damaging &out)
{
    const structure *target = out.pick();
    if (target == nullptr) return;
    const std::span<u8> place = out.write_to(target->offset, target->length);
    std::vector<u8> bytes(place.begin(), place.end());
    const update_sequence updates = undo_updates(bytes);
    const editing context{out.medium(), out.structures(), *target, out.decide()};
    out.tell("at " + hex(target->offset) + ": " + edit_field(bytes, context));
    redo_updates(bytes, updates);
    std::ranges::copy(bytes, place.begin());
    if (target->kind != structure_kind::partition_table) return;
    for (const u64 header : gpt_headers(out.medium(), out.structures())) {
        out.write_to(header, sector);
        redo_checksums(out.medium(), header);
    }
}

using way = void (*)(damaging &out);
constexpr std::array<way, 16> ways = {
    edit_structure, flip_bit,    edit_structure, set_byte,
    edit_structure, fill_sector, edit_structure, swap_sectors,
    edit_structure, copy_sector, edit_structure, flip_bit,
    edit_structure, cut_end,     edit_structure, fill_sector};

} // namespace

void damage_once(damage &done, std::vector<u8> &medium,
                 const std::vector<structure> &structures, choices &decide)
{
    if (medium.empty()) return;
    damaging out(done, medium, structures, decide);
    ways[decide.below(ways.size())](out);
}

} // namespace stress

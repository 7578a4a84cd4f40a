#include "stress/sweep_plan.h"

#include <algorithm>

namespace stress {

namespace {

// A prime: steps of it reach every number of a count that it doesn't divide.
constexpr u64 stride = 1'000'003;
// Of a medium whose bits aren't turned.
constexpr u64 max_systematic = 2000;
constexpr u64 max_systematic_of_large = 120;
constexpr u64 large = 1 << 20;    // bytes that aren't zeros
constexpr u64 run_cost = 100'000; // of any run, in bytes searched
constexpr u64 all_weights = u64{1} << 32;
constexpr u64 max_at_once = 8;

u64 taken_of(const sweep_medium &medium, u64 count)
{
    if (medium.takes_bits) return count;
    return std::min(count,
                    medium.stored > large ? max_systematic_of_large : max_systematic);
}

} // namespace

sweep_plan::sweep_plan(const std::vector<sweep_medium> &media, u64 seed)
    : m_media(media),
      m_seed(seed)
{
    u64 end = 0, weights = 0;
    for (const sweep_medium &medium : media) {
        systematic_part part{.all = systematic_damage(medium)};
        part.taken = taken_of(medium, part.all.count());
        end += part.taken;
        part.end = end;
        m_parts.push_back(std::move(part));
        // Zeros are copied, and hardly more.
        weights += all_weights / (run_cost + medium.stored + medium.bytes.size() / 16);
        m_weight_ends.push_back(weights);
    }
}

sweep_input sweep_plan::input(u64 number) const
{
    const u64 count = m_parts.back().end;
    const u64 item = number / 2;
    if (number % 2 != 0 || item >= count) return random(number);
    return systematic((m_seed + item * stride) % count);
}

sweep_input sweep_plan::systematic(u64 item) const
{
    const auto part = std::ranges::find_if(
        m_parts, [item](const systematic_part &each) { return item < each.end; });
    sweep_input made;
    made.medium = &m_media[static_cast<std::size_t>(part - m_parts.begin())];
    made.bytes = made.medium->bytes;
    const u64 within = item - (part->end - part->taken);
    const u64 step = part->all.count() / part->taken;
    made.done = part->all.apply(made.bytes, within * step + m_seed % step);
    return made;
}

sweep_input sweep_plan::random(u64 number) const
{
    seeded_choices decide(m_seed * stride + number);
    const u64 place = decide.below(m_weight_ends.back());
    const auto found = std::ranges::upper_bound(m_weight_ends, place);
    sweep_input made;
    made.medium = &m_media[static_cast<std::size_t>(found - m_weight_ends.begin())];
    made.bytes = made.medium->bytes;
    const u64 count = decide.below(2) == 0 ? 1 : 1 + decide.below(max_at_once);
    for (u64 i = 0; i < count; ++i)
        damage_once(made.done, made.bytes, made.medium->before.structures, decide);
    return made;
}

} // namespace stress

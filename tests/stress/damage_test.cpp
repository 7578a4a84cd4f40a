#include "stress/damage.h"
#include "stress/guards.h"
#include "stress/numbers.h"
#include "stress/small_media.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace stress {
namespace {

class SmallMedia : public testing::TestWithParam<small_medium> {
protected:
    const std::vector<u8> m_whole = GetParam().make();
    const std::vector<structure> m_structures = find_structures(m_whole);
};

// Bytes that differ, outside of the stretches that are said to be touched.
u64 count_unsaid(const std::vector<u8> &before, const std::vector<u8> &after,
                 const damage &done)
{
    u64 unsaid = 0, at = 0;
    const auto count_to = [&](u64 end) {
        for (; at < end; ++at)
            if (at >= after.size() || after[at] != before[at]) ++unsaid;
    };
    for (const byte_range &range : done.touched) {
        count_to(range.offset);
        at = range.offset + range.length;
    }
    count_to(before.size());
    return unsaid;
}

TEST_P(SmallMedia, SayWhatDamageTouches)
{
    u64 touched = 0;
    for (u64 seed = 0; seed < 100; ++seed) {
        std::vector<u8> medium = m_whole;
        damage done;
        seeded_choices decide(seed);
        for (int i = 0; i < 3; ++i) damage_once(done, medium, m_structures, decide);
        EXPECT_EQ(count_unsaid(m_whole, medium, done), 0U) << done.story;
        if (!done.touched.empty()) ++touched;
    }
    EXPECT_GT(touched, 80U);
}

// An edit that a reader would reject by its guards reaches nothing after them.
TEST_P(SmallMedia, StayGuardedWhereAFieldIsEdited)
{
    std::set<structure_kind> edited;
    for (u64 seed = 0; seed < 400; ++seed) {
        std::vector<u8> medium = m_whole;
        damage done;
        seeded_choices decide(seed);
        damage_once(done, medium, m_structures, decide);
        if (!done.story.starts_with("at ") || done.touched.empty()) continue;
        for (const structure &each : m_structures) {
            const auto touches = [&](const byte_range &range) {
                return range.offset < each.offset + each.length &&
                       each.offset < range.offset + range.length;
            };
            if (!std::ranges::any_of(done.touched, touches)) continue;
            edited.insert(each.kind);
            const auto bytes = clipped(std::span<u8>(medium), each.offset, each.length);
            std::vector<u8> checked(bytes.begin(), bytes.end());
            const bool has_guard = number_at(m_whole, each.offset + 4, 4) ==
                                       number_at(medium, each.offset + 4, 4) &&
                                   (each.kind == structure_kind::file_record ||
                                    each.kind == structure_kind::index_block);
            if (!has_guard) continue;
            EXPECT_NE(undo_updates(checked).array, 0U) << done.story;
        }
    }
    EXPECT_FALSE(edited.empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, SmallMedia, testing::ValuesIn(small_media()),
                         [](const auto &one) { return one.param.name; });

} // namespace
} // namespace stress

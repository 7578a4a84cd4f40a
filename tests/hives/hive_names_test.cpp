#include "hives/hive_names.h"

#include "samples/hive_builder.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <random>

namespace hv {
namespace {

using namespace test_support;

const byte_vector accounts = sam_hive(
    {11, 22, 4294967295}, {{1001, u"ada"}, {0, u"None"}, {1002, u"J\u00f6rg"}});

names_by_sid names_in(hive_kind kind, const byte_vector &hive)
{
    names_by_sid names;
    read_names(names, kind, hive);
    return names;
}

TEST(HiveNames, AccountsAndProfiles)
{
    if (!can_read_hives()) GTEST_SKIP() << "built without libregf";
    EXPECT_EQ(names_in(hive_kind::accounts, accounts),
              (names_by_sid{{"S-1-5-21-11-22-4294967295-1001", u"ada"},
                            {"S-1-5-21-11-22-4294967295-1002", u"J\u00f6rg"}}));
    EXPECT_EQ(names_in(hive_kind::profiles,
                       software_hive({{u"S-1-5-21-1-2-3-4", u"C:\\Users\\b\u0142.CORP"},
                                      {u"S-1-5-21-1-2-3-5", u"D:\\"}})),
              (names_by_sid{{"S-1-5-21-1-2-3-4", u"b\u0142.CORP"}}));
    EXPECT_EQ(names_in(hive_kind::profiles, accounts), names_by_sid());
    EXPECT_EQ(names_in(hive_kind::accounts, bytes_of("regf")), names_by_sid());
    EXPECT_EQ(hive_written(accounts), sample_filetime);
}

// The library takes gigabytes and half a minute for a few of them: whatever a hive
// holds, it costs a moment, and at most its names.
TEST(HiveNames, DamageCostsTheNamesAlone)
{
    if (!can_read_hives()) GTEST_SKIP() << "built without libregf";
    std::mt19937 random(7);
#ifndef __SANITIZE_ADDRESS__ // where there is no limit of memory
    const byte_vector name = bytes_of("ada");
    byte_vector many = accounts; // values, by the count of one account
    const auto found =
        std::search(many.begin(), many.end(), name.begin(), name.end()) - many.begin();
    put_number(many, static_cast<std::size_t>(found) - 76 + 36, 0x80000001, 4);
    EXPECT_EQ(names_in(hive_kind::accounts, many),
              (names_by_sid{{"S-1-5-21-11-22-4294967295-1002", u"J\u00f6rg"}}));
#endif
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 200; ++round) {
        byte_vector hive = accounts;
        for (int change = 0; change < 6; ++change)
            hive[4096 + random() % 1400] = static_cast<u8>(random());
        EXPECT_LE(names_in(hive_kind::accounts, hive).size(), 3u) << round;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(2));
}

} // namespace
} // namespace hv

#include "ntfs/hv_data_run.h"

#include "samples/record_builders.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace hv;

// clang-format off
namespace {

// A non-resident attribute that starts at cluster `vcn` of its stream.
std::vector<u8> attribute_with(const std::vector<u8> &list, u64 vcn = 5)
{
    std::vector<u8> bytes(64 + list.size());
    std::copy(list.begin(), list.end(), bytes.begin() + 64);
    test_support::put_number(bytes, 4, bytes.size(), 4);
    test_support::put_number(bytes, 16, vcn, 8);
    test_support::put_number(bytes, 32, 64, 2);
    return bytes;
}

} // namespace

TEST(DataRun, DecodesAllForms)
{
    struct expected_run { u64 lcn, delta; u32 clusters; u64 list_lcn; bool sparse; };
    const u64 none = ~u64{0};
    const struct { const char *name; std::vector<u8> list; std::vector<expected_run> runs; } cases[] = {
        {"OneRun", {0x21, 0x18, 0x34, 0x56, 0}, {{0x5634, 0x5634, 0x18, 0x5634, false}}},
        {"Backwards", {0x21, 2, 0, 1, 0x11, 3, 0xFF, 0}, {{0x100, 0x100, 2, 0x100, false}, {0xFF, 1, 3, 0xFF, false}}},
        {"EightBytesBackwards", {0x21, 1, 0, 1, 0x81, 2, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         {{0x100, 0x100, 1, 0x100, false}, {0xF0, 0x10, 2, 0xF0, false}}},
        {"HoleBetween", {0x21, 16, 0, 0x10, 0x01, 8, 0x11, 4, 0x20, 0},
         {{0x1000, 0x1000, 16, 0x1000, false}, {0x1000, 0, 8, none, true}, {0x1020, 0x20, 4, 0x1020, false}}},
        {"ClusterZeroFirst", {0x11, 4, 0, 0x11, 3, 0, 0}, {{0, 0, 4, 0, false}, {0, 0, 3, 0, true}}},
        {"CutEntry", {0x11, 4, 0x10, 0x31, 5, 1, 2}, {{0x10, 0x10, 4, 0x10, false}}},
        {"OutOfTheNumbers", {0x11, 1, 0x80, 0}, {{~u64{127}, 128, 1, ~u64{127}, false}}},
        {"Empty", {0, 0x11, 4, 0x10}, {}}, {"NoByte", {}, {}}};
    for (const auto &[name, list, expected] : cases) {
        const std::vector<u8> attribute = attribute_with(list);
        data_run_list full, listed(1);
        std::vector<flat_run> flat;
        std::vector<cluster_run> clusters;
        EXPECT_TRUE(decode_attribute_runs(byte_view{attribute}, full) && decode_flat_runs(byte_view{attribute}, flat)) << name;
        EXPECT_EQ(decode_run_list(byte_view{list}, listed, 128, true), !expected.empty()) << name;
        runs_to_cluster_runs(full, clusters);
        ASSERT_TRUE(full.size() == expected.size() && flat.size() == full.size() && listed.size() == full.size()) << name;
        u64 vcn = 0;
        for (std::size_t i = 0; i < full.size(); ++i) {
            const auto &[lcn, delta, count, list_lcn, sparse] = expected[i];
            EXPECT_EQ(std::tuple(full[i].lcn, full[i].delta, full[i].clusters, full[i].vcn), std::tuple(lcn, delta, count, 5 + vcn)) << name;
            EXPECT_EQ(std::tuple(flat[i].lcn, flat[i].delta, flat[i].clusters, flat[i].vcn), std::tuple(lcn, delta, count, 5 + vcn)) << name;
            EXPECT_EQ(std::tuple(listed[i].lcn, listed[i].clusters, listed[i].vcn), std::tuple(list_lcn, count, vcn)) << name;
            EXPECT_TRUE(clusters[i].is_sparse == sparse && clusters[i].lcn == (sparse ? 0 : lcn)) << name;
            vcn += count;
        }
        // A hole is one in the list form as well, which has another mark for it.
        runs_to_cluster_runs(listed, clusters);
        for (std::size_t i = 0; i < listed.size(); ++i) EXPECT_EQ(clusters[i].is_sparse, expected[i].list_lcn == none) << name;
    }
}

TEST(DataRun, StaysInsideTheAttribute)
{
    const std::vector<u8> two = {0x11, 4, 0x10, 0x11, 4, 0x10}, folded = {0x15, 5, 0, 0, 0, 1, 0x40, 0};
    std::vector<u8> attribute = attribute_with(two);
    std::vector<flat_run> flat;
    test_support::put_number(attribute, 4, 67, 4); // the list is cut behind its first run
    EXPECT_TRUE(decode_flat_runs(byte_view{attribute}, flat) && flat.size() == 1);
    test_support::put_number(attribute, 32, 0xFFFF, 2);
    EXPECT_TRUE(decode_flat_runs(byte_view{attribute}, flat) && flat.size() == 1);
    test_support::put_number(attribute, 4, 0, 4);
    EXPECT_FALSE(decode_flat_runs(byte_view{attribute}, flat) || decode_flat_runs({}, flat));
    EXPECT_TRUE(decode_flat_runs(byte_view{attribute_with(two, ~u64{2})}, flat) && flat.size() == 2) << "VCNs pass 64 bits";
    // The fifth byte of a length is folded onto the first, in the list form only.
    data_run_list runs;
    EXPECT_TRUE(decode_run_list(byte_view{folded}, runs, 128, false) && runs.back().clusters == 6);
    EXPECT_TRUE(decode_attribute_runs(byte_view{attribute_with(folded)}, runs) && runs.back().clusters == 5);
}

TEST(DataRun, FindsAndCompactsRuns)
{
    std::vector<cluster_run> runs = {{70, 9, false, 2}, {50, 0, false, 4}, {0, 2, true, 5}, {60, 9, false, 3}};
    std::size_t at = 9;
    u64 place = 9;
    EXPECT_TRUE(find_vcn(runs, 3, at, place) && at == 1 && place == 53) << "the first in the list";
    EXPECT_TRUE(find_vcn(runs, 4, at, place) && at == 2 && place == 0);
    EXPECT_TRUE(find_vcn(runs, 11, at, place) && at == 3 && place == 62 && !find_vcn(runs, 7, at, place));
    EXPECT_TRUE(runs_total_bytes(runs, 512, false) == 14u * 512 && runs_total_bytes(runs, 512, true) == 9u * 512);
    const cluster_run huge{0, 0, false, 0xFFFFFFFF};
    EXPECT_EQ(runs_total_bytes({huge, huge}, 0xFFFFFFFF, true), ~u64{0});
    compact_runs(runs);
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_TRUE(runs[0].lcn == 50 && runs[0].vcn == 0 && runs[1].lcn == 70 && runs[1].vcn == 4);
}

#include "ntfs/hv_data_run.h"

#include "samples/record_builders.h"

#include <gtest/gtest.h>

using namespace hv;
using namespace test_support;

namespace {

// A non-resident attribute that has the list at 64.
std::vector<u8> attribute_with(const std::vector<u8> &list)
{
    std::vector<u8> bytes(64);
    append(bytes, list);
    put_layout(bytes, {{4, 4, bytes.size()}, {32, 2, 64}});
    return bytes;
}

// Runs as "vcn:lcn(delta)xclusters", those of the disk without the delta.
template <class Run> std::string text_of(const std::vector<Run> &runs)
{
    std::string text;
    for (const Run &run : runs) {
        std::string where = std::to_string(run.lcn);
        if constexpr (requires { run.delta; })
            where += "(" + std::to_string(run.delta) + ")";
        else if (run.is_sparse)
            where = "hole";
        text += std::to_string(run.vcn) + ":" + where + "x" +
                std::to_string(run.clusters) + " ";
    }
    return text;
}

std::string clusters_of(const data_run_list &runs)
{
    std::vector<cluster_run> clusters;
    runs_to_cluster_runs(runs, clusters);
    return text_of(clusters);
}

std::string flat_text(byte_view attribute)
{
    std::vector<flat_run> runs;
    return decode_flat_runs(attribute, runs) ? text_of(runs) : "-";
}

struct run_case {
    std::vector<u8> list;
    std::string runs;              // in the full and the flat form
    std::string clusters;          // as converted from the full form
    std::string listed = clusters; // as converted from the list form
};

TEST(DataRun, DecodesAllForms)
{
    const std::vector<run_case> cases = {
        // Forward, and backward with eight bytes and with one.
        {{0x21, 24, 0x34, 0x56, 0x81, 2, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
          0x11, 1, 0x80},
         "0:22068(22068)x24 24:22052(16)x2 26:21924(128)x1 ",
         "0:22068x24 24:22052x2 26:21924x1 "},
        // A hole, and cluster 0 at the start.
        {{0x21, 16, 0, 0x10, 0x01, 8, 0x11, 4, 0x20, 0},
         "0:4096(4096)x16 16:4096(0)x8 24:4128(32)x4 ",
         "0:4096x16 16:holex8 24:4128x4 "},
        {{0x11, 4, 0, 0x11, 3, 0, 0},
         "0:0(0)x4 4:0(0)x3 ",
         "0:0x4 4:holex3 ",
         "0:0x4 4:0x3 "},
        // Cut in the second entry; no entry; no byte.
        {{0x11, 4, 0x10, 0x31, 5, 1, 2}, "0:16(16)x4 ", "0:16x4 "},
        {{0, 0x11, 4, 0x10}, "", ""},
        {{}, "", ""},
        // The fifth byte of a length is added to the first, in the list form only.
        {{0x15, 5, 0, 0, 0, 1, 0x40, 0}, "0:64(64)x5 ", "0:64x5 ", "0:64x6 "}};
    for (const auto &[list, runs, clusters, listed_clusters] : cases) {
        const std::vector<u8> attribute = attribute_with(list);
        data_run_list full, listed(1);
        decode_attribute_runs(byte_view{attribute}, full);
        EXPECT_EQ(text_of(full), runs);
        EXPECT_EQ(clusters_of(full), clusters) << runs;
        EXPECT_EQ(flat_text(byte_view{attribute}), runs);
        EXPECT_EQ(decode_run_list(byte_view{list}, listed, 128, true), !runs.empty());
        EXPECT_FALSE(decode_run_list({}, listed, 128, false));
        EXPECT_EQ(clusters_of(listed), listed_clusters) << runs;
    }
}

TEST(DataRun, AFlatRunThatDoesNotMoveIsAHole)
{
    std::vector<cluster_run> clusters;
    flat_to_cluster_runs(
        {{.lcn = 16, .delta = 16, .clusters = 4},
         {.lcn = 16, .delta = 0, .clusters = 3, .vcn = 4},
         {.lcn = 9, .delta = 7, .clusters = 1, .vcn = 7, .negative = true}},
        clusters);
    EXPECT_EQ(text_of(clusters), "0:16x4 4:holex3 7:9x1 ");
}

TEST(DataRun, StaysInsideTheAttribute)
{
    std::vector<u8> attribute = attribute_with({0x11, 4, 0x10, 0x11, 4, 0x10});
    const std::pair<layout_row, const char *> changes[] = {
        {{16, 8, ~u64{2}}, "18446744073709551613:16(16)x4 "}, // then VCNs end
        {{16, 8, 5}, "5:16(16)x4 9:32(16)x4 "},
        {{4, 4, 67}, "5:16(16)x4 "}, // the list is cut after its first run
        {{32, 2, 0xFFFF}, ""},
        {{4, 4, 0}, "-"}};
    for (const auto &[change, runs] : changes) {
        put_layout(attribute, {change});
        EXPECT_EQ(flat_text(byte_view{attribute}), runs);
    }
    EXPECT_EQ(flat_text({}), "-");
}

TEST(DataRun, FindsAndCompactsRuns)
{
    std::vector<cluster_run> runs = {
        {70, 9, false, 2}, {50, 0, false, 4}, {0, 2, true, 5}, {60, 9, false, 3}};
    std::size_t index = 9;
    u64 lcn = 9;
    for (const auto &[vcn, wanted_index, wanted_lcn] :
         {std::tuple<u64, std::size_t, u64>{3, 1, 53}, {4, 2, 0}, {11, 3, 62}}) {
        EXPECT_TRUE(find_vcn(runs, vcn, index, lcn));
        EXPECT_EQ(std::tuple(index, lcn), std::tuple(wanted_index, wanted_lcn)) << vcn;
    }
    EXPECT_FALSE(find_vcn(runs, 7, index, lcn));
    EXPECT_EQ(runs_total_bytes(runs, 512, false), 14u * 512);
    EXPECT_EQ(runs_total_bytes(runs, 512, true), 9u * 512);
    const cluster_run huge{0, 0, false, 0xFFFFFFFF};
    EXPECT_EQ(runs_total_bytes({huge, huge}, 0xFFFFFFFF, true), ~u64{0});
    compact_runs(runs);
    EXPECT_EQ(text_of(runs), "0:50x4 4:70x2 ");
}

} // namespace

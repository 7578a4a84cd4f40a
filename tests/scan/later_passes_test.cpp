#include "scan/carve.h"
#include "scan/cluster_visits.h"
#include "scan/mft_scan.h"
#include "scan/shadow_scan.h"
#include "scan/single_record.h"
#include "scan/unalloc_scan.h"

#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "samples/bins.h"
#include "support/fixtures.h"
#include "vss/hv_vss_catalog.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

namespace hv {
namespace {

using namespace test_support;

class LaterPasses : public testing::Test {
protected:
    LaterPasses() { options.progress = false; }
    std::unique_ptr<CNtfs> open(const byte_vector &image, u64 offset = 0)
    {
        return open_volume(dir.write_file("image", text(image)), offset);
    }

    const temp_dir dir;
    run_options options;
    _trash_inodes collection;
    trash_options context{options, collection};
};

// The free clusters of a volume, each with its bytes, as a plain walk of the bitmap has
// them: on a whole image and on one that is truncated inside a free cluster, with
// zeros stored and with holes in their place.
class UnallocatedScan : public LaterPasses,
                        public testing::WithParamInterface<std::pair<u64, u64>> {};

TEST_P(UnallocatedScan, GivesEachFreeClusterOnce)
{
    using item_list = std::vector<std::pair<u64, std::string>>;
    const auto [volume_offset, clusters] = GetParam();
    const ntfs_volume built = ntfs_volume_builder()
                                  .offset(volume_offset)
                                  .clusters(clusters)
                                  .file({.entry = 64,
                                         .name = "a",
                                         .data = byte_vector(90000, 'a'),
                                         .stored = {.runs = {{500, 10}, {700, 12}}}})
                                  .build_volume();
    byte_vector image = built.image;
    for (u64 i = 0; i < image.size(); i += 512)
        if ((i - volume_offset) >> 16 & 1)
            image[i + 100] ^= static_cast<u8>(i >> 9 | 1);
    const u64 bitmap = volume_offset + built.stream_runs(6).at(0).lcn * 4096;
    const auto drop_zeros = [](item_list &list) {
        std::erase_if(list, [](auto &one) {
            return one.second.find_first_not_of('\0') == std::string::npos;
        });
    };
    for (const u64 cut : {u64{0}, u64{4096} * 3 + 1000}) {
        image.resize(image.size() - cut);
        image[image.size() - 500] = 1; // what comes before it is in a hole
        const std::string medium = text(image);
        std::string last(4096, '\0');
        item_list expected;
        for (u64 cluster = 0; cluster < 1024; ++cluster) {
            const u64 at = volume_offset + cluster * 4096;
            if ((image[bitmap + cluster / 8] >> cluster % 8 & 1) != 0 ||
                at >= image.size())
                continue;
            // As from one buffer for all: after a truncated cluster come bytes of the
            // previous one.
            const std::string bytes = medium.substr(at, 4096);
            last.replace(0, bytes.size(), bytes);
            expected.emplace_back(cluster, last);
        }
        EXPECT_GT(expected.size(), 900u);
        drop_zeros(expected);
        for (const char *sparse : {"never", "always"}) {
            const std::string path = dir / sparse;
            const std::string copy = std::string("cp --sparse=") + sparse + " " +
                                     dir.write_file("image", medium) + " " + path;
            ASSERT_EQ(std::system(copy.c_str()), 0);
            const auto volume = open_volume(path, volume_offset);
            ASSERT_NE(volume, nullptr);
            item_list found;
            const scan_callback take = [&,
                                        offset = volume_offset](const scan_item &item) {
                EXPECT_EQ(item.offset, offset + item.number * 4096);
                const auto bytes = item.data.bytes();
                found.emplace_back(item.number,
                                   std::string(bytes.begin(), bytes.end()));
            };
            EXPECT_TRUE(scan_unallocated(*volume, take, context));
            drop_zeros(found);
            EXPECT_EQ(found, expected) << sparse << ' ' << cut;
        }
    }
}
// At the start of a block of the file, and inside one; with a bitmap whose last byte is
// padded, and with one that ends in free clusters.
INSTANTIATE_TEST_SUITE_P(Volumes, UnallocatedScan,
                         testing::Values(std::pair(8192, 1003), std::pair(1536, 1024)));

TEST(ClusterVisits, HandsOutEachClusterSoOftenAndNoMore)
{
    std::mt19937 random(5);
    cluster_visits visits(2);
    std::map<u64, int> counts;
    for (int round = 0; round < 2000; ++round) {
        const u64 first = random() % 300, end = first + random() % 40;
        std::vector<u64> found, expected;
        for (const auto &[from, to] : visits.take(first, end))
            for (u64 cluster = from; cluster < to; ++cluster) found.push_back(cluster);
        for (u64 cluster = first; cluster < end; ++cluster)
            if (counts[cluster] < 2) ++counts[cluster], expected.push_back(cluster);
        ASSERT_EQ(found, expected) << round;
        if (round % 50 == 49) visits = cluster_visits(2), counts.clear();
    }
}

// The stale record of a folder whose number has another owner now must not take the
// place of the folder in use, nor that of the bin.
TEST_F(LaterPasses, NothingKnownIsTakenAway)
{
    const ntfs_volume live = empty_bin().build_volume();
    ntfs_volume stale = empty_bin("RECYCLER", "S-1-5-21-9").build_volume();
    const auto volume = open(live.image);
    ASSERT_NE(volume, nullptr);
    collection.bins_known = true;
    EXPECT_TRUE(scan_mft_entries(*volume, process_mft_record, 0, 0, context));
    const u64 root = collection.bin_root_index, user = collection.directories.at(65);
    for (const u64 entry : {64, 65}) {
        const std::size_t at = stale.record_position(entry);
        put_number(stale.image, at + 16, 9, 2); // another sequence number
        scan_item item;
        item.volume = volume.get();
        item.context = &context;
        item.data = byte_view{stale.image}.clip(at, 1024);
        carve_cluster(item);
        carve_cluster(item);
    }
    EXPECT_EQ(collection.bin_root_index, root);
    EXPECT_EQ(collection.directories.at(65), user);
    std::vector<std::string> names;
    for (u64 i = 0; i < collection.records.size(); ++i)
        names.emplace_back(collection.records.name(i));
    EXPECT_EQ(names, (std::vector<std::string>{"$Recycle.Bin", "S-1-5-21-7", "RECYCLER",
                                               "S-1-5-21-9"}));
}

// Real stores, whose files hold what was overwritten since.
TEST_F(LaterPasses, ShadowScanReadsARealVolume)
{
    const auto volume = open_volume(fixture_or_skip("vss/vsstest.raw.xz"), 0);
    ASSERT_NE(volume, nullptr);

    std::array<u8, vss_block::header_size> header{};
    vss_store_map stores;
    ASSERT_TRUE(load_stores(header, stores, *volume, {}));
    ASSERT_EQ(stores.size(), 2u);
    const vss_store &first = stores.at("600f0b69-5bdf-11e3-9d6c-005056c00008");
    const vss_store &second = stores.at("600f0b6d-5bdf-11e3-9d6c-005056c00008");
    EXPECT_EQ(reference_entry(first.file_reference), 37u);
    EXPECT_EQ(reference_entry(second.file_reference), 40u);
    EXPECT_EQ(first.store_header_offset, 0x31560000u);
    EXPECT_EQ(second.store_header_offset, 0x6e40000u);
    EXPECT_EQ(first.operating_machine, "infinity");
    std::string date, clock;
    format_date_time(date, clock, time(first.created, type_time::filetime),
                     "yyyy-mm-dd", "hh:mm:ss.xxx");
    EXPECT_EQ(date + " " + clock, "2013-12-03 06:35:09.736");

    // Without a bin known ahead, every record with a name is kept: among them the file
    // that only the first snapshot still saw.
    EXPECT_TRUE(scan_shadow_stores(*volume, context));
    std::set<std::string> names;
    for (u64 i = 0; i < collection.records.size(); ++i)
        names.emplace(collection.records.name(i));
    EXPECT_TRUE(names.contains("syslog"));
}

} // namespace
} // namespace hv

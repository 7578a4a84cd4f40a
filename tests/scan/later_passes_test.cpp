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

namespace hv {
namespace {

using namespace test_support;

class LaterPasses : public testing::Test {
protected:
    LaterPasses() { options.progress = false; }
    std::string names() const
    {
        std::string all;
        for (u64 i = 0; i < collection.records.size(); ++i)
            all.append(collection.records.name(i)) += ' ';
        return all;
    }

    const temp_dir dir;
    run_options options;
    _trash_inodes collection;
    trash_options context{options, collection};
};

// The free clusters of a volume, each with its bytes, as a plain walk of the bitmap has
// them: on a whole image and on one that is truncated inside a free cluster, with zeros
// stored and with holes in their place. The volume is at the start of a block of the
// file, with a bitmap whose last byte is padded, and inside one, with free clusters at
// its end.
TEST_F(LaterPasses, EachFreeClusterIsScannedOnce)
{
    using item_list = std::vector<std::pair<u64, std::string>>;
    const auto add = [](item_list &list, u64 cluster, const std::string &bytes) {
        if (bytes.find_first_not_of('\0') != bytes.npos)
            list.emplace_back(cluster, bytes);
    };
    ntfs_item file = bin_item(64, "a", std::string(90000, 'a'), 5);
    file.stored = {.runs = {{500, 10}, {700, 12}}};
    for (const auto &[offset, clusters] :
         {std::pair<u64, u64>(8192, 1003), {1536, 1024}}) {
        const ntfs_volume built = ntfs_volume_builder()
                                      .offset(offset)
                                      .clusters(clusters)
                                      .file(file)
                                      .build_volume();
        byte_vector image = built.image;
        for (u64 i = 0; i < image.size(); i += 512)
            if ((i - offset) >> 16 & 1) image[i + 100] ^= static_cast<u8>(i >> 9 | 1);
        const u64 bitmap = offset + built.stream_runs(6).at(0).lcn * 4096;
        for (const u64 cut : {u64{0}, u64{4096} * 3 + 1000}) {
            image.resize(image.size() - cut);
            image[image.size() - 500] = 1; // what comes before it is in a hole
            // After a truncated cluster come bytes of the previous one.
            const std::string medium = text(image);
            std::string last(4096, '\0');
            item_list expected;
            for (u64 cluster = 0; cluster < 1024; ++cluster) {
                const u64 at = offset + cluster * 4096;
                if ((image[bitmap + cluster / 8] >> cluster % 8 & 1) != 0 ||
                    at >= image.size())
                    continue;
                const std::string bytes = medium.substr(at, 4096);
                last.replace(0, bytes.size(), bytes);
                add(expected, cluster, last);
            }
            EXPECT_GT(expected.size(), 400u);
            const std::string stored = dir.write_file("image", medium),
                              sparse = dir / "sparse";
            const std::string copy = "cp --sparse=always " + stored + " " + sparse;
            ASSERT_EQ(std::system(copy.c_str()), 0);
            for (const std::string &path : {stored, sparse}) {
                item_list found;
                const auto take = [&, start = offset](const scan_item &item) {
                    EXPECT_EQ(item.offset, start + item.number * 4096);
                    const auto bytes = item.data.bytes();
                    add(found, item.number, std::string(bytes.begin(), bytes.end()));
                };
                EXPECT_TRUE(
                    scan_unallocated(*open_volume(path, offset), take, context));
                EXPECT_EQ(found, expected) << path << ' ' << cut;
            }
        }
    }
}

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
    const auto volume = open_volume(dir.write_file("image", text(live.image)), 0);
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
    EXPECT_EQ(names(), "$Recycle.Bin S-1-5-21-7 RECYCLER S-1-5-21-9 ");
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
    EXPECT_EQ(std::tuple(reference_entry(first.file_reference),
                         reference_entry(second.file_reference),
                         first.operating_machine, first.created / 10'000),
              std::tuple(37, 40, "infinity", 13'030'526'109'736)); // 2013-12-03 06:35

    // Without a bin known before, every record with a name is kept: among them the file
    // that only the first snapshot still saw.
    EXPECT_TRUE(scan_shadow_stores(*volume, context));
    EXPECT_NE(names().find(" syslog "), std::string::npos);
}

} // namespace
} // namespace hv

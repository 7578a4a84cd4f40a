// What a file system forgot: raw media, free clusters, shadow-copy stores.

#include "samples/bins.h"
#include "support/mkntfs_volume.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;
using string_set = std::multiset<std::string>;

constexpr std::size_t cluster_size = 4096;

class Carving : public testing::Test {
protected:
    std::string write(const byte_vector &image) const
    {
        return dir.write_file("image", text(image));
    }

    // Deleted paths, each with what its row says of its origin.
    static string_set found(const string_list &args)
    {
        string_set paths;
        for (const std::string &row : quiet_rows(args)) {
            const string_list cells = split_at(row, '|');
            paths.insert(cells.at(7) + cells.at(10));
        }
        return paths;
    }

    const temp_dir dir;
};

TEST_F(Carving, FindsInfo2AtTheClustersOfAnyMedium)
{
    constexpr std::size_t mib = 1 << 20;
    // Where the list is, `-cluster_size` or "", the size of the medium.
    const std::vector<std::tuple<std::size_t, const char *, std::size_t, bool>> places =
        {{8192, "", mib, true},
         {8192 + 1024, "", mib, false}, // no boundary of 4096 bytes
         {8192 + 1024, "1024", mib, true},
         {8192, "512", mib, false}, // too short a cluster for a record
         {mib, "1048576", 2 * mib, true},
         {0, "2097152", mib, false},       // the medium is shorter than a cluster
         {12288, "", 12288 + 1000, false}, // no whole slot is left
         {12288, "", 12288 + 1024, true}}; // and the rest of the cluster is zeros
    for (const auto &[at, cluster, size, is_found] : places) {
        byte_vector medium(size, 0xFF);
        put_bytes(medium, at, info2_file({{.path = u"C:\\carved"}}));
        medium.resize(size);
        string_list args = {"-image", write(medium), "-rawscan"};
        if (*cluster != 0) args.insert(args.end(), {"-cluster_size", cluster});
        EXPECT_EQ(found(args), is_found ? string_set{"C:\\carved"} : string_set{})
            << at << " " << cluster;
    }
}

// The volume whose records later lie in free clusters only.
ntfs_volume older_volume()
{
    return empty_bin()
        .file(bin_metadata(80, "$IGHOST1.txt", u"C:\\ghost"))
        .directory(bin_item(81, "$RDIR999"))
        .file(bin_item(82, "deep.txt", "", 81))
        .file(bin_item(83, "$RLONE12.txt"))
        .file(bin_item(84, "elsewhere.txt", "", 70))
        .directory(bin_item(70, "Users", "", 5))
        .build_volume();
}

// A live pair, and clusters from 300 on that nothing uses.
ntfs_volume_builder live_bin()
{
    return empty_bin()
        .clusters(400)
        .file(bin_metadata(66, "$ILIVE12.txt", u"C:\\live"))
        .file(bin_item(67, "$RLIVE12.txt"));
}

// With the orphans of `older_volume`, which say where they come from.
string_set with_label(string_set paths, const std::string &label)
{
    // The quote before the text has no partner.
    const std::string shown = "{\"other_info=[" + label + "]}";
    for (const char *orphan : {"<unk path - $RDIR999>\\deep.txt",
                               "<unk path - $RDIR999>", "<unk path - $RLONE12.txt>"})
        paths.insert(orphan + shown);
    return paths;
}

TEST_F(Carving, FindsWhatFreeClustersHold)
{
    const ntfs_volume older = older_volume(), live = live_bin().build_volume();
    byte_vector image = live.image;
    const auto put = [&](u64 cluster, u64 at, const byte_vector &bytes) {
        put_bytes(image, cluster * cluster_size + at, bytes);
    };
    put(300, 1024, older.record(80));
    put(300, 2048, older.record(80)); // each entry and sequence number counts once
    put(301, 1024, older.record(83));
    put(301, 2048 + 512, older.record(70)); // at no multiple of 1024
    put(302, 1024, older.record(82));       // before its folder, so it isn't known yet
    put(302, 2048, older.record(81));
    put(302, 3072, older.record(82));
    put(303, 0, info2_file({{.path = u"C:\\carved"}}));
    put(304, 0, info2_file({{.path = u"C:\\cut"}}));
    put(304, 3072, older.record(84)); // outside the bin; it leaves the list 2048 bytes
    put(305, 0, info2_file({{.path = u"C:\\never"}}));
    put(305, 0, older.record(84)); // the cluster is a record
    const string_set rows = {"C:\\live", "C:\\ghost", "C:\\carved", "C:\\cut"};
    EXPECT_EQ(found({"-image", write(image), "-include_unalloc_clusters"}),
              with_label(rows, "unalloc scan"));

    // The raw scan comes to the same, and takes twice what is there twice.
    string_set raw_rows = with_label(rows, "rawscan");
    raw_rows.insert("C:\\ghost");
    raw_rows.insert("<unk path - $RDIR999>\\deep.txt{\"other_info=[rawscan]}");
    EXPECT_EQ(found({"-image", dir / "image", "-rawscan"}), raw_rows);
}

// A record that is only in a free cluster by now. Its list, in the record or in
// clusters, leads to the rest of the file in the $MFT.
TEST_F(Carving, FollowsTheListOfARecord)
{
    for (const bool in_clusters : {false, true}) {
        ntfs_volume_builder builder =
            live_bin()
                .file(bin_metadata(80, "$IFAR123.txt", u"C:\\far"))
                .move({.entry = 80, .record = 90, .type = ntfs_type::data});
        if (in_clusters) builder.list_in_clusters(80);
        ntfs_volume volume = builder.build_volume();
        const byte_vector record = volume.record(80);
        put_bytes(volume.image, volume.record_position(80), byte_vector(1024));
        string_set expected = {"C:\\live"};
        EXPECT_EQ(found({"-image", write(volume.image), "-include_unalloc_clusters"}),
                  expected);
        put_bytes(volume.image, 350 * cluster_size, record);
        expected.insert("C:\\far");
        EXPECT_EQ(found({"-image", write(volume.image), "-include_unalloc_clusters"}),
                  expected)
            << in_clusters;
        // Another file's record is no part of it.
        put_number(volume.image, volume.record_position(90) + 32, 81 | u64{1} << 48, 8);
        expected.erase("C:\\far");
        EXPECT_EQ(found({"-image", write(volume.image), "-include_unalloc_clusters"}),
                  expected)
            << in_clusters;
    }
}

TEST_F(Carving, ShowsItsProgressUnlessQuiet)
{
    const std::string image = write(live_bin().build()),
                      erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";
    const std::pair<const char *, std::string> passes[] = {
        {"-rawscan", erase + "analyzing each cluster sequentially\n"},
        {"-include_unalloc_clusters",
         erase + "analyzing unalloc clusters\n" +
             "\x1b[2K\r    \rlooking for unalloc cluster\r"}};
    for (const auto &[pass, shown] : passes) {
        const std::string progress = run_veskit({"-image", image, pass}).err;
        EXPECT_NE(progress.find(shown), std::string::npos) << progress;
    }
}

// Stores in the order of their identifiers: one that only an unused slot names, one
// whose file is gone, and two good ones with one between them that the test chooses.
class ShadowCarving : public Carving {
protected:
    // All stores share the header at their common offset.
    static shadow_store store(std::uint8_t id, std::uint64_t entry)
    {
        return {.id = id,
                .snapshot = static_cast<std::uint8_t>(id + 0x10),
                .created = id == 5 ? 0 : sample_filetime,
                .header = 390 * cluster_size,
                .reference = entry | std::uint64_t{1} << 48};
    }

    string_set found_with(const byte_vector &fourth, const char *second_pass = "-quiet")
    {
        const ntfs_volume older = older_volume();
        byte_vector catalog =
            shadow_catalog({store(2, 999), store(3, 73), store(4, 74), store(5, 75)});
        put_number(catalog, 1152, 1, 8);
        put_bytes(catalog, 1152 + 16, shadow_guid(1));
        byte_vector third(3 * cluster_size);
        put_bytes(third, 0, older.record(80));
        put_bytes(third, 1024, older.record(81));
        put_bytes(third, cluster_size, info2_file({{.path = u"C:\\carved"}}));
        put_bytes(third, 2 * cluster_size + 2048, older.record(82));
        put_bytes(third, 2 * cluster_size + 3072, older.record(83));
        const auto file = [](std::uint64_t entry, const byte_vector &data) {
            return bin_item(entry, "a store", text(data), shadow_folder);
        };
        ntfs_item kept = file(73, third), fifth = file(75, info2_file({{}}));
        kept.stored = {.runs = {{330, 2}, {340, 1}}, .valid_size = 0};
        fifth.stored.non_resident = true;
        ntfs_volume_builder volume = live_bin();
        add_catalog(volume, catalog, {.runs = {{320, 4}}, .valid_size = 0});
        volume.file(kept).file(file(74, fourth)).file(fifth);
        byte_vector image = volume.build();
        put_bytes(image, 390 * cluster_size, shadow_store_header(store(3, 73), u"m"));
        return found({"-image", write(image), "-include_vss_clusters", second_pass});
    }
};

TEST_F(ShadowCarving, FindsWhatStoresHold)
{
    string_set rows = {"C:\\live", "C:\\ghost", "C:\\carved"};
    const auto label = [](const std::string &id, const std::string &created) {
        return "\"VSS Store\":\"" + id +
               "\";\"SnapID\":\"13131313-1313-1313-1313-131313131313\"" + created;
    };
    EXPECT_EQ(found_with({}),
              with_label(rows, label("04040404-0404-0404-0404-040404040404",
                                     ";\"Create date\":\"2015-04-04 17:24:09.614 "
                                     "UTC\"")));
    // Both passes: the label is that of the last one.
    EXPECT_EQ(found_with({}, "-include_unalloc_clusters"),
              with_label(rows, "unalloc scan"));
    // Resident content has no clusters, and doesn't stop what follows.
    rows.insert("C:\\a.txt");
    EXPECT_EQ(found_with({1}),
              with_label(rows, label("05050505-0505-0505-0505-050505050505", "")));
}

// The records of files "$IGxx..." in an image, by "xx", in a search of its bytes.
std::multimap<std::string, std::string> records_of_metadata(const std::string &image)
{
    std::multimap<std::string, std::string> records;
    const std::string bytes = file_bytes(image), mark("$\0I\0G\0", 6);
    for (std::size_t at = 0; at + 1024 <= bytes.size(); at += 1024) {
        if (bytes.compare(at, 4, "FILE") != 0) continue;
        const std::string slot = bytes.substr(at, 1024);
        const std::size_t name = slot.find(mark);
        if (name != std::string::npos)
            records.emplace(std::string{slot[name + 6], slot[name + 8]}, slot);
    }
    return records;
}

// A volume that other software wrote.
TEST_F(Carving, BringsBackWhatAByteSearchFinds)
{
    if (!mkntfs_volume::available())
        GTEST_SKIP() << "mkntfs or the ntfs-3g driver can't be used here";
    mkntfs_volume volume(4096, 16 << 20);
    string_list files;
    for (char16_t c = 'A'; c <= 'Z'; ++c)
        for (char16_t d = '0'; d <= '3'; ++d)
            files.push_back(volume.write_file(
                std::string("$Recycle.Bin/S-1-5-21-7/$IG") + char(c) + char(d) + "000",
                text(metadata({'C', ':', '\\', c, d}))));
    ASSERT_TRUE(volume.unmount());
    // Copies of most records go into a file, whose clusters are then given back; the
    // records themselves are taken by other files, all but the last ones.
    std::string copies;
    for (const auto &[name, record] : records_of_metadata(volume.image()))
        if (name[0] != 'B') copies += record;
    ASSERT_TRUE(volume.mount());
    volume.write_file("copies", copies);
    for (const std::string &file : files) std::filesystem::remove(file);
    for (int i = 0; i < 80; ++i) volume.write_file("small/" + std::to_string(i), "1");
    std::filesystem::remove(volume / "copies");
    volume.write_file("over", std::string(5000, 'o'));
    ASSERT_TRUE(volume.unmount());

    std::set<std::string> expected;
    for (const auto &[name, record] : records_of_metadata(volume.image()))
        expected.insert("C:\\" + name);
    EXPECT_GT(expected.size(), 60u);
    EXPECT_LT(expected.size(), 104u); // the test is about what is lost, too
    for (const char *pass : {"-rawscan", "-include_unalloc_clusters"}) {
        const string_set rows = found({"-image", volume.image(), pass});
        EXPECT_EQ(std::set<std::string>(rows.begin(), rows.end()), expected) << pass;
    }
}

} // namespace

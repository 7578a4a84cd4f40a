// What a file system forgot: raw media, free clusters, shadow-copy stores.

#include "samples/ntfs_volume_builder.h"
#include "samples/shadow_structures.h"
#include "support/mkntfs_volume.h"
#include "support/run_veskit.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;
using string_set = std::multiset<std::string>;
namespace fs = std::filesystem;

constexpr std::size_t cluster_size = 4096;

byte_vector info2_of(const char16_t *path)
{
    return info2_file({{.path = path}});
}

class Carving : public testing::Test {
protected:
    std::string write(const byte_vector &image)
    {
        return dir.write_file("image", text(image));
    }

    // Deleted paths, and of rows that say it, what they say of their origin.
    string_set found(string_list args)
    {
        args.insert(args.end(), {"-quiet", "-no_whitespace", "-diags", dir / "log"});
        fs::remove(dir / "log");
        const run_result run = run_veskit(args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        string_set paths;
        for (const std::string &row : run.rows()) {
            const string_list cells = split_at(row, '|');
            paths.insert(cells.at(7) + cells.at(10));
        }
        return paths;
    }

    // The counts of records that the log tells behind each pass.
    string_list counts() const
    {
        string_list lines;
        for (const std::string &line : split_at(file_bytes(dir / "log"), '\n'))
            if (line.find("store_count") != std::string::npos) lines.push_back(line);
        return lines;
    }

    const temp_dir dir;
};

TEST_F(Carving, FindsInfo2AtTheClustersOfAnyMedium)
{
    struct place {
        std::size_t at;
        const char *cluster; ///< "" for no `-cluster_size`
        std::size_t medium;
        bool found;
    };
    constexpr std::size_t mib = 1 << 20;
    const std::vector<place> places = {
        {8192, "", mib, true},
        {8192 + 1024, "", mib, false}, // no boundary of 4096 bytes
        {8192 + 1024, "1024", mib, true},
        {8192 + 512, "512", mib, false}, // slots are 1024 bytes apart
        {8192, "512", mib, false},       // too short a cluster for a record
        {65536, "65536", mib, true},
        {0, "1048576", mib, true},
        {mib, "1048576", 2 * mib, true},
        {mib, "2097152", 2 * mib, false},
        {0, "2097152", mib, false},       // the medium is shorter than a cluster
        {mib - 1024, "1024", mib, true},  // the last slot
        {12288, "", 12288 + 1000, false}, // no whole slot is left
        {12288, "", 12288 + 1024, true},  // and the rest of the cluster is zeros
    };
    for (const place &one : places) {
        byte_vector medium(one.medium, 0xFF);
        put_bytes(medium, one.at, info2_of(u"C:\\carved"));
        medium.resize(one.medium);
        string_list args = {"-image", write(medium), "-rawscan"};
        if (*one.cluster != 0) args.insert(args.end(), {"-cluster_size", one.cluster});
        EXPECT_EQ(found(args), one.found ? string_set{"C:\\carved"} : string_set{})
            << one.at << " " << one.cluster;
    }
}

// Records that only the free clusters of a volume hold.
struct ghosts {
    ghosts()
    {
        const auto item = [](std::uint64_t entry, std::uint64_t parent,
                             const char *name) {
            return ntfs_item{.entry = entry, .parent = parent, .name = name};
        };
        ntfs_item metadata_file = item(80, 65, "$IGHOST1.txt");
        metadata_file.data = metadata(u"C:\\ghost");
        volume = ntfs_volume_builder()
                     .directory({.entry = 64, .name = "$Recycle.Bin"})
                     .directory({.entry = 65, .parent = 64, .name = "S-1-5-21-7"})
                     .file(metadata_file)
                     .directory(item(81, 65, "$RDIR999"))
                     .file(item(82, 81, "deep.txt"))
                     .file(item(83, 65, "$RLONE12.txt"))
                     .file(item(84, 70, "elsewhere.txt"))
                     .directory(item(70, 5, "Users"))
                     .build_volume();
    }
    byte_vector record(std::uint64_t entry) const
    {
        const auto at = volume.image.begin() +
                        static_cast<std::ptrdiff_t>(volume.record_position(entry));
        return {at, at + 1024};
    }
    ntfs_volume volume;
};

// A live pair, and clusters from 300 on that nothing uses.
ntfs_volume_builder live_bin()
{
    return ntfs_volume_builder()
        .clusters(400)
        .directory({.entry = 64, .name = "$Recycle.Bin"})
        .directory({.entry = 65, .parent = 64, .name = "S-1-5-21-7"})
        .file({.entry = 66,
               .parent = 65,
               .name = "$ILIVE12.txt",
               .data = metadata(u"C:\\live")})
        .file({.entry = 67, .parent = 65, .name = "$RLIVE12.txt"});
}

string_set with_label(string_set paths, const std::string &label)
{
    // The quote ahead of the text has no partner.
    const std::string shown = "{\"other_info=[" + label + "]}";
    for (const char *orphan : {"<unk path - $RDIR999>\\deep.txt",
                               "<unk path - $RDIR999>", "<unk path - $RLONE12.txt>"})
        paths.insert(orphan + shown);
    return paths;
}

TEST_F(Carving, FindsWhatFreeClustersHold)
{
    const ghosts gone;
    byte_vector image = live_bin().build();
    const auto put = [&](std::size_t cluster, std::size_t at,
                         const byte_vector &bytes) {
        put_bytes(image, cluster * cluster_size + at, bytes);
    };
    put(300, 1024, gone.record(80));
    put(300, 2048, gone.record(80)); // each entry and sequence number counts once
    put(301, 1024, gone.record(83));
    put(301, 2048 + 512, gone.record(70)); // at no multiple of 1024
    put(302, 1024, gone.record(82));       // ahead of its folder, so it isn't known yet
    put(302, 2048, gone.record(81));
    put(302, 3072, gone.record(82));
    put(303, 0, info2_of(u"C:\\carved"));
    put(304, 0, info2_of(u"C:\\behind"));
    put(304, 3072, gone.record(84)); // outside the bin; it leaves the list 2048 bytes
    put(305, 0, info2_of(u"C:\\never"));
    put(305, 0, gone.record(84)); // the cluster is a record
    const string_set rows = {"C:\\live", "C:\\ghost", "C:\\carved", "C:\\behind"};
    EXPECT_EQ(found({"-image", write(image), "-include_unalloc_clusters"}),
              with_label(rows, "unalloc scan"));
    EXPECT_EQ(counts(),
              (string_list{"->MFT parse finished: store_count: 0x00000004",
                           "->unalloc parse finished: store_count: 0x00000008"}));

    // The raw scan comes to the same, and twice to what stands there twice.
    string_set raw_rows = with_label(rows, "rawscan");
    raw_rows.insert("C:\\ghost");
    raw_rows.insert("<unk path - $RDIR999>\\deep.txt{\"other_info=[rawscan]}");
    EXPECT_EQ(found({"-image", write(image), "-rawscan"}), raw_rows);

    // Clusters in use aren't looked at.
    byte_vector full = image;
    const ntfs_volume plan = live_bin().build_volume();
    const std::uint64_t bitmap = plan.stream_runs(6).at(0).lcn * cluster_size;
    for (std::size_t i = 0; i < 400 / 8; ++i) full[bitmap + i] = 0xFF;
    EXPECT_EQ(found({"-image", write(full), "-include_unalloc_clusters"}),
              string_set{"C:\\live"});
    // A cut image still gives what it has; a bitmap that is gone costs the pass alone.
    image.resize(302 * cluster_size + 2000);
    EXPECT_EQ(
        found({"-image", write(image), "-include_unalloc_clusters"}).count("C:\\ghost"),
        1u);
    std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(plan.record_position(6)),
                1024, 0);
    EXPECT_EQ(found({"-image", write(image), "-include_unalloc_clusters"}),
              string_set{"C:\\live"});
}

TEST_F(Carving, ShowsItsProgressUnlessQuiet)
{
    const std::string image = write(live_bin().build());
    const auto messages = [&](const char *pass) {
        return run_veskit({"-image", image, pass}).err;
    };
    const std::string erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";
    EXPECT_TRUE(messages("-rawscan")
                    .starts_with(erase + "analyzing each cluster sequentially\n"));
    const std::string unalloc = messages("-include_unalloc_clusters");
    EXPECT_NE(unalloc.find(erase + "analyzing unalloc clusters\n" +
                           "\x1b[2K\r    \rlooking for unalloc cluster\r"),
              std::string::npos)
        << unalloc;
}

// Stores in the order of their identifiers: one that only an unused slot names, one
// whose file is gone, two good ones with an empty one between them.
TEST_F(Carving, FindsWhatShadowStoresHold)
{
    const ghosts gone;
    const auto store = [](std::uint8_t id, std::uint64_t entry) {
        return shadow_store{.id = id,
                            .snapshot = static_cast<std::uint8_t>(id + 0x10),
                            .created = id == 5 ? 0 : sample_filetime,
                            .header = 390 * cluster_size,
                            .reference = entry | std::uint64_t{1} << 48};
    };
    byte_vector catalog =
        shadow_catalog({store(2, 999), store(3, 73), store(4, 74), store(5, 75)});
    put_number(catalog, 1152, 1, 8);
    put_bytes(catalog, 1152 + 16, shadow_guid(1));
    byte_vector clusters(3 * cluster_size);
    put_bytes(clusters, 0, gone.record(80));
    put_bytes(clusters, 1024, gone.record(81));
    put_bytes(clusters, cluster_size, info2_of(u"C:\\carved"));
    put_bytes(clusters, 2 * cluster_size + 2048, gone.record(82));
    put_bytes(clusters, 2 * cluster_size + 3072, gone.record(83));
    const auto build = [&](const byte_vector &fourth) {
        byte_vector image =
            live_bin()
                .directory({.entry = 71, .name = "System Volume Information"})
                .file({.entry = 72,
                       .parent = 71,
                       .name = shadow_name,
                       .data = catalog,
                       .stored = {.runs = {{320, 4}}, .valid_size = 0}})
                .file({.entry = 73,
                       .parent = 71,
                       .name = "store three",
                       .data = clusters,
                       .stored = {.runs = {{330, 2}, {340, 1}}, .valid_size = 0}})
                .file({.entry = 74, .parent = 71, .name = "four", .data = fourth})
                .file({.entry = 75,
                       .parent = 71,
                       .name = "store five",
                       .data = info2_of(u"C:\\fifth"),
                       .stored = {.non_resident = true}})
                .build();
        put_bytes(image, 390 * cluster_size, shadow_store_header(store(3, 73), u"m"));
        return write(image);
    };
    const string_set rows = {"C:\\live", "C:\\ghost", "C:\\carved"};
    const auto label = [](const char *id, const char *created) {
        const auto guid = [](const std::string &byte) {
            const std::string two = byte + byte;
            return two + two + "-" + two + "-" + two + "-" + two + "-" + two + two +
                   two;
        };
        // All stores share the header that stands at their common offset.
        return "\"VSS Store\":\"" + guid(id) + "\";\"SnapID\":\"" + guid("13") + "\"" +
               created;
    };
    const std::string created = ";\"Create date\":\"2015-04-04 17:24:09.614 UTC\"";
    EXPECT_EQ(found({"-image", build({}), "-include_vss_clusters"}),
              with_label(rows, label("04", created.c_str())));
    EXPECT_EQ(counts(), (string_list{"->MFT parse finished: store_count: 0x00000004",
                                     "->vss parse finished: store_count: 0x00000008"}));
    // Resident content has no clusters, and doesn't stop what follows.
    string_set more = rows;
    more.insert("C:\\fifth");
    EXPECT_EQ(found({"-image", build({1}), "-include_vss_clusters"}),
              with_label(more, label("05", "")));
    // Both passes: the label is that of the last one.
    EXPECT_EQ(found({"-image", build({}), "-include_vss_clusters",
                     "-include_unalloc_clusters"}),
              with_label(rows, "unalloc scan"));
    EXPECT_EQ(counts().size(), 3u);
}

// ---- Volumes that other software wrote

// The name of each "$I" file whose record stands somewhere in an image, by a search of
// its bytes.
std::set<std::string> names_in(const std::string &image)
{
    std::set<std::string> names;
    const std::string bytes = file_bytes(image);
    const std::string mark("$\0I\0G\0", 6);
    for (std::size_t at = 0; at + 1024 <= bytes.size(); at += 1024) {
        const std::string_view slot = std::string_view(bytes).substr(at, 1024);
        const std::size_t name = slot.find(mark);
        if (!slot.starts_with("FILE") || name == std::string_view::npos) continue;
        std::string text;
        for (std::size_t i = 0; i < 8; ++i) text += slot[name + 2 * i];
        names.insert(text);
    }
    return names;
}

TEST_F(Carving, BringsBackWhatAByteSearchFinds)
{
    if (!mkntfs_volume::available())
        GTEST_SKIP() << "mkntfs or the ntfs-3g driver can't be used here";
    mkntfs_volume volume;
    const auto put = [&](const std::string &name, const byte_vector &bytes) {
        fs::create_directories(fs::path(volume / name).parent_path());
        std::ofstream(volume / name, std::ios::binary) << text(bytes);
    };
    const std::string bin = "$Recycle.Bin/S-1-5-21-7/";
    for (char16_t c = 'A'; c <= 'Z'; ++c)
        for (char16_t d = '0'; d <= '3'; ++d)
            put(bin + "$IG" + char(c) + char(d) + "000",
                metadata({'C', ':', '\\', c, d}));
    ASSERT_TRUE(volume.unmount());
    // Copies of most records go into a file, whose clusters are then given back; the
    // records themselves are taken by other files, all but the last ones.
    byte_vector copies;
    const std::string before = file_bytes(volume.image());
    for (std::size_t at = 0; at + 1024 <= before.size(); at += 1024) {
        const std::string slot = before.substr(at, 1024);
        if (slot.starts_with("FILE") &&
            slot.find(std::string("$\0I\0G\0", 6)) != slot.npos &&
            slot.find(std::string("G\0B\0", 4)) == slot.npos)
            copies.insert(copies.end(), slot.begin(), slot.end());
    }
    ASSERT_TRUE(volume.remount());
    put("copies", copies);
    put("list", info2_file({{.path = u"D:\\one"}, {.path = u"D:\\two", .number = 2}}));
    for (char16_t c = 'A'; c <= 'Z'; ++c)
        for (char16_t d = '0'; d <= '3'; ++d)
            fs::remove(volume / (bin + "$IG" + char(c) + char(d) + "000"));
    for (int i = 0; i < 80; ++i) put("small/" + std::to_string(i), {1});
    fs::remove(volume / "copies");
    fs::remove(volume / "list");
    put("over", byte_vector(5000, 'o'));
    ASSERT_TRUE(volume.unmount());

    const std::set<std::string> there = names_in(volume.image());
    EXPECT_GT(there.size(), 60u);
    EXPECT_LT(there.size(), 104u); // the test is about what is lost, too
    std::set<std::string> expected = {"D:\\one", "D:\\two"};
    for (const std::string &name : there) expected.insert("C:\\" + name.substr(3, 2));
    for (const char *pass : {"-rawscan", "-include_unalloc_clusters"}) {
        const string_set rows = found({"-image", volume.image(), pass});
        EXPECT_EQ(std::set<std::string>(rows.begin(), rows.end()), expected) << pass;
    }
}

} // namespace

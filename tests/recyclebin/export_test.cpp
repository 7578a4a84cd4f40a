// Files that leave a medium: their names, their bytes, and what is said of them.

#include "disk/hv_file_source.h"
#include "recovery/stream_reader.h"
#include "recyclebin/safe_names.h"
#include "samples/bins.h"
#include "support/fixtures.h"
#include "support/memory_source.h"
#include "support/run_program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace {

using namespace test_support;
using namespace hv;
using json = nlohmann::ordered_json;
using string_list = std::vector<std::string>;

TEST(SafeNames, FitEverySystem)
{
    struct named {
        std::u16string name;
        std::string safe;
    };
    const std::u16string half = {u'a', char16_t{0xd83d}};
    for (const auto &[name, safe] :
         std::vector<named>{{u"Köln, final.docx", "Köln, final.docx"},
                            {u"", "_"},
                            {u".", "%2e"},
                            {u"..", ".%2e"},
                            {u"a. ", "a.%20"},
                            {u"a/b\\c:d", "a%2fb%5cc%3ad"},
                            {std::u16string(1, u'\0'), "%00"},
                            {u"\x1b[2J\x7f", "%1b[2J%7f"},
                            {u"\u202egpj.exe", "%e2%80%aegpj.exe"},
                            {half, "a%ud83d"},
                            {u"con", "_con"},
                            {u"Lpt1 .txt", "_Lpt1 .txt"},
                            {u"console", "console"},
                            {std::u16string(300, u'ä') + u".txt", [] {
                                 std::string cut;
                                 for (int i = 0; i < 98; ++i) cut += "ä";
                                 return cut + ".txt";
                             }()}})
        EXPECT_EQ(safe_name(name), safe);

    for (const auto &[path, safe] : std::vector<std::pair<std::u16string, string_list>>{
             {u"C:\\a\\b", {"C", "a", "b"}},
             {u"..\\..\\etc\\passwd", {".%2e", ".%2e", "etc", "passwd"}},
             {u"/etc/passwd", {"%2fetc%2fpasswd"}},
             {u"\\\\server\\share\\x", {"network", "server", "share", "x"}},
             {u"C:\\con\\\\", {"C", "_con", "_", "_"}},
             {u"C:\\" + std::u16string(32000, u'\\') + u"x", {"C", "long path", "x"}}})
        EXPECT_EQ(safe_path(path), safe);
}

TEST(SafeNames, KeepsApartWhatSomeSystemTakesForTheSame)
{
    used_names names;
    EXPECT_EQ(names.folder("", "Users"), "Users");
    EXPECT_EQ(names.folder("", "USERS"), "Users") << "one folder for Windows";
    EXPECT_EQ(names.file("Users", "\u00e9.txt"), "\u00e9.txt");
    EXPECT_EQ(names.file("Users", "\u00c9.TXT"), "\u00c9 (2).TXT");
    EXPECT_EQ(names.file("users", "e\u0301.txt"), "e\u0301 (3).txt");
    EXPECT_EQ(names.file("", "users"), "users (2)");
    EXPECT_EQ(names.folder("Users", "\u00e9.txt"), "\u00e9.txt (4)");
    EXPECT_EQ(names.folder("Users", "\u00e9.txt"), "\u00e9.txt (4)");
}

// Bytes of which no two stretches of 4096 are equal.
std::string pattern(std::size_t size)
{
    std::string bytes(size, 'x');
    for (std::size_t at = 0; at < size; at += 512)
        bytes.replace(at, 8, std::to_string(10000000 + at).substr(0, size - at));
    return bytes;
}

// Sectors that fail while they are read, and an image that was cut off before.
TEST(StreamReader, NamesWhatTheMediumDoesntDeliver)
{
    const temp_dir dir;
    ntfs_item item = bin_item(68, "$RAB12CD.txt", pattern(10000));
    item.stored.runs = {{1500, 3}};
    const std::string path =
        dir.write_file("medium", text(empty_bin().clusters(2000).file(item).build()));
    std::string half = pattern(4096);
    half.resize(10000);
    for (const gap_reason why : {gap_reason::unreadable, gap_reason::off_medium}) {
        const auto medium = std::make_shared<file_source>(path);
        volume_view view(medium, 0, 0);
        ASSERT_TRUE(view.open());
        file_facts facts;
        record_bytes record;
        ASSERT_TRUE(view.read_file(facts, record, 68));
        // The first time, the file loses these bytes while it is open.
        std::filesystem::resize_file(path, 1501 * 4096);
        stream_reader data(view, *medium, {.facts = facts});
        std::string bytes;
        for (byte_view next = data.next(); next.size() > 0; next = data.next())
            bytes.append(next.bytes().begin(), next.bytes().end());
        EXPECT_EQ(bytes, half);
        ASSERT_EQ(data.gaps().size(), 1u);
        const auto [offset, length, reason] = data.gaps().front();
        EXPECT_EQ(std::tuple(offset, length, reason), std::tuple(4096, 5904, why));
    }
}

// Streams as damage leaves them, over a volume of 2000 clusters of 4096 bytes.
TEST(StreamReader, NamesWhatRecordsDontSay)
{
    const auto medium =
        std::make_shared<memory_source>(empty_bin().clusters(2000).build());
    volume_view view(medium, 0, 0);
    ASSERT_TRUE(view.open());
    stream_fact in_record;
    in_record.type = 0x80;
    in_record.place = 700;
    in_record.length = 100;
    in_record.content = byte_vector(100, 'x');
    stream_fact bare;
    bare.type = 0x80;
    bare.is_resident = false;
    // From cluster 2 on: the record with the first two clusters, and the size, is lost.
    stream_fact second = bare;
    second.first_vcn = 2;
    second.runs = {{.lcn = 1500, .delta = 1, .clusters = 1, .vcn = 2},
                   {.lcn = 1600, .delta = 1, .clusters = 1, .vcn = 4}};
    bare.length = bare.valid = 9000;
    stream_fact far = bare; // its last cluster ends after 2^64 bytes
    far.runs = {{.lcn = 1500, .delta = 1, .clusters = 2},
                {.lcn = u64{1} << 52, .delta = 1, .clusters = 1, .vcn = 2}};
    stream_fact packed = bare; // a unit of 16 clusters, of which one is stored
    packed.is_compressed = true;
    packed.unit_clusters = 16;
    stream_fact lost_unit = packed;
    packed.runs = {{.lcn = 1500, .delta = 1, .clusters = 1},
                   {.clusters = 15, .vcn = 1}};
    lost_unit.runs = {{.lcn = u64{1} << 52, .delta = 1, .clusters = 1},
                      {.clusters = 15, .vcn = 1}};
    stream_fact huge_unit = packed;
    huge_unit.unit_clusters = 1U << 20U;

    struct damaged {
        const char *what;
        stream_fact stream;
        u64 sound;
        u64 size;
        std::vector<std::tuple<u64, u64, gap_reason>> gaps;
    };
    for (const auto &[what, stream, sound, size, gaps] : std::vector<damaged>{
             {"whole", in_record, 800, 100, {}},
             {"torn in it", in_record, 766, 100, {{66, 34, gap_reason::torn}}},
             {"torn before it", in_record, 512, 100, {{0, 100, gap_reason::torn}}},
             {"without its first record",
              second,
              ~u64{0},
              20480,
              {{0, 8192, gap_reason::no_run}, {12288, 4096, gap_reason::no_run}}},
             {"without runs", bare, ~u64{0}, 9000, {{0, 9000, gap_reason::no_run}}},
             {"off the medium",
              far,
              ~u64{0},
              9000,
              {{8192, 808, gap_reason::off_medium}}},
             {"bad unit", packed, ~u64{0}, 9000, {{0, 9000, gap_reason::not_expanded}}},
             {"lost unit",
              lost_unit,
              ~u64{0},
              9000,
              {{0, 9000, gap_reason::off_medium}}},
             {"huge unit",
              huge_unit,
              ~u64{0},
              9000,
              {{0, 9000, gap_reason::not_expanded}}},
         }) {
        file_facts facts;
        facts.streams = {stream};
        stream_reader reader(view, *medium, {.facts = facts, .sound = sound});
        u64 delivered = 0;
        for (byte_view next = reader.next(); next.size() > 0; next = reader.next())
            delivered += next.size();
        EXPECT_EQ(std::tuple(reader.size(), delivered), std::tuple(size, size)) << what;
        std::vector<std::tuple<u64, u64, gap_reason>> found;
        for (const stream_gap &gap : reader.gaps())
            found.emplace_back(gap.offset, gap.length, gap.why);
        EXPECT_EQ(found, gaps) << what;
    }
}

constexpr u32 reparse_type = 0xC0;
constexpr u64 huge = u64{1} << 40;

// A bin with data in every condition.
byte_vector well_used_bin()
{
    const auto clustered = [](u64 entry, const std::string &name, std::size_t size) {
        ntfs_item item = bin_item(entry, name, pattern(size));
        item.stored.non_resident = true;
        return item;
    };
    ntfs_item packed = clustered(68, "$RPACKED.bin", 200000);
    packed.stored.compressed = true;
    ntfs_item valid = clustered(70, "$RVALID1.bin", 9000);
    valid.stored.valid_size = 5000;
    ntfs_item purged = clustered(72, "$RPURGED.txt", 10000);
    purged.stored.runs = {{1500, 3}};
    purged.in_use = false;
    ntfs_item over = bin_item(73, "other", pattern(4096), 5);
    over.stored.runs = {{1501, 1}};
    const auto reparse = [](u64 entry, u64 tag) {
        ntfs_stream stream{.entry = entry, .data = byte_vector(16)};
        put_number(stream.data, 0, tag, 4);
        stream.type = reparse_type;
        return stream;
    };
    ntfs_volume_builder builder = empty_bin();
    builder.clusters(2000)
        .file(bin_metadata(67, "$IPACKED.bin", u"C:\\packed.bin"))
        .file(packed)
        .stream({.entry = 68, .name = "a/b", .data = bytes_of("beside")})
        .file(bin_metadata(69, "$IVALID1.bin", u"C:\\valid.bin"))
        .file(valid)
        .file(bin_metadata(71, "$IPURGED.txt", u"C:\\purged.txt"))
        .file(purged)
        .file(over)
        .file(bin_metadata(74, "$ICRYPT1.txt", u"C:\\crypt.txt"))
        .file(clustered(75, "$RCRYPT1.txt", 700))
        .file(bin_metadata(76, "$IHUGE12.txt", u"C:\\huge.txt"))
        .file(clustered(77, "$RHUGE12.txt", 5000))
        .file(bin_metadata(78, "$ILINKED.txt", u"C:\\linked.txt"))
        .file(bin_item(79, "$RLINKED.txt"))
        .stream(reparse(79, 0xA000000C))
        .file(bin_metadata(80, "$IFOLDER", u"C:\\folder"))
        .directory(bin_item(81, "$RFOLDER"))
        .file(bin_item(82, "a.txt", "first", 81))
        .directory(bin_item(83, "in it", "", 81))
        .file(bin_item(84, "b.txt", "second", 83))
        .file(bin_metadata(85, "$IUPWARD", u"..\\..\\up"))
        .file(bin_item(86, "$RUPWARD", "up"));
    ntfs_item twin = bin_item(87, "A.TXT", "twin", 81);
    twin.in_index = false;
    builder.file(twin);
    ntfs_volume volume = builder.build_volume();
    put_number(volume.image, volume.attribute_position(75, ntfs_type::data) + 12,
               0x4000, 2);
    put_number(volume.image, volume.attribute_position(77, ntfs_type::data) + 48, huge,
               8);
    return volume.image;
}

class Export : public testing::Test {
protected:
    run_result run(const string_list &options, const std::string &to = "out") const
    {
        string_list args = {"export", medium, "--to", dir / to};
        args.insert(args.end(), options.begin(), options.end());
        return run_program(RECYCLEBIN_BINARY, args);
    }
    // The lines of a manifest by path and stream.
    std::map<std::string, json> lines(const std::string &to = "out") const
    {
        std::map<std::string, json> found;
        for (const std::string &line :
             split_at(file_bytes(dir / to + "/manifest.jsonl"), '\n'))
            if (const json each = json::parse(line, nullptr, false); each.is_object())
                found[each.value("path_before", "") +
                      (each.contains("stream") ? ":" + each.value("stream", "") : "")] =
                    each;
        return found;
    }
    std::string written(const json &line) const
    {
        return file_bytes(dir / "out/" + line.value("path_written", "none"));
    }
    std::size_t count_files(const std::string &to = "out") const
    {
        std::size_t count = 0;
        for (const auto &each : std::filesystem::recursive_directory_iterator(dir / to))
            count += each.is_regular_file();
        return count;
    }

    const temp_dir dir;
    std::string medium = dir.write_file("medium", text(well_used_bin()));
};

TEST_F(Export, WritesWhatIsLeftAndSaysWhatIsnt)
{
    EXPECT_EQ(run({}).status, 0);
    const auto found = lines();
    std::string overwritten = pattern(10000);
    std::fill_n(overwritten.begin() + 4096, 4096, '\0');
    std::string crypt = pattern(700);
    crypt.resize(1024);
    std::string valid = pattern(9000);
    std::fill(valid.begin() + 5000, valid.end(), '\0');
    struct expected {
        const char *path, *written, *state;
        std::string bytes;
    };
    for (const auto &[path, name, state, bytes] : std::vector<expected>{
             {"C:\\packed.bin", "C/packed.bin", "whole", pattern(200000)},
             {"C:\\packed.bin:a/b", "C/packed.bin;a%2fb", "whole", "beside"},
             {"C:\\valid.bin", "C/valid.bin", "whole", valid},
             {"C:\\purged.txt", "C/purged.txt.partial", "partly", overwritten},
             {"C:\\crypt.txt", "C/crypt.txt", "whole", crypt},
             {"C:\\folder\\a.txt", "C/folder/a.txt", "whole", "first"},
             {"C:\\folder\\A.TXT", "C/folder/A (2).TXT", "whole", "twin"},
             {"C:\\folder\\in it\\b.txt", "C/folder/in it/b.txt", "whole", "second"},
             {"..\\..\\up", ".%2e/.%2e/up", "whole", "up"}}) {
        ASSERT_TRUE(found.contains(path)) << path;
        const json &line = found.at(path);
        EXPECT_EQ(line.value("path_written", ""), std::string("S-1-5-21-7/") + name);
        EXPECT_EQ(line.value("state", ""), state) << line;
        EXPECT_EQ(written(line), bytes) << line;
        const std::string check = "test \"$(sha256sum '" + dir / "out/" +
                                  line.value("path_written", "") + "')\" = \"" +
                                  line.value("sha256", "") + "  " + dir / "out/" +
                                  line.value("path_written", "") + "\"";
        EXPECT_EQ(std::system(check.c_str()), 0) << check;
    }
    EXPECT_EQ(found.at("C:\\purged.txt")["gaps"][0]["offset"], 4096);
    EXPECT_EQ(found.at("C:\\purged.txt")["gaps"][0]["length"], 4096);
    EXPECT_EQ(found.at("C:\\purged.txt")["read_from"], "freed record");
    for (const char *path : {"C:\\huge.txt", "C:\\linked.txt"})
        EXPECT_EQ(found.at(path)["state"], "not written") << path;
    EXPECT_EQ(count_files(), 10u) << "and nothing else";
    struct stat status {};
    ASSERT_EQ(stat((dir / "out/S-1-5-21-7/C/folder/a.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec,
              static_cast<time_t>(sample_filetime / 10000000) - 11644473600);

    // Sums alone are the same, and leave nothing.
    const run_result sums =
        run_program(RECYCLEBIN_BINARY, {"export", medium, "--only-hash"});
    EXPECT_EQ(sums.status, 0);
    EXPECT_NE(sums.out.find(found.at("C:\\packed.bin")["md5"]), std::string::npos);
    EXPECT_EQ(run({"--max-size", "5"}, "small").status, 0);
    EXPECT_EQ(count_files("small"), 4u) << "first, twin, up, and the manifest";
}

TEST_F(Export, LeavesWhatExistsAlone)
{
    std::filesystem::create_directories(dir / "elsewhere");
    std::filesystem::create_directories(dir / "out/S-1-5-21-7");
    std::filesystem::create_symlink(dir / "elsewhere", dir / "out/S-1-5-21-7/C");
    dir.write_file("out/S-1-5-21-7/.%2e/.%2e/up", "kept");
    EXPECT_EQ(run({}).status, 5);
    EXPECT_EQ(count_files("elsewhere"), 0u);
    EXPECT_EQ(file_bytes(dir / "out/S-1-5-21-7/.%2e/.%2e/up"), "kept");
    for (const auto &[path, line] : lines())
        EXPECT_EQ(line["state"], "not written") << path;
    const std::string before = file_bytes(dir / "out/manifest.jsonl");
    EXPECT_EQ(run({}).status, 5) << "the manifest exists";
    EXPECT_EQ(file_bytes(dir / "out/manifest.jsonl"), before);
    dir.write_file("out/manifest.jsonl", "");
    EXPECT_EQ(run({}).status, 5) << "as before";
    EXPECT_EQ(file_bytes(dir / "out/manifest.jsonl"), before)
        << "a run that was killed left it empty";
}

// A limit, a full disk, and a user who has seen enough.
TEST_F(Export, EndsWithWholeFilesAndLines)
{
    const std::string program =
        "exec " RECYCLEBIN_BINARY " export " + medium + " --to ";
    const auto shell = [](const std::string &command) {
        return WEXITSTATUS(
            std::system(("bash -c '" + command + " 2>/dev/null'").c_str()));
    };
    EXPECT_EQ(shell("ulimit -f 20; " + program + dir / "out"), 5);
    EXPECT_EQ(lines().at("C:\\packed.bin")["reason"], "File too large");
    EXPECT_EQ(lines().at("C:\\valid.bin")["state"], "whole");
    EXPECT_EQ(count_files(), 9u);

    EXPECT_EQ(shell("( sleep 0.5; kill -INT $$ ) & " + program + dir / "stopped" +
                    " --max-size " + std::to_string(2 * huge)),
              5);
    const auto stopped = lines("stopped");
    EXPECT_EQ(stopped.at("C:\\huge.txt")["reason"], "interrupted");
    std::size_t count = 1;
    for (const auto &[path, line] : stopped) count += line.contains("sha256") ? 1 : 0;
    EXPECT_EQ(count_files("stopped"), count);

    const std::string disk = dir / "disk";
    std::filesystem::create_directories(disk);
    if (shell("mount -t tmpfs -o size=100k tmpfs " + disk) != 0)
        GTEST_SKIP() << "can't mount a small disk";
    const int status = shell(program + disk + "/out");
    const auto full = lines("disk/out");
    const std::size_t files = count_files("disk/out");
    shell("umount " + disk);
    EXPECT_EQ(status, 5);
    EXPECT_EQ(full.at("C:\\packed.bin")["reason"], "No space left on device");
    EXPECT_GE(full.size(), 8u);
    EXPECT_EQ(
        std::ranges::count_if(
            full, [](const auto &each) { return each.second.contains("sha256"); }),
        static_cast<std::ptrdiff_t>(files) - 1);
}

// What another reader says of the data of a real volume.
TEST_F(Export, AgreesWithAnotherReader)
{
    medium = fixture_or_skip("ntfs/graft2.raw.gz");
    if (std::system("command -v icat >/dev/null") != 0) GTEST_SKIP() << "needs icat";
    EXPECT_EQ(run({}).status, 0);
    std::size_t whole = 0;
    for (const auto &[path, line] : lines()) {
        if (line["state"] != "whole") continue;
        ++whole;
        const std::string check =
            "icat '" + medium + "' " + std::to_string(line["entry"][0].get<u64>()) +
            " | sha256sum | grep -q " + line["sha256"].get<std::string>();
        EXPECT_EQ(std::system(check.c_str()), 0) << check;
    }
    EXPECT_EQ(whole, 5u) << "Dc1.exe to Dc4.exe, and Dc3.bmp of the other user";
}

} // namespace

#include "vmdk/hv_vmdk_disk.h"

#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/vmdk_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <random>
#include <sstream>

using namespace hv;

namespace {

using paths = std::vector<std::string>;
using test_support::sparse_file;
using test_support::temp_dir;

std::string read_disk(const vmdk_disk &disk, u64 offset, u64 length)
{
    std::vector<u8> buffer(length, 0xEE);
    return disk.read(buffer.data(), offset, length)
               ? std::string(buffer.begin(), buffer.end())
               : "failed";
}

bool run(const std::string &command)
{
    return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
}
const std::string convert = " && qemu-img convert -f raw -O vmdk raw base && ";
const std::string create = "qemu-img create -f vmdk -F vmdk -b ";
const std::string change = "qemu-io -f vmdk -c 'write -P ";

bool has_qemu()
{
    return run("qemu-img --version && qemu-io --version");
}

} // namespace

TEST(Vmdk, ReadsAChainLikeOthers)
{
    if (!has_qemu()) GTEST_SKIP() << "qemu-img doesn't run";
    const temp_dir dir;
    std::mt19937 random(20150404);
    std::string image((40 << 20) + 3 * 512, '\0'); // two grain tables
    for (std::size_t i = 0; i < image.size(); ++i)
        if (i / 150000 % 3 != 1) image[i] = static_cast<char>(i * 37 + i / 251);
    dir.write_file("raw", image);
    ASSERT_TRUE(run("cd " + dir.path + convert + create + "base one && " + change +
                    "0x41 65536 4096' -c 'write -P 0x42 35M 200k' "
                    "-c 'write -P 0x43 34M 64k' one && " +
                    create + "one two && " + change +
                    "0x44 69632 512' -c 'write -P 0 34M 4k' two && "
                    "qemu-img convert -f vmdk -O raw two whole"));
    std::ifstream file(dir / "whole", std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(file), {}};
    ASSERT_EQ(std::tuple(whole.size(), whole[65536], whole[69632], whole[35 << 20]),
              std::tuple(image.size(), 'A', 'D', 'B'));
    for (const paths &list : {paths{dir / "base", dir / "one", dir / "two"},
                              {dir / "two", dir / "one", dir / "base"}}) {
        RAW_DISK_IO disk(list);
        ASSERT_TRUE(disk.is_open());
        ASSERT_EQ(disk.get_size(), whole.size());
        disk.attach_runs(4096, {{0, 0, false, 9000}}, whole.size(), 0);
        for (u32 i = 0; i < 3000; ++i) {
            const u64 offset = random() % whole.size() & ~u64{i % 2 ? 0U : 65535U};
            const std::string expected =
                whole.substr(offset, 1 + random() % (i % 3 ? 9000 : 300000));
            std::vector<u8> data(expected.size());
            u32 length = static_cast<u32>(data.size());
            const bool mapped = offset + length < 9000 * 4096;
            ASSERT_TRUE(i % 4 == 0 ? disk.read_exact(data.data(), length, offset)
                                   : disk.read(data.data(), length, offset, mapped));
            ASSERT_EQ(length, expected.size()) << offset;
            ASSERT_TRUE(test_support::text(data) == expected) << offset;
        }
    }
    paths list = {dir / "two"};
    std::ostringstream messages;
    vmdk_disk disk;
    EXPECT_TRUE(disk.validate_list(messages, list));
    EXPECT_EQ(list, (paths{dir / "two", dir / "one", dir / "base"}));
    EXPECT_EQ(disk.top()->path(), list[0]);
}

TEST(Vmdk, OpensAVolumeInAChain)
{
    if (!has_qemu()) GTEST_SKIP() << "qemu-img doesn't run";
    std::string text(70000, 'x');
    for (const u64 start : {u64{0}, u64{1} << 20}) {
        const temp_dir dir;
        auto volume =
            test_support::ntfs_volume_builder()
                .offset(start)
                .file({64, 5, "file", {text.begin(), text.end()}, {.fragments = 3}})
                .build_volume();
        // A table of one partition, of type 7, from sector 2048.
        const std::array<u64, 3> fields[] = {{450, 7, 1},
                                             {454, 2048, 4},
                                             {458, volume.image.size() / 512 - 2048, 4},
                                             {510, 0xAA55, 2}};
        for (const auto &[at, value, width] : fields)
            if (start != 0) test_support::put_number(volume.image, at, value, width);
        dir.write_file("raw", test_support::text(volume.image));
        // The child has other bytes in the second fragment.
        const u64 second = start + volume.stream_runs(64)[1].lcn * 4096;
        ASSERT_TRUE(run("cd " + dir.path + convert + create + "base child && " +
                        change + "0x79 " + std::to_string(second) + " 4096' child"));
        text.replace(volume.stream_runs(64)[0].clusters * 4096, 4096, 4096, 'y');
        const auto found = open_vmdk_volume({dir / "child", dir / "base"}, 0);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->get_volume_offset(), start);
        EXPECT_EQ(found->get_disk()->volume_offset(), start);
        std::ostringstream data;
        EXPECT_TRUE(read_inode_data(*found, 64, data, {}));
        EXPECT_EQ(data.str(), text);
        EXPECT_EQ(open_vmdk_volume({dir / "child", dir / "base"}, 512), nullptr);
    }
}

TEST(Vmdk, ReadsRealFiles)
{
    const char *root = std::getenv("VESKIT_FIXTURES");
    if (root == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    for (const auto &[name, sectors, cid] : {std::tuple{"image.vmdk", 200U, "53554ac6"},
                                             {"ext2.vmdk", 8192U, "dc80b6c7"}}) {
        vmdk_disk disk;
        ASSERT_TRUE(disk.add_files({std::string(root) + "/vmdk/" + name})) << name;
        ASSERT_TRUE(disk.link()) << name;
        EXPECT_EQ(disk.base()->cid(), cid);
        EXPECT_EQ(disk.base()->get_capacity_bytes(), sectors * 512) << name;
        EXPECT_EQ(read_disk(disk, 1024 + 56, 2), "\x53\xEF") << "an ext2 superblock";
    }
}

// Chains of files with random grains, also of different sizes, against a flat picture
// of what the newest file says.
TEST(Vmdk, TakesEachByteFromTheNewestFile)
{
    const temp_dir dir;
    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) {
        const u64 capacity = 20 + random() % 12;
        std::string picture(capacity * 512, '\0'), parent = "ffffffff";
        paths list;
        for (u64 i = 0, files = 1 + random() % 4; i < files; ++i) {
            sparse_file file{.cid = std::to_string(i),
                             .parent = std::exchange(parent, std::to_string(i)),
                             .capacity = capacity,
                             .grain = round % 3 ? 2U : 1 + random() % 3};
            file.grains = {{random() % 4, 'Y'}}; // the first table is always there
            for (u64 g = 0; g * file.grain < capacity; ++g)
                if (random() % 3)
                    file.grains.emplace_back(g, static_cast<char>('A' + random() % 26));
            if (random() % 2) std::ranges::shuffle(file.grains, random);
            const u64 bytes = file.grain * 512;
            for (const auto &[g, letter] : file.grains)
                for (u64 at = g * bytes;
                     at < std::min<u64>(picture.size(), (g + 1) * bytes); ++at)
                    picture[at] = letter;
            list.push_back(dir.write_file(std::to_string(i), file.bytes()));
        }
        std::ranges::shuffle(list, random);
        vmdk_disk disk;
        ASSERT_TRUE(disk.add_files(list));
        ASSERT_TRUE(disk.link());
        ASSERT_EQ(std::tuple(disk.is_linked(), disk.files().size()),
                  std::tuple(true, list.size()));
        for (int i = 0; i < 30; ++i) {
            const u64 offset = random() % picture.size();
            const u64 length = 1 + random() % (picture.size() - offset);
            ASSERT_EQ(read_disk(disk, offset, length), picture.substr(offset, length))
                << round << ' ' << offset;
        }
        for (const u64 past_the_end : {u64{40 * 512}, ~u64{9}})
            EXPECT_EQ(read_disk(disk, past_the_end, 600), std::string(600, '\0'));
    }
}

TEST(Vmdk, KeepsWhatACutFileHas)
{
    const temp_dir dir;
    const std::string bytes =
        sparse_file{.cid = "1", .grain = 2, .grains = {{1, 'B'}, {9, 'J'}, {2, 'C'}}}
            .bytes();
    // Cut inside the grain of J.
    const std::string cut = dir.write_file("cut", bytes.substr(0, bytes.size() - 1124));
    vmdk_disk disk;
    vmdk_file file;
    std::vector<u8> buffer(3000);
    ASSERT_TRUE(disk.add_files({cut}));
    ASSERT_TRUE(disk.link());
    EXPECT_EQ(read_disk(disk, 1000, 4000),
              std::string(24, '\0') + std::string(1024, 'B') + std::string(2952, '\0'));
    EXPECT_EQ(read_disk(disk, 9 * 1024 + 900, 200),
              std::string(24, 'J') + std::string(176, '\0'));
    ASSERT_TRUE(file.open(cut));
    EXPECT_FALSE(file.open(cut)) << "only once";
    u64 length = 1024;
    EXPECT_TRUE(file.read(buffer.data(), 1024, length));
    EXPECT_EQ(std::tuple(length, buffer[1023]), std::tuple(1024, 'B'));
    EXPECT_TRUE(file.read(buffer.data(), 9 * 1024, length));
    EXPECT_EQ(length, 924U) << "the grain of J is cut";
    EXPECT_FALSE(file.read(buffer.data(), 2048, length)) << "that of C is lost";
    EXPECT_FALSE(file.read(buffer.data(), 0, length)) << "held by no file";
    EXPECT_FALSE(file.read(buffer.data(), 1500, length = 1500)) << "reaches that of C";
}

// Tables in a hole of the file hold no grain and cost nothing.
TEST(Vmdk, ReadsFilesWithHoles)
{
    const temp_dir dir;
    // 1024 tables of 512 bytes. The first one is at 5632, and nothing but zeros lies
    // from 4096 to the table of the only grain.
    const std::string bytes = sparse_file{
        .cid = "1",
        .capacity = 1024 * 128,
        .entries = 128,
        .grains = {{2565, 'X'}}}.bytes();
    ASSERT_EQ(bytes.find_first_not_of('\0', 4096), (11U + 20) * 512 + 5 * 4);
    const std::string dense = dir.write_file("dense", bytes), holes = dir / "holes";
    std::ofstream out(holes, std::ios::binary);
    for (std::size_t at = 0; at < bytes.size(); at += 4096)
        if (bytes.find_first_not_of('\0', at) < at + 4096)
            out.seekp(static_cast<std::streamoff>(at)) << bytes.substr(at, 4096);
    out.close();
    std::filesystem::resize_file(holes, bytes.size());
    const auto read_alone = [](const std::string &path) {
        vmdk_disk disk;
        return disk.add_files({path}) && disk.link() ? read_disk(disk, 0, 4 << 20)
                                                     : "no";
    };
    std::string expected(4 << 20, '\0');
    expected.replace(2565 * 512, 512, 512, 'X');
    EXPECT_EQ(read_alone(dense), expected);
    EXPECT_EQ(read_alone(holes), expected);

    // Tables that share one place may not cost more than the file has: of a file of
    // five sectors, eleven tables are taken.
    std::string shared =
        sparse_file{.cid = "1", .capacity = 128 * 128, .entries = 128, .grains = {}}
            .bytes()
            .substr(0, 5 * 512);
    for (std::size_t at = 0; at < 512; at += 4)
        shared[1536 + at] = shared[2048 + at] = 4;
    shared[64] = 5;
    vmdk_file many;
    u64 place = 0;
    ASSERT_TRUE(many.open(dir.write_file("shared", shared)));
    EXPECT_TRUE(many.lookup(10 * 65536, place));
    EXPECT_FALSE(many.lookup(11 * 65536, place));
}

TEST(Vmdk, ChecksLists)
{
    const temp_dir dir;
    const struct {
        std::string name, cid, parent, hint;
    } files[] = {
        {"base", "b", "ffffffff", ""},
        {"child", "c", "b", "base"},
        {"below/far", "a", "b", "base"},
        {"moved", "m", "b", "/gone/base"},
        {"windows", "w", "b", "C:\\vm\\base"},
        {"lost", "l", "x", "nowhere"},
        {"away", "y", "x", "/gone/away2"},
        {"stale", "s", "old", "base"},
        {"again", "a", "old", "/gone/again"},
        {"own", "o", "o", "own"},
        {"left", "1", "2", "right"},
        {"right", "2", "1", "left"},
        {"twin", "b", "b", ""},
    };
    for (const auto &[name, cid, parent, hint] : files) {
        const std::string encoding =
            hint[0] == 'C' ? "encoding=\"windows-1252\"\n" : "";
        const std::string extra = encoding + "parentFileNameHint=\"" + hint + "\"\n";
        sparse_file file{.cid = cid, .parent = parent, .extra = extra};
        file.grains = {{0, 'A'}};
        dir.write_file(name, file.bytes());
    }
    dir.write_file("junk", std::string(600, 'K'));
    const auto added = [&dir](const std::string &child, const std::string &hint) {
        return "=> vmdk file: " + dir / child + "\n depends on parent vmdk \"" + hint +
               "\"\n";
    };
    const std::string unread = " can't be opened\n";
    const std::string bad_ids = "Child VMDK CID errors, aborting\n";
    const std::string no_parent =
        "Child VMDK points to a parent VMDK that doesn't exist, aborting\n";
    using why = open_failure;
    // The files given, whether they pass, what is added to them, and what is said.
    const struct {
        std::string given;
        bool good;
        std::string more, messages;
        open_failure failure;
    } cases[] = {
        {"base", true, "", "", why::none},
        {"", false, "", "", why::incomplete},
        {"child base", true, "", "", why::none},
        {"child", true, "base", added("child", "base"), why::none},
        {"child below/far", true, "base", added("below/far", "base"), why::none},
        {"moved", true, "base", added("moved", dir / "base"), why::none},
        {"windows", true, "base", added("windows", dir / "base"), why::none},
        {"lost", false, "", no_parent, why::incomplete},
        {"away", false, "away2", added("away", dir / "away2") + dir / "away2" + unread,
         why::missing},
        {"stale base", true, "", "", why::incomplete},
        {"own", false, "", bad_ids, why::incomplete},
        {"again", false, "", "", why::incomplete},
        {"left right", false, "", "", why::incomplete},
        {"base left right", true, "", "", why::incomplete},
        {"twin base", false, "", bad_ids, why::incomplete},
        {"base base", true, "", "", why::none},
        {"base junk", false, "", dir / "junk" + unread, why::unsupported},
        {"gone", false, "", dir / "gone" + unread, why::missing},
        {"below", false, "", dir / "below" + unread, why::unsupported},
    };
    const auto as_paths = [&](const std::string &names) {
        paths list;
        std::istringstream in(names);
        for (std::string name; in >> name;) list.push_back(dir / name);
        return list;
    };
    for (const auto &[given, good, more, messages, failure] : cases) {
        vmdk_disk disk;
        paths list = as_paths(given);
        std::ostringstream stream;
        EXPECT_EQ(disk.validate_list(stream, list), good) << given;
        EXPECT_EQ(list, as_paths(given + " " + more));
        EXPECT_EQ(stream.str(), messages) << given;
        EXPECT_EQ(disk.failure(), failure) << given;
        EXPECT_EQ(disk.failed_path(), messages.ends_with(unread) ? list.back() : "");
        // The twin has its base's ID, and reads like it.
        EXPECT_EQ(RAW_DISK_IO(list).is_open(),
                  failure == why::none || given == "twin base")
            << given;
    }
    EXPECT_EQ(read_disk(vmdk_disk(), 0, 1), "failed");
}

// Whatever the bytes are, a file is refused with a reason, or all bytes can be read.
TEST(Vmdk, SurvivesDamage)
{
    const temp_dir dir;
    const std::string good =
        sparse_file{.cid = "1", .grains = {{0, 'A'}, {1, 'B'}, {23, 'X'}}}.bytes();
    const auto try_out = [&dir](const std::string &bytes) {
        const RAW_DISK_IO disk(paths{dir.write_file("file", bytes)});
        std::vector<u8> buffer(30 * 512, 0xEE);
        u32 length = static_cast<u32>(buffer.size());
        if (disk.failure() == open_failure::none) {
            EXPECT_TRUE(disk.read_unbounded(buffer.data(), length, 0, true));
            EXPECT_EQ(length, buffer.size());
            EXPECT_EQ(std::ranges::count(buffer, 0xEE), 0);
        }
        return disk.failure();
    };
    const auto changed = [&](std::size_t at, std::size_t count, char byte) {
        return std::string(good).replace(at, count, count, byte);
    };
    for (std::size_t size = 0; size < good.size(); size += 37)
        EXPECT_EQ(try_out(good.substr(0, size)), size < 512 ? open_failure::unsupported
                                                 : size < 5120 ? open_failure::damaged
                                                               : open_failure::none)
            << size << ": ten sectors come before the first grain";
    for (const std::size_t from : {0, 512, 1536, 2048})
        for (std::size_t at = from; at < from + 80; ++at)
            for (const int flipped : {0x01, 0x80, 0xFF})
                try_out(changed(at, 1, static_cast<char>(good[at] ^ flipped)));
    const struct {
        std::size_t at, count;
        char byte;
        open_failure expected;
    } cases[] = {
        {72, 1, 1, open_failure::none},         // an unclean shutdown
        {0, 1, 'k', open_failure::unsupported}, // the magic
        {36, 8, 0, open_failure::unsupported},  // no descriptor inside
        {56, 8, -1, open_failure::unsupported}, // a directory at the end
        {12, 8, 0, open_failure::damaged},      // no sector
        {20, 8, 0, open_failure::damaged},      // no grain
        {44, 4, 0, open_failure::damaged},      // no entries in a table
        {56, 8, 0, open_failure::damaged},      // a directory in the header
        {64, 8, 0, open_failure::damaged},      // no overhead
        {64, 8, -1, open_failure::damaged},     // an overhead that wraps
        {3 * 512, 4, 0, open_failure::damaged}, // no first table
    };
    for (const auto &[at, count, byte, expected] : cases)
        EXPECT_EQ(try_out(changed(at, count, byte)), expected) << at;
}

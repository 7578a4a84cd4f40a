#include "vmdk/hv_vmdk_disk.h"

#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/vmdk_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>

using namespace hv;

// clang-format off
namespace {

using paths = std::vector<std::string>;
using test_support::sparse_file;

std::string depends(const std::string &on, const std::string &parent) { return "=> vmdk file: " + on + "\n depends on parent vmdk \"" + parent + "\"\n"; }

std::string read_disk(const vmdk_disk &disk, u64 offset, u64 length)
{
    std::vector<u8> buffer(length, 0xEE);
    return disk.read(buffer.data(), offset, length) ? std::string(buffer.begin(), buffer.end()) : "failed";
}

bool run(const std::string &command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0; }
const std::string convert = " && qemu-img convert -f raw -O vmdk raw base && ", create = "qemu-img create -f vmdk -F vmdk -b ",
                  change = "qemu-io -f vmdk -c 'write -P ";
#define SKIP_WITHOUT_QEMU() if (!run("qemu-img --version && qemu-io --version")) GTEST_SKIP() << "qemu-img doesn't run"

} // namespace

TEST(Vmdk, ReadsAChainLikeOthers)
{
    SKIP_WITHOUT_QEMU();
    const test_support::temp_dir dir;
    std::mt19937 random(20150404);
    std::string image((40 << 20) + 3 * 512, '\0'); // two grain tables
    for (std::size_t i = 0; i < image.size(); ++i) if (i / 150000 % 3 != 1) image[i] = static_cast<char>(i * 37 + i / 251);
    dir.write_file("raw", image);
    ASSERT_TRUE(run("cd " + dir.path + convert + create + "base one && " + change + "0x41 65536 4096' -c 'write -P 0x42 35M 200k' -c 'write -P 0x43 34M 64k' one && " +
                    create + "one two && " + change + "0x44 69632 512' -c 'write -P 0 34M 4k' two && qemu-img convert -f vmdk -O raw two whole"));
    const std::string whole = (std::ostringstream() << std::ifstream(dir / "whole", std::ios::binary).rdbuf()).str();
    ASSERT_TRUE(whole.size() == image.size() && whole[65536] == 'A' && whole[69632] == 'D' && whole[35 << 20] == 'B');
    for (const paths &list : {paths{dir / "base", dir / "one", dir / "two"}, {dir / "two", dir / "one", dir / "base"}}) {
        RAW_DISK_IO disk(list);
        ASSERT_TRUE(disk.is_open() && disk.get_size() == whole.size() && disk.bytes_per_sector() == 512);
        std::vector<u8> buffer(whole.size() + 100);
        disk.attach_runs(4096, {{0, 0, false, 9000}}, whole.size(), 0);
        for (u32 i = 0; i < 3000; ++i) {
            const u64 offset = i == 0 ? 0 : random() % whole.size() & (i % 2 ? ~u64{0} : ~u64{65535});
            u32 length = static_cast<u32>(i == 0 ? buffer.size() : 1 + random() % (i % 3 ? 9000 : 300000));
            const std::string expected = whole.substr(offset, length);
            const u32 delivered = i % 4 == 2 ? length : static_cast<u32>(expected.size());
            const bool good = i % 4 == 0 ? disk.read(buffer.data(), length, offset, offset + length < 9000 * 4096)
                            : i % 4 == 1 ? disk.read_exact(buffer.data(), length = delivered, offset)
                                         : disk.read_unbounded(buffer.data(), length, offset, i % 4 == 2);
            ASSERT_TRUE(good && length == delivered && std::memcmp(expected.data(), buffer.data(), expected.size()) == 0) << offset;
        }
        u32 length = 1;
        EXPECT_FALSE(disk.read(buffer.data(), length, whole.size()) || disk.read_checked(nullptr, length, 0));
    }
    EXPECT_FALSE(RAW_DISK_IO(paths{}).is_open() || RAW_DISK_IO(paths{dir / "two", dir / "base"}).is_open());
    paths list = {dir / "two"};
    std::ostringstream said;
    vmdk_disk disk;
    EXPECT_TRUE(disk.validate_list(said, list) && disk.is_linked() && disk.files().size() == 3 && disk.top()->path() == list[0]);
    EXPECT_TRUE(list == (paths{dir / "two", dir / "one", dir / "base"}) && said.str() == depends(list[0], "one") + depends(list[1], "base")) << said.str();
}

TEST(Vmdk, OpensAVolumeInAChain)
{
    SKIP_WITHOUT_QEMU();
    std::string text(70000, 'x');
    for (const u64 start : {u64{0}, u64{1} << 20}) {
        const test_support::temp_dir dir;
        auto volume = test_support::ntfs_volume_builder().offset(start).file({64, 5, "file", {text.begin(), text.end()}, {.fragments = 3}}).build_volume();
        for (const auto &[at, value, width] : {std::tuple{450u, u64{7}, 1u}, {454, 2048, 4}, {458, volume.image.size() / 512 - 2048, 4}, {510, 0xAA55, 2}})
            if (start != 0) test_support::put_number(volume.image, at, value, width); // a table of one partition: type 7, from sector 2048
        dir.write_file("raw", std::string(volume.image.begin(), volume.image.end()));
        const u64 second = start + volume.stream_runs(64)[1].lcn * 4096; // the child has other bytes there
        ASSERT_TRUE(run("cd " + dir.path + convert + create + "base child && " + change + "0x79 " + std::to_string(second) + " 4096' child"));
        text.replace(volume.stream_runs(64)[0].clusters * 4096, 4096, 4096, 'y');
        const auto found = open_vmdk_volume({dir / "child", dir / "base"}, 0);
        ASSERT_TRUE(found != nullptr && found->get_volume_offset() == start && found->get_disk()->volume_offset() == start);
        std::ostringstream got;
        EXPECT_TRUE(read_inode_data(*found, 64, got, {}) && got.str() == text);
        EXPECT_TRUE(open_vmdk_volume({dir / "child", dir / "base"}, 512) == nullptr && open_vmdk_volume({}, 0) == nullptr);
        found->get_disk()->set_volume_offset(~u64{0});
        EXPECT_EQ(found->get_disk()->volume_offset(), 0x0FFFFFFF0FFFFFFF);
    }
}

TEST(Vmdk, ReadsRealFiles)
{
    const char *root = std::getenv("VESKIT_FIXTURES");
    if (root == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    for (const auto &[name, sectors, cid, grains] : {std::tuple{"image.vmdk", 200u, "53554ac6", 1u}, {"ext2.vmdk", 8192u, "dc80b6c7", 3u}}) {
        vmdk_disk disk;
        ASSERT_TRUE(disk.add_files({std::string(root) + "/vmdk/" + name}) && disk.link() && disk.base() == disk.top()) << name;
        EXPECT_TRUE(disk.base()->cid() == cid && disk.base()->get_capacity_bytes() == sectors * 512) << name;
        EXPECT_EQ(read_disk(disk, 1024 + 56, 2), "\x53\xEF") << "the magic of an ext2 superblock";
        u64 held = 0, place = 0;
        for (u64 at = 0; at < sectors * 512; at += 65536) held += disk.base()->lookup(at, place);
        EXPECT_EQ(held, grains) << name;
    }
}

// Chains of files with random grains, also of different sizes, against a flat picture of what the newest file says.
TEST(Vmdk, TakesEachByteFromTheNewestFile)
{
    const test_support::temp_dir dir;
    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) {
        const u64 capacity = 20 + random() % 12;
        std::string picture(capacity * 512, '\0'), parent = "ffffffff";
        paths list;
        for (int i = 0, files = 1 + static_cast<int>(random() % 4); i < files; ++i) {
            sparse_file file{std::to_string(i), std::exchange(parent, std::to_string(i)), {}, capacity, round % 3 ? 2u : 1 + random() % 3};
            file.grains = {{random() % 4, 'Y'}}; // the first table is always there
            for (u64 g = 0; g * file.grain < capacity; ++g) if (random() % 3) file.grains.emplace_back(g, static_cast<char>('A' + random() % 26));
            if (random() % 2) std::ranges::shuffle(file.grains, random);
            for (const auto &[g, letter] : file.grains)
                for (u64 at = g * file.grain * 512; at < std::min<u64>(picture.size(), (g + 1) * file.grain * 512); ++at) picture[at] = letter;
            list.insert(list.begin() + static_cast<long>(random() % (list.size() + 1)), dir.write_file(std::to_string(i), file.bytes()));
        }
        vmdk_disk disk;
        ASSERT_TRUE(disk.add_files(list) && disk.link() && disk.is_linked() && disk.files().size() == list.size());
        for (int i = 0; i < 30; ++i) {
            const u64 offset = random() % picture.size(), length = 1 + random() % (picture.size() - offset);
            ASSERT_EQ(read_disk(disk, offset, length), picture.substr(offset, length)) << round << ' ' << offset;
        }
        for (const u64 behind : {u64{40 * 512}, ~u64{9}}) EXPECT_EQ(read_disk(disk, behind, 600), std::string(600, '\0'));
    }
}

TEST(Vmdk, KeepsWhatACutFileHas)
{
    const test_support::temp_dir dir;
    const sparse_file file{.cid = "1", .grain = 2, .grains = {{1, 'B'}, {9, 'J'}, {2, 'C'}}};
    const std::string bytes = file.bytes(), cut = dir.write_file("cut", bytes.substr(0, bytes.size() - 1024 - 100)); // inside the grain of J
    vmdk_disk disk;
    vmdk_file one, many;
    std::vector<u8> buffer(3000);
    u64 length = 1024;
    ASSERT_TRUE(disk.add_files({cut}) && disk.link() && one.open(cut) && !one.open(cut));
    EXPECT_EQ(read_disk(disk, 1000, 4000), std::string(24, '\0') + std::string(1024, 'B') + std::string(2952, '\0'));
    EXPECT_EQ(read_disk(disk, 9 * 1024 + 900, 200), std::string(24, 'J') + std::string(176, '\0'));
    EXPECT_TRUE(one.read(buffer.data(), 1024, length) && length == 1024 && buffer[1023] == 'B');
    EXPECT_TRUE(one.read(buffer.data(), 9 * 1024, length) && length == 924) << "cut at the end of the file";
    EXPECT_FALSE(one.read(buffer.data(), 2048, length = 5) || one.read(buffer.data(), 0, length) || one.read(buffer.data(), 1500, length = 1500));
    std::ostringstream dump;
    dump_header(dump, one);
    for (const char *lines : {"magic number:            0x564d444b\nversion:                 0x1\nflags:                   0x3\n\t- valid new line detection\n\t- redund",
                              "capacity:                0x18\n", "(1st):   0xd\ndouble EOL char (2nd):   0xa\ncompression algorithm:   0x0\npad for 433 (0x1b1) bytes\n"})
        EXPECT_NE(dump.str().find(lines), std::string::npos) << dump.str();
    // Tables that share one place would cost more than the file has: of five sectors, eleven tables are taken.
    std::string shared = sparse_file{.cid = "1", .capacity = 128 * 128, .entries = 128, .grains = {}}.bytes().substr(0, 5 * 512);
    for (std::size_t at = 0; at < 512; at += 4) shared[1536 + at] = shared[2048 + at] = 4;
    shared[64] = 5;
    // In a hole they cost nothing, and hold nothing.
    std::string far = shared;
    for (std::size_t at = 1540; at < 2048; at += 4) far.replace(at, 4, {5, 0, 0, 1});
    const std::string holes = dir.write_file("holes", far);
    std::filesystem::resize_file(holes, u64{16} << 30);
    vmdk_file empty;
    EXPECT_TRUE(empty.open(holes) && empty.lookup(0, length) && !empty.lookup(65536, length));
    EXPECT_TRUE(many.open(dir.write_file("shared", shared)) && many.lookup(10 * 65536, length) && !many.lookup(11 * 65536, length));
}

TEST(Vmdk, ChecksLists)
{
    const test_support::temp_dir dir;
    const auto write = [&dir](const std::string &name, sparse_file file) { return file.grains = {{0, 'A'}}, dir.write_file(name, file.bytes()); };
    const auto hint = [](const std::string &path) { return "parentFileNameHint=\"" + path + "\"\n"; };
    const std::string base = write("base", {"b"}), child = write("child", {"c", "b", hint("base")});
    const std::string moved = write("moved", {"m", "b", hint("/gone/base")}), lost = write("lost", {"l", "x", hint("nowhere")});
    const std::string windows = write("windows", {"w", "b", "encoding=\"windows-1252\"\n" + hint("C:\\vm\\base")});
    const std::string stale = write("stale", {"s", "old", hint("base")}), own = write("own", {"o", "o", hint("own")});
    const std::string left = write("left", {"1", "2", hint("right")}), right = write("right", {"2", "1", hint("left")});
    const std::string again = write("again", {"a", "old", hint("/gone/again")}), away = write("away", {"y", "x", hint("/gone/away2")});
    const std::string far = write("below/far", {"a", "b", hint("base")}), twin = write("twin", {"b", "b"}), junk = dir.write_file("junk", std::string(600, 'K'));
    const std::string gone = dir / "gone", unread = " can't be opened\n", bad_ids = "Child VMDK CID errors, aborting\n";
    const struct { const char *name; paths list; bool good; paths grown; std::string messages; bool linked; } cases[] = {
        {"BaseAlone", {base}, true, {base}, "", true}, {"Nothing", {}, false, {}, "", false},
        {"TwoInAnyOrder", {child, base}, true, {child, base}, "", true}, {"ChildAlone", {child}, true, {child, base}, depends(child, "base"), true},
        {"BesideTheFirst", {child, far}, true, {child, far, base}, depends(far, "base"), true},
        {"MovedFolder", {moved}, true, {moved, base}, depends(moved, base), true}, {"FromWindows", {windows}, true, {windows, base}, depends(windows, base), true},
        {"NoParent", {lost}, false, {lost}, "Child VMDK points to a parent VMDK that doesn't exist, aborting\n", false},
        {"NoParentInTheFolder", {away}, false, {away, dir / "away2"}, depends(away, dir / "away2") + dir / "away2" + unread, false},
        {"ParentWasChanged", {stale, base}, true, {stale, base}, "", false}, {"ItsOwnParent", {own}, false, {own}, bad_ids, false},
        {"ItsOwnHint", {again}, false, {again}, "", false}, {"EachOthersParents", {left, right}, false, {left, right}, "", false},
        {"LoopBesideABase", {base, left, right}, true, {base, left, right}, "", false}, {"TwinOfTheBase", {twin, base}, false, {twin, base}, bad_ids, true},
        {"TwoBases", {base, base}, true, {base, base}, "", true}, {"Junk", {base, junk}, false, {base, junk}, junk + unread, false},
        {"Missing", {gone}, false, {gone}, gone + unread, false}, {"Folder", {dir.path}, false, {dir.path}, dir.path + unread, false}};
    for (const auto &[name, list, good, grown, messages, linked] : cases) {
        vmdk_disk disk;
        paths given = list;
        std::ostringstream said;
        EXPECT_TRUE(disk.validate_list(said, given) == good && given == grown) << name;
        EXPECT_EQ(said.str(), messages) << name;
        EXPECT_EQ(RAW_DISK_IO(grown).is_open(), linked) << name;
    }
    EXPECT_EQ(read_disk(vmdk_disk(), 0, 1), "failed");
}

// Whatever the bytes are, a file is refused, or reads give all that was asked for.
TEST(Vmdk, SurvivesDamage)
{
    const test_support::temp_dir dir;
    const std::string good = sparse_file{.cid = "1", .grains = {{0, 'A'}, {1, 'B'}, {23, 'X'}}}.bytes();
    const auto try_out = [&dir](const std::string &bytes) {
        const RAW_DISK_IO disk(paths{dir.write_file("file", bytes)});
        std::vector<u8> buffer(30 * 512, 0xEE);
        u32 length = static_cast<u32>(buffer.size());
        if (!disk.is_open()) return false;
        EXPECT_TRUE(disk.read_unbounded(buffer.data(), length, 0, true) && length == buffer.size() && std::ranges::count(buffer, 0xEE) == 0);
        return true;
    };
    std::size_t opened = 0;
    for (std::size_t size = 0; size < good.size(); size += 37) opened += try_out(good.substr(0, size));
    EXPECT_TRUE(opened > 0 && opened < good.size() / 74) << "a cut ahead of the first grain is no disk";
    for (std::size_t at = 0; at < 2080; at = at == 79 ? 512 : at == 600 ? 1536 : at == 1580 ? 2048 : at + 1)
        for (const int flipped : {0x01, 0x80, 0xFF}) {
            std::string bytes = good;
            try_out(bytes.replace(at, 1, 1, static_cast<char>(good[at] ^ flipped)));
            if (at % 4 == 0) try_out(bytes.replace(at, 4, 4, static_cast<char>(flipped)));
        }
    EXPECT_TRUE(try_out(std::string(good).replace(72, 1, 1, '\1'))) << "an unclean shutdown is noted and no more";
    for (const std::size_t at : {12u, 20u, 36u, 44u, 56u, 64u, 3u * 512}) // sizes and places of 0; the last is a table's
        EXPECT_FALSE(try_out(std::string(good).replace(at, 4, 4, '\0'))) << at;
}

#include "vmdk/hv_vmdk_disk.h"

#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/vmdk_builder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

using namespace hv;

namespace {

using paths = std::vector<std::string>;
using test_support::sparse_file;
using test_support::temp_dir;

// The bytes that a chain of these files has; "failed" without a chain.
std::string read_files(const paths &list, u64 offset, u64 length)
{
    vmdk_disk disk;
    std::string bytes(length, '?');
    u8 *const buffer = reinterpret_cast<u8 *>(bytes.data());
    return disk.add_files(list) && disk.link() && disk.read(buffer, offset, length)
               ? bytes
               : "failed";
}

bool run(const std::string &command)
{
    return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
}

} // namespace

// A chain with a volume in a partition, with data in two grain tables.
TEST(Vmdk, ReadsAChainLikeOthers)
{
    if (!run("qemu-img --version && qemu-io --version"))
        GTEST_SKIP() << "qemu-img doesn't run";
    constexpr u64 start = 1 << 20;
    std::string text(70000, 'x');
    auto volume =
        test_support::ntfs_volume_builder()
            .offset(start)
            .file({64, 5, "file", test_support::bytes_of(text), {.fragments = 3}})
            .build_volume();
    const u64 end = volume.image.size(), second = volume.stream_runs(64)[1].lcn * 4096;
    test_support::put_layout(
        volume.image,
        {{450, 1, 7}, {454, 4, 2048}, {458, 4, end / 512 - 2048}, {510, 2, 0xAA55}});
    std::string image = test_support::text(volume.image);
    image.resize((40 << 20) + 3 * 512);
    for (u64 i = 512; i < image.size(); ++i)
        if (i / 150000 % 3 != 1 && (i < start || i >= end))
            image[i] = static_cast<char>(i * 37 + i / 251);
    const temp_dir dir;
    dir.write_file("raw", image);
    ASSERT_TRUE(run(
        "cd " + dir.path +
        " && qemu-img convert -f raw -O vmdk raw base"
        " && qemu-img create -f vmdk -F vmdk -b base one"
        " && qemu-io -f vmdk -c 'write -P 0x41 65536 4096' -c 'write -P 0x42 35M 200k'"
        " -c 'write -P 0x43 34M 64k' one && qemu-img create -f vmdk -F vmdk -b one two"
        " && qemu-io -f vmdk -c 'write -P 0x44 69632 512' -c 'write -P 0 34M 4k'"
        " -c 'write -P 0x79 " +
        std::to_string(start + second) +
        " 4096' two && qemu-img convert -f vmdk -O raw two whole"));
    const std::string whole = test_support::file_bytes(dir / "whole");
    ASSERT_EQ(whole.size(), image.size());
    paths list = {dir / "two"};
    std::ostringstream messages, data;
    EXPECT_TRUE(vmdk_disk().validate_list(messages, list));
    EXPECT_EQ(list, (paths{dir / "two", dir / "one", dir / "base"}));
    std::mt19937 random(20150404);
    for (u32 i = 0; i < 3000; ++i) {
        const u64 offset = random() % whole.size() & ~u64{i % 2 ? 0U : 65535U};
        const std::string expected =
            whole.substr(offset, 1 + random() % (i % 3 ? 9000 : 300000));
        ASSERT_TRUE(read_files(list, offset, expected.size()) == expected) << offset;
    }
    text.replace(volume.stream_runs(64)[0].clusters * 4096, 4096, 4096, 'y');
    const auto found = open_vmdk_volume(list, 0);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->get_disk()->get_size(), whole.size());
    EXPECT_EQ(found->get_volume_offset(), start);
    EXPECT_EQ(found->get_disk()->volume_offset(), start);
    EXPECT_TRUE(read_inode_data(*found, 64, data, {}));
    EXPECT_EQ(data.str(), text);
    EXPECT_EQ(open_vmdk_volume(list, 512), nullptr);
}

TEST(Vmdk, ReadsRealFiles)
{
    const char *root = std::getenv("VESKIT_FIXTURES");
    if (root == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    for (const auto &[name, sectors] : {std::pair{"image", 200}, {"ext2", 8192}}) {
        const paths list = {std::string(root) + "/vmdk/" + name + ".vmdk"};
        EXPECT_EQ(RAW_DISK_IO(list).get_size(), sectors * 512) << name;
        EXPECT_EQ(read_files(list, 1024 + 56, 2), "\x53\xEF") << "an ext2 superblock";
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
                picture.replace(g * bytes, bytes,
                                std::min(bytes, picture.size() - g * bytes), letter);
            list.push_back(dir.write_file(std::to_string(i), file.bytes()));
        }
        std::ranges::shuffle(list, random);
        for (int i = 0; i < 30; ++i) {
            const u64 offset = random() % picture.size();
            const u64 length = 1 + random() % (picture.size() - offset);
            ASSERT_EQ(read_files(list, offset, length), picture.substr(offset, length))
                << round << ' ' << offset;
        }
        for (const u64 past_the_end : {u64{40 * 512}, ~u64{9}})
            EXPECT_EQ(read_files(list, past_the_end, 600), std::string(600, '\0'));
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
    EXPECT_EQ(read_files({cut}, 1000, 4000),
              std::string(24, '\0') + std::string(1024, 'B') + std::string(2952, '\0'));
    EXPECT_EQ(read_files({cut}, 9 * 1024 + 900, 200),
              std::string(24, 'J') + std::string(176, '\0'));
    vmdk_file file;
    std::vector<u8> buffer(1500);
    u64 length = 1024;
    ASSERT_TRUE(file.open(cut));
    EXPECT_FALSE(file.open(cut)) << "only once";
    EXPECT_TRUE(file.read(buffer.data(), 9 * 1024, length));
    EXPECT_EQ(length, 924U) << "the grain of J is cut";
    EXPECT_FALSE(file.read(buffer.data(), 1500, length = 1500)) << "that of C is lost";
}

// Tables in a hole of the file hold no grain and cost nothing.
TEST(Vmdk, ReadsFilesWithHoles)
{
    const temp_dir dir;
    // 1024 tables of a sector each, from sector 11 on. Zeros lie between them and in
    // all but the one of the only grain.
    const std::string bytes = sparse_file{
        .cid = "1",
        .capacity = 131072,
        .entries = 128,
        .grains = {{2565, 'X'}}}.bytes();
    std::ofstream out(dir / "holes", std::ios::binary);
    for (std::size_t at = 0; at < bytes.size(); at += 4096)
        if (bytes.find_first_not_of('\0', at) < at + 4096)
            out.seekp(static_cast<std::streamoff>(at)) << bytes.substr(at, 4096);
    out.close();
    EXPECT_EQ(read_files({dir / "holes"}, 2564 * 512, 3 * 512),
              std::string(512, '\0') + std::string(512, 'X') + std::string(512, '\0'));

    // Tables that share one place may not cost more than the file has: of a file of
    // twelve sectors, 25 tables are taken.
    std::string shared = bytes.substr(0, 12 * 512);
    for (std::size_t at = 0; at < 4096; at += 4) shared[1536 + at] = 11;
    shared.replace(64, 2, "\x0C\0", 2)[11 * 512] = 1;
    vmdk_file many;
    u64 place = 0;
    ASSERT_TRUE(many.open(dir.write_file("shared", shared)));
    EXPECT_TRUE(many.lookup(24 * 65536, place));
    EXPECT_FALSE(many.lookup(25 * 65536, place));
}

TEST(Vmdk, ChecksLists)
{
    const temp_dir dir;
    const struct {
        std::string name, cid, parent, hint;
    } files[] = {
        {"base", "b", "ffffffff", ""},   {"child", "c", "b", "base"},
        {"below/far", "a", "b", "base"}, {"windows", "w", "b", "C:\\vm\\base"},
        {"lost", "l", "x", "nowhere"},   {"away", "y", "x", "/gone/away2"},
        {"stale", "s", "old", "base"},   {"again", "a", "old", "/gone/again"},
        {"own", "o", "o", "own"},        {"left", "1", "2", "right"},
        {"right", "2", "1", "left"},     {"twin", "b", "b", ""},
    };
    for (const auto &[name, cid, parent, hint] : files) {
        const std::string encoding =
            hint[0] == 'C' ? "encoding=\"windows-1252\"\n" : "";
        const std::string extra = encoding + "parentFileNameHint=\"" + hint + "\"\n";
        dir.write_file(
            name, sparse_file{.cid = cid, .parent = parent, .extra = extra}.bytes());
    }
    dir.write_file("junk", std::string(600, 'K'));
    const auto added = [&dir](const std::string &child, const std::string &hint) {
        return "=> vmdk file: " + dir / child + "\n depends on parent vmdk \"" + hint +
               "\"\n";
    };
    const std::string unread = " can't be opened\n";
    const std::string errors = ", aborting\n",
                      bad_ids = "Child VMDK CID errors" + errors;
    const std::string no_parent =
        "Child VMDK points to a parent VMDK that doesn't exist" + errors;
    using enum open_failure;
    // The files given, whether they pass, what is added to them, and what is said.
    const struct {
        std::string given;
        bool good;
        std::string more, messages;
        open_failure failure;
    } cases[] = {
        {"", false, "", "", incomplete},
        {"child base", true, "", "", none},
        {"child below/far", true, "base", added("below/far", "base"), none},
        {"windows", true, "base", added("windows", dir / "base"), none},
        {"lost", false, "", no_parent, incomplete},
        {"away", false, "away2", added("away", dir / "away2") + dir / "away2" + unread,
         missing},
        {"stale base", true, "", "", incomplete},
        {"own", false, "", bad_ids, incomplete},
        {"again", false, "", "", incomplete},
        {"base left right", true, "", "", incomplete},
        {"twin base", false, "", bad_ids, incomplete},
        {"base base", true, "", "", none},
        {"base junk", false, "", dir / "junk" + unread, unsupported},
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
        EXPECT_EQ(RAW_DISK_IO(list).is_open(), failure == none || given == "twin base")
            << given;
    }
    EXPECT_EQ(read_files(as_paths("base left right"), 0, 1), "failed") << "a loop";
}

// Whatever the bytes are, a file is refused with a reason, or all bytes can be read.
TEST(Vmdk, SurvivesDamage)
{
    const temp_dir dir;
    const std::string good =
        sparse_file{.cid = "1", .grains = {{0, 'A'}, {1, 'B'}, {23, 'X'}}}.bytes();
    const auto try_out = [&dir](const std::string &bytes) {
        const paths list = {dir.write_file("file", bytes)};
        const open_failure failure = RAW_DISK_IO(list).failure();
        if (failure == open_failure::none) {
            const std::string read = read_files(list, 0, 30 * 512);
            EXPECT_EQ(std::tuple(read.size(), read.find('?')),
                      std::tuple(30 * 512, std::string::npos));
        }
        return failure;
    };
    const auto changed = [&](std::size_t at, std::size_t count, char byte) {
        return std::string(good).replace(at, count, count, byte);
    };
    using enum open_failure;
    // Ten sectors come before the first grain.
    for (const auto &[size, expected] :
         {std::pair{511, unsupported}, {512, damaged}, {5119, damaged}, {5120, none}})
        EXPECT_EQ(try_out(good.substr(0, size)), expected) << size;
    for (std::size_t at = 0; at < 4 * 512 + 80; ++at)
        for (const int flipped : {0x01, 0x80, 0xFF})
            if (at % 512 < 80)
                try_out(changed(at, 1, static_cast<char>(good[at] ^ flipped)));
    const struct {
        std::size_t at, count;
        char byte;
        open_failure expected;
    } cases[] = {
        {72, 1, 1, none},         // an unclean shutdown
        {0, 1, 'k', unsupported}, // the magic
        {36, 8, 0, unsupported},  // no descriptor inside
        {56, 8, -1, unsupported}, // a directory at the end
        {12, 8, 0, damaged},      // no sector
        {20, 8, 0, damaged},      // no grain
        {44, 4, 0, damaged},      // no entries in a table
        {56, 8, 0, damaged},      // a directory in the header
        {64, 8, 0, damaged},      // no overhead
        {64, 8, -1, damaged},     // an overhead that wraps
        {3 * 512, 4, 0, damaged}, // no first table
    };
    for (const auto &[at, count, byte, expected] : cases)
        EXPECT_EQ(try_out(changed(at, count, byte)), expected) << at;
}

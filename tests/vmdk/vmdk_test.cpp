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
using namespace test_support;

namespace {

using paths = std::vector<std::string>;

// The bytes that a chain of these files has; "failed" without a chain.
std::string read_files(const paths &list, u64 offset, u64 length)
{
    vmdk_disk disk;
    byte_vector bytes(length, '?');
    return disk.add_files(list) && disk.link() &&
                   disk.read(bytes.data(), offset, length)
               ? text(bytes)
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
    std::string content(70000, 'x');
    auto volume = ntfs_volume_builder()
                      .offset(start)
                      .file({64, 5, "file", bytes_of(content), {.fragments = 3}})
                      .build_volume();
    const u64 end = volume.image.size(), second = volume.stream_runs(64)[1].lcn * 4096;
    put_layout(
        volume.image,
        {{450, 1, 7}, {454, 4, 2048}, {458, 4, end / 512 - 2048}, {510, 2, 0xAA55}});
    std::string image = text(volume.image);
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
    const std::string whole = file_bytes(dir / "whole");
    ASSERT_EQ(whole.size(), image.size());
    paths list = {dir / "two"};
    std::ostringstream messages, data;
    EXPECT_TRUE(vmdk_disk().validate_list(messages, list));
    EXPECT_EQ(list, (paths{dir / "two", dir / "one", dir / "base"}));
    std::mt19937 random(20150404);
    for (u32 i = 0; i < 800; ++i) {
        const u64 offset = random() % whole.size() & ~u64{i % 2 ? 0U : 65535U};
        const std::string expected =
            whole.substr(offset, 1 + random() % (i % 3 ? 9000 : 300000));
        ASSERT_TRUE(read_files(list, offset, expected.size()) == expected) << offset;
    }
    content.replace(volume.stream_runs(64)[0].clusters * 4096, 4096, 4096, 'y');
    const auto found = open_vmdk_volume(list, 0);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->get_disk()->get_size(), whole.size());
    EXPECT_EQ(found->get_volume_offset(), start);
    EXPECT_EQ(found->get_disk()->volume_offset(), start);
    EXPECT_TRUE(read_inode_data(*found, 64, data, {}));
    EXPECT_EQ(data.str(), content);
    EXPECT_EQ(open_vmdk_volume(list, 512), nullptr);
}

// Chains of files with random grains, also of different sizes and cut inside the last
// one, against a flat picture of what the newest file says.
TEST(Vmdk, TakesEachByteFromTheNewestFile)
{
    const temp_dir dir;
    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) {
        const u64 capacity = 20 + random() % 12;
        std::string picture((capacity + 2) * 512, '\0'), parent = "ffffffff";
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
                picture.replace(g * bytes, bytes, bytes, letter);
            const u64 lost = random() % 2 * (random() % (bytes + 1));
            picture.replace((file.grains.back().first + 1) * bytes - lost, lost, lost,
                            '\0');
            std::string stored = file.bytes();
            stored.resize(stored.size() - lost);
            list.push_back(dir.write_file(std::to_string(i), stored));
        }
        picture.resize(capacity * 512);
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

TEST(Vmdk, ReadsAFileAlone)
{
    const temp_dir dir;
    const sparse_file grains{.cid = "1", .grains = {{1, 'B'}, {2, 'C'}, {9, 'J'}}};
    const std::string bytes = grains.bytes();
    const std::string cut = dir.write_file("cut", bytes.substr(0, bytes.size() - 100));
    vmdk_file file;
    std::vector<u8> buffer(1536);
    u64 length = 1024;
    ASSERT_TRUE(file.open(cut));
    EXPECT_FALSE(file.open(cut)) << "only once";
    EXPECT_TRUE(file.read(buffer.data(), 512, length));
    EXPECT_EQ(std::tuple(length, buffer[0], buffer[1023]), std::tuple(1024, 'B', 'C'));
    EXPECT_FALSE(file.read(buffer.data(), 512, length = 1536)) << "no third grain";
    EXPECT_TRUE(file.read(buffer.data(), 9 * 512, length = 512));
    EXPECT_EQ(length, 412U) << "the grain of J is cut";
}

// Tables in a hole of the file hold no grain and cost nothing.
TEST(Vmdk, ReadsFilesWithHoles)
{
    const temp_dir dir;
    // 1024 tables of a sector each, from sector 11 on. Zeros lie between them and in
    // all but the one of the only grain.
    const sparse_file file{
        .cid = "1", .capacity = 131072, .entries = 128, .grains = {{2565, 'X'}}};
    const std::string bytes = file.bytes();
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
        // The hint is in the second sector of the descriptor.
        const std::string extra = std::string(450, '#') + "\nparentFileNameHint=\"" +
                                  hint + "\"\n" +
                                  (hint[0] == 'C' ? "encoding=\"windows-1252\"\n" : "");
        dir.write_file(
            name, sparse_file{.cid = cid, .parent = parent, .extra = extra}.bytes());
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
        EXPECT_EQ(stream.str(), messages);
        EXPECT_EQ(disk.failure(), failure) << given;
        EXPECT_EQ(disk.failed_path(), messages.ends_with(unread) ? list.back() : "");
        // The twin has its base's ID, and reads like it.
        EXPECT_EQ(RAW_DISK_IO(list).is_open(), failure == none || given == "twin base");
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
    for (std::size_t at = 0; at < 4 * 512 + 80; ++at)
        for (const int flipped : {0x01, 0x80, 0xFF})
            if (at % 512 < 80)
                try_out(changed(at, 1, static_cast<char>(good[at] ^ flipped)));
    for (const auto &[what, bytes, expected] : {
             std::tuple{"header cut", good.substr(0, 511), unsupported},
             {"header alone", good.substr(0, 512), damaged},
             {"cut before the first grain", good.substr(0, 5119), damaged},
             {"no grain stored", good.substr(0, 5120), none},
             {"unclean shutdown", changed(72, 1, 1), none},
             {"other magic", changed(0, 1, 'k'), unsupported},
             {"no descriptor inside", changed(36, 8, 0), unsupported},
             {"directory at the end", changed(56, 8, -1), unsupported},
             {"no sector", changed(12, 8, 0), damaged},
             {"no entries in a table", changed(44, 4, 0), damaged},
             {"no overhead", changed(64, 8, 0), damaged},
             {"overhead that wraps", changed(64, 8, -1), damaged},
             {"no first table", changed(1536, 4, 0), damaged},
         })
        EXPECT_EQ(try_out(bytes), expected) << what;
}

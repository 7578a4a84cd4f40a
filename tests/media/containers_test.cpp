#include "media/open_medium.h"
#include "support/fixtures.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <tuple>

using namespace hv;
using namespace test_support;

namespace {

// All bytes, in pieces that end at no block of any container.
std::string read_all(const byte_source &source)
{
    std::string all;
    std::vector<u8> piece(99'991);
    for (std::size_t count = 1; count != 0;) {
        count = source.read(all.size(), piece);
        all.append(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return all;
}

// A disk of four mebibytes: noise, a hole, text that compresses, and noise at its end.
std::string make_disk()
{
    std::mt19937 random(1);
    std::string disk(4 << 20, '\0');
    for (std::size_t at = 0; at < disk.size(); ++at) {
        const std::size_t part = at >> 20;
        if (part == 0 || part == 3) disk[at] = static_cast<char>(random());
        if (part == 2) disk[at] = "sent to the bin "[at % 16];
    }
    return disk;
}

bool has_tool(const std::string &name)
{
    return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

// What is known not to have been read, as "offset+length" of each stretch.
std::string unread_of(const byte_source &source)
{
    std::string text;
    for (const auto &part : source.unreadable_in(1, source.size() - 1))
        text += std::to_string(part.offset) + "+" + std::to_string(part.length) + " ";
    return text;
}

// A folder with the disk in it, in which shell commands make containers of it.
struct workshop {
    temp_dir dir;
    std::string disk = make_disk();

    explicit workshop(const std::string &tool)
    {
        if (!has_tool(tool)) skip_test(tool + " is missing");
        dir.write_file("disk.raw", disk);
    }
    void run(const std::string &command) const
    {
        const std::string line = "cd " + dir.path + " && exec >log 2>&1 && " + command;
        ASSERT_EQ(std::system(line.c_str()), 0) << command << file_bytes(dir / "log");
    }
    opened_medium open(const std::string &name) const
    {
        return open_medium(dir / name);
    }
};

struct container_case {
    const char *file;
    const char *options; // of qemu-img convert
};

// No container may lose a byte. One that is cut off may, but never silently.
const container_case container_cases[] = {
    {"sparse.vmdk", "-O vmdk"},
    {"flat.vmdk", "-O vmdk -o subformat=monolithicFlat"},
    {"split.vmdk", "-O vmdk -o subformat=twoGbMaxExtentSparse"},
    {"split-flat.vmdk", "-O vmdk -o subformat=twoGbMaxExtentFlat"},
    {"stream.vmdk", "-O vmdk -o subformat=streamOptimized"},
    {"grows.vhd", "-O vpc -o force_size=on"},
    {"fixed.vhd", "-O vpc -o subformat=fixed,force_size=on"},
    {"grows.vhdx", "-O vhdx"},
    {"old.qcow2", "-O qcow2 -o compat=0.10"},
    {"new.qcow2", "-O qcow2"},
    {"packed.qcow2", "-O qcow2 -c"},
    {"zstd.qcow2", "-O qcow2 -c -o compression_type=zstd"},
    {"disk.vdi", "-O vdi"},
    {"disk.hdd", "-O parallels"},
    {"disk.qed", "-O qed"},
};

// Which bytes a search that leaves out holes wouldn't see, though they aren't zeros.
std::string left_out(const byte_source &source, const std::string &disk)
{
    std::string positions;
    u64 first = disk.size(); // byte from `at` on that isn't zero
    for (u64 at = disk.size(); at > 0;) {
        at -= 4096;
        const std::size_t in_page = disk.substr(at, 4096).find_first_not_of('\0');
        if (in_page != std::string::npos) first = at + in_page;
        const u64 data = source.next_data(at);
        if (data < at || data > first) positions += std::to_string(at) + ' ';
    }
    return positions;
}

TEST(Containers, GiveTheDiskOrSayWhatIsMissing)
{
    const workshop made("qemu-img");
    for (const auto &[file, options] : container_cases) {
        made.run("qemu-img convert -f raw " + std::string(options) + " disk.raw " +
                 file);
        const opened_medium whole = made.open(file);
        ASSERT_NE(whole.source, nullptr) << file << ": " << whole.problem;
        EXPECT_TRUE(read_all(*whole.source) == made.disk) << file;
        EXPECT_EQ(left_out(*whole.source, made.disk), "") << file;
        EXPECT_EQ(std::tuple(whole.faults().size(), whole.source->unreadable()),
                  std::tuple(0u, 0u))
            << file;

        made.run("file=$(ls -S " + std::string(file, file + std::strlen(file) - 5) +
                 "*" + (file + std::strlen(file) - 4) +
                 " | head -1); truncate -s $(($(stat -c %s $file) / 2)) $file");
        const opened_medium cut = made.open(file);
        if (!cut.source) continue;
        const bool is_same = read_all(*cut.source) == made.disk;
        const bool is_told = !cut.faults().empty() || cut.source->unreadable() > 0;
        EXPECT_TRUE(is_same || is_told || cut.source->size() < made.disk.size())
            << file;
        EXPECT_EQ(unread_of(*cut.source).empty(), cut.source->unreadable() == 0)
            << file;
        made.run("rm " + std::string(file));
    }
}

TEST(Containers, ReadThroughParents)
{
    const workshop made("qemu-io");
    const auto same_as_qemu = [&](const std::string &file) {
        made.run("qemu-img convert -O raw " + file + " expected");
        const opened_medium medium = made.open(file);
        ASSERT_NE(medium.source, nullptr) << medium.problem;
        EXPECT_TRUE(read_all(*medium.source) == file_bytes(made.dir / "expected"))
            << file;
    };
    made.run("qemu-img convert -O vmdk disk.raw base.vmdk && "
             "qemu-img create -f vmdk -b base.vmdk -F vmdk child.vmdk && "
             "qemu-io -c 'write -P 65 1M 70000' -c 'write -z 0 64k' child.vmdk");
    same_as_qemu("child.vmdk");
    made.run("qemu-img create -f qcow2 -b disk.raw -F raw child.qcow2 6M && "
             "qemu-io -c 'write -P 66 1M 70000' -c 'write -z 0 64k' child.qcow2");
    same_as_qemu("child.qcow2");
    // A cluster of zeros may still have its old bytes in the file.
    made.run("qemu-img convert -O qcow2 disk.raw zeroed.qcow2 && "
             "qemu-io -c 'write -z 0 64k' zeroed.qcow2");
    same_as_qemu("zeroed.qcow2");

    // Whoever made an image must not have other files of this machine read.
    made.run("mkdir other && cp disk.raw other/ && "
             "qemu-img create -f qcow2 -b ../disk.raw -F raw other/near.qcow2 && "
             "qemu-img create -f qcow2 -b $PWD/other/disk.raw -F raw far.qcow2 && "
             "rm other/disk.raw && mv disk.raw away.raw");
    for (const char *file : {"other/near.qcow2", "far.qcow2"})
        EXPECT_NE(made.open(file).problem.find("can't be read as that"),
                  std::string::npos);
    made.run("rm base.vmdk");
    EXPECT_NE(made.open("child.vmdk").problem.find("base.vmdk"), std::string::npos);
}

// Forms of containers that would be read wrong, or without a part of their bytes.
TEST(Containers, RefuseFormsThatAreNotRead)
{
    const workshop made("qemu-img");
    made.run(
        "qemu-img convert -O qcow disk.raw disk.qcow && "
        "qemu-img convert -O qcow2 disk.raw disk.qcow2 && "
        "qemu-img convert -O qed disk.raw disk.qed && "
        "qemu-img convert -O vmdk -o subformat=twoGbMaxExtentSparse disk.raw s.vmdk && "
        "qemu-img convert -O vmdk disk.raw parent.vmdk && "
        "qemu-img create -f vmdk -b parent.vmdk -F vmdk disk.vmdk && "
        "sed -i 's/^CID=......../CID=12345678/' parent.vmdk");
    const struct {
        const char *file;
        std::size_t at;
        std::string bytes;
        const char *problem;
    } cases[] = {
        {"disk.qcow", 0, "", "this form of it isn't read"},
        {"disk.qcow2", 35, "\1", "it is encrypted"},
        {"disk.qcow2", 79, "\4", "its data is in another file"},
        {"disk.qcow2", 78, "\1",
         "this form of it isn't read"},                      // a feature of the future
        {"disk.qcow2", 23, "\x3F", "its header is damaged"}, // size of clusters
        {"disk.qed", 16, "\1", "it is a change to a backing file"},
        {"s-s001.vmdk", 0, "", "one file of a disk that consists of several"},
        {"disk.vmdk", 0, "", "the one beside it was changed since"},
    };
    for (const auto &[file, at, bytes, problem] : cases) {
        std::string edited = file_bytes(made.dir / file);
        edited.replace(at, bytes.size(), bytes);
        const std::string name = std::string("edited-") + file;
        made.dir.write_file(name, edited);
        const opened_medium medium = made.open(bytes.empty() ? file : name);
        EXPECT_EQ(medium.source, nullptr) << file << ' ' << at;
        EXPECT_NE(medium.problem.find(problem), std::string::npos)
            << file << ' ' << at << ": " << medium.problem;
    }
    made.run("qemu-img create -f qcow2 -b b.qcow2 -u -F qcow2 a.qcow2 4M && "
             "qemu-img create -f qcow2 -b a.qcow2 -u -F qcow2 b.qcow2 4M");
    EXPECT_NE(made.open("a.qcow2").problem.find("lead back to themselves"),
              std::string::npos);
}

// Disks of a few mebibytes on which reading would never end.
TEST(Containers, RefuseTablesThatNameTheSameBytesOverAndOver)
{
    const workshop made("qemu-io");
    made.run("qemu-img create -f vpc blocks.vhd 2000G && "
             "qemu-img create -f qcow2 tables.qcow2 2000G && "
             "qemu-io -c 'write 0 64k' tables.qcow2");
    const struct {
        const char *file;
        std::size_t table;
        std::size_t entries;
        std::string entry;
    } cases[] = {
        {"blocks.vhd", 1536, 1'000'000, {0, 0, 0, 4}},
        {"tables.qcow2", 0x30000, 4000, {}},
    };
    for (const auto &[file, table, entries, entry] : cases) {
        std::string bytes = file_bytes(made.dir / file);
        const std::string same = entry.empty() ? bytes.substr(table, 8) : entry;
        for (std::size_t at = 0; at < entries; ++at)
            bytes.replace(table + at * same.size(), same.size(), same);
        made.dir.write_file(file, bytes);
        EXPECT_NE(made.open(file).problem.find("more than the file can hold"),
                  std::string::npos)
            << file;
    }
    made.dir.write_file("twice.vmdk", "# Disk DescriptorFile\n"
                                      "RW 8192 FLAT \"disk.raw\" 0\n"
                                      "RW 8192 FLAT \"disk.raw\" 0\n");
    EXPECT_NE(made.open("twice.vmdk").problem.find("twice"), std::string::npos);
    made.run("sed -i '$s/0$/8192/;2,$s/8192 F/4096 F/;$s/8192$/4096/' twice.vmdk");
    EXPECT_NE(made.open("twice.vmdk").source, nullptr);
}

// Sets a number of the footer of a VHD and of its copy, or of the header that follows
// the copy, and the sum over all other bytes.
void poke_vhd(std::string &file, std::size_t at, const std::string &value)
{
    const auto poke = [&](std::size_t base, std::size_t size, std::size_t sum_at) {
        if (at < base || at >= base + size) return;
        file.replace(at, value.size(), value);
        u32 sum = 0;
        for (std::size_t i = 0; i < size; ++i)
            if (i < sum_at || i >= sum_at + 4) sum += static_cast<u8>(file[base + i]);
        for (std::size_t i = 0; i < 4; ++i)
            file[base + sum_at + i] = static_cast<char>(~sum >> (24 - 8 * i));
    };
    poke(0, 512, 64);
    poke(512, 1024, 36);
    file.replace(file.size() - 512, 512, file.substr(0, 512));
}

// No tool here makes differencing disks, so one is made of a disk that grows.
TEST(Containers, VhdOverItsParent)
{
    const workshop made("qemu-io");
    made.run("qemu-img convert -O vpc -o force_size=on disk.raw parent.vhd && "
             "qemu-img create -f vpc -o force_size=on child.vhd 4M && "
             "qemu-io -f vpc -c 'write -P 65 1M 70144' child.vhd");
    std::string child = file_bytes(made.dir / "child.vhd");
    const std::string parent_id = file_bytes(made.dir / "parent.vhd").substr(68, 16);
    poke_vhd(child, 60, std::string("\0\0\0\4", 4)); // it differs
    poke_vhd(child, 512 + 40, parent_id);
    // Of its first block it has 137 sectors only. The bitmap is a sector before it.
    const u64 table = 1536;
    const std::size_t bitmap = 512 * (static_cast<u8>(child[table + 2]) * 256U +
                                      static_cast<u8>(child[table + 3]));
    for (std::size_t at = 0; at < 512; ++at)
        child[bitmap + at] = at < 256 || at > 273 ? '\0' : at < 273 ? '\xFF' : '\x80';
    std::string name;
    for (const char c : std::string("C:\\x\\parent.vhd")) name += {'\0', c};
    poke_vhd(child, 512 + 64, name);
    made.dir.write_file("child.vhd", child);

    const opened_medium medium = made.open("child.vhd");
    ASSERT_NE(medium.source, nullptr) << medium.problem;
    std::string expected = made.disk;
    expected.replace(1 << 20, 70'144, 70'144, 'A');
    EXPECT_TRUE(read_all(*medium.source) == expected);
    EXPECT_EQ(medium.files.size(), 2u);

    made.run("qemu-img convert -O vpc -o force_size=on disk.raw parent.vhd");
    EXPECT_NE(made.open("child.vhd").problem.find("isn't the disk"), std::string::npos);
    made.run("rm parent.vhd");
    EXPECT_NE(made.open("child.vhd").problem.find("parent.vhd\" can't be opened"),
              std::string::npos);
}

TEST(Containers, ExpertWitnessNamesBadChunksAndMissingSegments)
{
    const workshop made("ewfacquire");
    for (const std::string kind : {"none", "empty-block", "fast", "best"}) {
        made.run("ewfacquire -u -q -t " + kind + " -c " + kind +
                 " -S 1500000 disk.raw");
        const opened_medium whole = made.open(kind + ".E01");
        ASSERT_NE(whole.source, nullptr) << whole.problem;
        EXPECT_TRUE(read_all(*whole.source) == made.disk) << kind;
        EXPECT_TRUE(whole.faults().empty()) << kind;
    }
    // Far from the start of the first segment, whose noise wasn't compressed.
    made.run("printf '\\125\\252\\125\\252' | "
             "dd of=none.E01 bs=1 seek=700000 conv=notrunc");
    const opened_medium flipped = made.open("none.E02");
    const std::string bytes = read_all(*flipped.source);
    EXPECT_EQ(flipped.source->unreadable(), 32'768u);
    EXPECT_EQ(unread_of(*flipped.source), "688128+32768 ");
    ASSERT_EQ(flipped.faults().size(), 1u);
    EXPECT_EQ(flipped.faults()[0],
              "chunk 21, bytes 0xa8000 to 0xaffff: wrong checksum");
    EXPECT_EQ(bytes.substr(0xa8000, 0x8000), std::string(0x8000, '\0'));
    EXPECT_EQ(bytes.substr(0xb0000), made.disk.substr(0xb0000));

    // Another one, where threads decode ahead of the pass: in one chunk, too.
    made.run("printf '\\125\\252\\125\\252' | "
             "dd of=none.E03 bs=1 seek=700000 conv=notrunc");
    const opened_medium twice = made.open("none.E01");
    const std::string zeroed = read_all(*twice.source);
    std::size_t chunk = 3 << 20;
    while (chunk < zeroed.size() &&
           zeroed.compare(chunk, 0x8000, made.disk, chunk, 0x8000) == 0)
        chunk += 0x8000;
    EXPECT_EQ(unread_of(*twice.source),
              "688128+32768 " + std::to_string(chunk) + "+32768 ");
    EXPECT_TRUE(zeroed.substr(chunk + 0x8000) == made.disk.substr(chunk + 0x8000));
    EXPECT_EQ(twice.faults().size(), 2u);

    made.run("rm none.E02");
    const opened_medium cut = made.open("none.E01");
    const std::string missing = cut.source ? cut.faults().at(0) : cut.problem;
    EXPECT_NE(missing.find("segment 2 is missing"), std::string::npos) << missing;
    made.run("rm none.E01");
    EXPECT_NE(made.open("none.E03").problem.find("segments before"), std::string::npos);
    made.run("truncate -s -200 $(ls fast.E0* | tail -1)");
    const opened_medium ends_early = made.open("fast.E01");
    const std::string end =
        ends_early.source ? ends_early.faults().at(0) : ends_early.problem;
    EXPECT_NE(end.find("is damaged or cut off at its end"), std::string::npos) << end;
}

TEST(Containers, JoinPartsAndSayWhatIsMissing)
{
    const temp_dir dir;
    const std::string disk = make_disk().substr(0, 3'500'000);
    for (std::size_t part = 0; part < 4; ++part)
        dir.write_file("disk.00" + std::to_string(part + 1),
                       disk.substr(part * 1'000'000, 1'000'000));
    for (const char *name : {"disk.001", "disk.003", "disk.004"})
        EXPECT_TRUE(read_all(*open_medium(dir / name).source) == disk) << name;

    std::filesystem::remove(dir / "disk.002");
    std::filesystem::resize_file(dir / "disk.003", 900'000);
    const opened_medium medium = open_medium(dir / "disk.001");
    const std::string bytes = read_all(*medium.source);
    EXPECT_EQ(bytes.substr(3'000'000), disk.substr(3'000'000));
    EXPECT_EQ(medium.source->unreadable(), 1'100'000u);
    EXPECT_EQ(unread_of(*medium.source), "1000000+1000000 2900000+100000 ");
    EXPECT_EQ(medium.faults().size(), 2u);

    // A lone file with such an ending is no part.
    dir.write_file("lone/disk.003", disk);
    EXPECT_TRUE(open_medium(dir / "lone/disk.003").is_plain_file);
}

// The sums that the publishers of these images state, or that are stored in them.
TEST(Containers, RealImagesHaveTheirSums)
{
    for (const auto &[name, sum] :
         {std::pair{"test.ntfs.dd.E01", "8b4382280340597b7930b4b34742afba"},
          {"imageformat_mmls_1.E01", "8ec671e301095c258224aad701740503"},
          {"test.vhdx.zip", "29a6a0389eff11f35882abbbfa7b7cb5"},
          {"streamOptimized.vmdk", "802645027360247b4cc349b44fd8cca3"},
          {"image.qcow2", "d73c51f10c7ee6a681b7b619ccc6f1c4"}}) {
        const std::string file = fixture_or_skip("containers/" + std::string(name));
        const opened_medium medium = open_medium(file);
        ASSERT_NE(medium.source, nullptr) << medium.problem;
        const temp_dir dir;
        const std::string raw = dir.write_file("raw", read_all(*medium.source));
        const std::string command =
            "echo " + std::string(sum) + "  " + raw + " | md5sum -c --status";
        EXPECT_EQ(std::system(command.c_str()), 0) << name;
    }
}

} // namespace

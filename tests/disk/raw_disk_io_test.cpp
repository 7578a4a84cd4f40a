#include "disk/hv_raw_disk_io.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sys/stat.h>

using namespace hv;

namespace {

constexpr u64 leave_out = mapped_status::leave_out_sparse;

std::string sample_bytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 37 + i / 251 + 1);
    return bytes;
}

// Success, status, and the bytes delivered.
using mapped_result = std::tuple<bool, u64, std::string>;

// The read as it is defined: cluster by cluster, each found by a walk of the list.
struct mapped_model {
    std::string medium;
    u64 base = 0;
    u32 cluster_size = 0;
    std::vector<disk_run> runs;

    std::string cluster(const disk_run &run, u64 vcn) const
    {
        std::string bytes;
        const u64 position = (run.lcn + (vcn - run.vcn)) * cluster_size + base;
        if (!run.is_sparse && run.lcn < medium.size() && position < medium.size())
            bytes = medium.substr(position, cluster_size);
        bytes.resize(cluster_size);
        return bytes;
    }

    mapped_result read(u64 offset, u32 length, u64 status_in) const
    {
        const u64 c = cluster_size;
        const u64 first = offset / c;
        const u64 last = (offset + length) / c;
        u64 head = offset % c;
        u64 tail = (offset + length) % c;
        u64 status = (first & 0xFFFF) != 0 ? 8 : last == first + 16 ? 56 : 24;
        std::vector<std::pair<u64, const disk_run *>> list;
        for (u64 vcn = first; vcn <= last; ++vcn) {
            const auto run =
                std::ranges::find_if(runs, [vcn](const disk_run &candidate) {
                    return vcn >= candidate.vcn &&
                           vcn - candidate.vcn < candidate.clusters;
                });
            const bool held = run != runs.end();
            const bool skipped = held && run->is_sparse && status_in == leave_out;
            if (skipped && vcn == first) head = 0;
            if (!held || (skipped && vcn == last)) tail = 0;
            if (!held) break;
            if (!skipped) list.emplace_back(vcn, &*run);
        }
        std::string out;
        for (std::size_t i = 0; i < list.size() && out.size() < length; ++i) {
            const auto [vcn, run] = list[i];
            const bool is_cut = i != 0 && i + 1 == list.size() && tail != 0;
            const u64 share = i == 0 ? c - head : is_cut ? tail : c;
            if (run->is_sparse) status |= mapped_status::filled_sparse;
            out += cluster(*run, vcn).substr(i == 0 ? head : 0,
                                             std::min(length - out.size(), share));
        }
        return {true, status, out};
    }
};

mapped_result read_mapped(const RAW_DISK_IO &disk, const run_index &runs,
                          u32 cluster_size, u64 offset, u32 length, u64 status = 0)
{
    std::vector<u8> buffer(length, 0xEE);
    const bool good =
        disk.read_mapped(runs, cluster_size, offset, buffer.data(), length, status);
    buffer.resize(std::min<std::size_t>(buffer.size(), length));
    return {good, status, {buffer.begin(), buffer.end()}};
}

// What a mapped read of the attached file delivers; "(failed)" for none.
std::string read_attached(const RAW_DISK_IO &disk, u64 offset, u32 length)
{
    std::vector<u8> buffer(length, 0xEE);
    if (!disk.read(buffer.data(), length, offset, true)) return "(failed)";
    return {buffer.begin(), buffer.begin() + length};
}

TEST(RawDiskIo, ClipsReadsAtTheEnd)
{
    const test_support::temp_dir dir;
    const std::string bytes = sample_bytes(1000);
    const RAW_DISK_IO disk(dir.write_file("image", bytes));
    std::vector<u8> buffer(2000);
    u32 length = 4;
    const std::tuple<u64, u32, bool, u32> reads[] = {
        {0, 2000, true, 1000}, {999, 10, true, 1}, {300, 5, true, 5},
        {1000, 1, false, 1},   {0, 0, false, 0},   {~u64{7}, 8, false, 8}};
    for (const auto &[offset, wanted, good, delivered] : reads) {
        EXPECT_EQ(disk.read(buffer.data(), length = wanted, offset), good) << offset;
        EXPECT_EQ(length, delivered) << offset;
        if (!good) continue;
        EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + length),
                  bytes.substr(offset, length));
    }
    for (const auto &[offset, good, delivered] :
         {std::tuple{u64{998}, true, 2U}, {2000, true, 0}, {~u64{1}, false, 4}}) {
        EXPECT_EQ(disk.read_unbounded(buffer.data(), length = 4, offset, true), good);
        EXPECT_EQ(length, delivered) << offset;
    }
    EXPECT_TRUE(disk.read_exact(buffer.data(), 4, 996));
    EXPECT_FALSE(disk.read_exact(buffer.data(), 4, 997));
}

TEST(RawDiskIo, OpensWhatItCanRead)
{
    const test_support::temp_dir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    const std::string file = dir.write_file("file", "ab");
    const auto plain = disk_access::file;
    const std::tuple<std::string, disk_access, bool, bool> targets[] = {
        {file, plain, true, true},          {file, disk_access::drive, true, true},
        {"", plain, false, false},          {file, disk_access::vmdk, false, false},
        {dir / "gone", plain, true, false}, {dir / "fifo", plain, true, false},
        {dir.path, plain, true, false}};
    for (const auto &[path, access, open, readable] : targets) {
        const RAW_DISK_IO disk(path, access);
        u8 byte = 0;
        u32 length = 1;
        EXPECT_EQ(disk.is_open(), open) << path;
        EXPECT_EQ(disk.read(&byte, length, 1), readable) << path;
        EXPECT_EQ(byte, readable ? 'b' : 0) << path;
    }
    testing::internal::CaptureStderr();
    EXPECT_FALSE(RAW_DISK_IO(20).is_open());
    EXPECT_FALSE(RAW_DISK_IO(25, plain).is_open());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(RawDiskIo, MapsLikeClusterByCluster)
{
    const test_support::temp_dir dir;
    std::mt19937 random(20150404);
    const auto below = [&random](u64 limit) { return random() % limit; };
    std::unique_ptr<RAW_DISK_IO> disk;
    mapped_model model;
    for (int round = 0; round < 40000; ++round) {
        if (round % 2000 == 0) {
            const u32 c = std::array{1u, 7u, 16u, 512u}[below(4)];
            model = {sample_bytes(60 * c + c / 2), below(20), c, {}};
            const std::string path = dir.write_file("image", model.medium);
            disk = std::make_unique<RAW_DISK_IO>(path);
            disk->attach_runs(c, {}, 0, model.base);
            // What was there when the target was opened, and no longer is, is zeros.
            const std::size_t kept =
                below(2) == 0 ? model.medium.size() : 41 * c + c / 3;
            std::filesystem::resize_file(path, kept);
            std::fill(model.medium.begin() + static_cast<std::ptrdiff_t>(kept),
                      model.medium.end(), '\0');
        }
        model.runs.clear();
        const bool ascending = below(2) == 0;
        u64 vcn = below(3);
        for (u64 n = 1 + below(8); n > 0; --n) {
            disk_run run{below(62), ascending ? vcn : below(24), below(5) == 0,
                         static_cast<u32>(below(7))};
            if (below(9) == 0) run.lcn = ~u64{0} - below(3);
            if (below(3) == 0 && n < 3 && !model.runs.empty())
                run.lcn = model.runs.back().lcn + model.runs.back().clusters;
            vcn += run.clusters + (below(12) == 0 ? 1 : 0);
            model.runs.push_back(run);
        }
        const u32 c = model.cluster_size;
        const u64 offset = below(20 * c);
        const u32 length = static_cast<u32>(1 + below(20 * c));
        const u64 status = below(2) == 0 ? leave_out : 0;
        ASSERT_EQ(read_mapped(*disk, model.runs, c, offset, length, status),
                  model.read(offset, length, status))
            << "cluster size " << c << " round " << round;
    }
}

// A truncated image: of a file, the clusters that were cut off are zeros, and those
// after them are still found.
TEST(RawDiskIo, ReadsAnAttachedFile)
{
    const test_support::temp_dir dir;
    RAW_DISK_IO disk(dir.write_file("image", "_AAAABBBBCC"));
    // Clusters of four bytes: B, a missing one, A, the half of C, two missing, a hole,
    // B.
    const std::vector<disk_run> runs = {{1, 0, false, 1}, {1000, 1, false, 1},
                                        {0, 2, false, 1}, {2, 3, false, 3},
                                        {0, 6, true, 1},  {1, 7, false, 1}};
    disk.attach_runs(4, runs, 32, 1);
    EXPECT_EQ(read_attached(disk, 1, 31),
              std::string("BBB\0\0\0\0AAAACC", 13) + std::string(14, '\0') + "BBBB");
    EXPECT_EQ(read_attached(disk, 32, 1), "");
    constexpr u64 none = RAW_DISK_IO::not_on_medium;
    for (const auto &[position, next] : std::vector<std::pair<u64, u64>>{
             {3, 3}, {4, 8}, {15, 15}, {16, 28}, {31, 31}, {32, none}, {~u64{0}, none}})
        EXPECT_EQ(disk.next_on_medium(position), next) << position;
    u8 buffer[4] = {};
    u32 length = 4;
    EXPECT_TRUE(disk.read_run_cluster(4, buffer, length));
    EXPECT_EQ(std::string(buffer, buffer + length), "BBBB");
    EXPECT_FALSE(disk.read_run_cluster(4, buffer, length = 3));
    EXPECT_FALSE(disk.read_run_cluster(~u64{0}, buffer, length = 4));
    disk.attach_runs(4, {{3, 0, false, 1}}, 4, 1);
    EXPECT_EQ(disk.next_on_medium(0), none);
    disk.attach_runs(4, runs, 0, 1);
    EXPECT_EQ(read_attached(disk, 0, 1), "_") << "nothing is attached any more";
    EXPECT_EQ(disk.next_on_medium(10), 10u);
    EXPECT_EQ(disk.next_on_medium(11), none);
}

TEST(RawDiskIo, PassesOverMissingClustersAtOnce)
{
    const test_support::temp_dir dir;
    RAW_DISK_IO disk(dir.write_file("image", "ab"));
    constexpr u32 longest = 0xFFFFFFFF;
    // Holes of 2^32 - 1 clusters each, the last first, and one real cluster after them.
    const u64 end = u64{99999} * 40000 + longest;
    std::vector<disk_run> holes;
    for (u64 i = 0; i < 100000; ++i)
        holes.push_back({0, (99999 - i) * 40000, true, longest});
    holes.push_back({0, end, false, 1});
    const run_index index(holes);
    for (const auto &[offset, bytes] : {std::pair{end - 2, "a"}, {~u64{4}, ""}})
        EXPECT_EQ(read_mapped(disk, index, 1, offset, 4, leave_out),
                  mapped_result(true, mapped_status::was_read, bytes));
    u8 byte = 0xEE;
    u32 length = longest;
    u64 status = leave_out;
    EXPECT_TRUE(disk.read_mapped(index, 1, 0, &byte, length, status));
    EXPECT_EQ(length, 0u);

    // More than 2^40 clusters far outside the medium, and one on it.
    std::vector<disk_run> missing;
    for (u64 i = 0; i < 300; ++i)
        missing.push_back({1000 + i * longest, i * longest, false, longest});
    missing.push_back({1, u64{300} * longest, false, 1});
    disk.attach_runs(1, missing, u64{300} * longest + 1, 0);
    EXPECT_EQ(disk.next_on_medium(1), u64{300} * longest);
    EXPECT_EQ(read_attached(disk, u64{300} * longest - 2, 4), std::string("\0\0b", 3));
}

} // namespace

#include "disk/hv_raw_disk_io.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sys/stat.h>

using namespace hv;

// clang-format off
namespace {

using mapped_result = std::tuple<bool, u64, std::string>; // success, status, what was delivered
// The read as it is defined: cluster by cluster, each found by a walk of the list, each read into one
// scratch buffer, of which a cluster that can't be read gives whatever it holds.
struct mapped_model {
    static constexpr u64 farthest = 1000; // behind it, clusters are no place
    std::string medium;
    u64 base = 0;
    u32 cluster_size = 0;
    std::vector<disk_run> runs;

    mapped_result read(u64 offset, u32 length, bool leave_out) const
    {
        const u64 c = cluster_size, first = offset / c, last = (offset + length) / c;
        u64 head = offset % c, tail = (offset + length) % c;
        u64 status = (first & 0xFFFF) != 0 ? 8 : last == first + 16 ? 56 : 24;
        std::vector<std::pair<u64, bool>> list; // position on the medium, sparse
        for (u64 v = first; v <= last; ++v) {
            const auto run = std::ranges::find_if(runs, [v](auto &one) { return v >= one.vcn && v - one.vcn < one.clusters; });
            const bool held = run != runs.end(), skipped = held && run->is_sparse && leave_out;
            if (skipped && v == first) head = 0;
            if (!held || (skipped && v == last)) tail = 0;
            if (!held) break;
            const u64 place = run->lcn < farthest ? (run->lcn + (v - run->vcn)) * c + base : ~u64{0};
            if (!skipped) list.emplace_back(place, run->is_sparse);
        }
        std::string scratch(c, '\0'), out;
        for (std::size_t i = 0; i < list.size() && out.size() < length; ++i) {
            const auto [place, sparse] = list[i];
            const bool is_last = i != 0 && i + 1 == list.size() && tail != 0;
            u64 share = std::min(length - out.size(), i == 0 ? c - head : is_last ? tail : c);
            if (!sparse && place < medium.size()) {
                const std::string got = medium.substr(place, c);
                scratch.replace(0, got.size(), got);
                if (i != 0 && !is_last) share = std::min<u64>(share, got.size());
            }
            if (sparse && !leave_out) status |= 2;
            out += sparse ? std::string(share, '\0') : scratch.substr(i == 0 ? head : 0, share);
        }
        return {true, status, out};
    }
};

std::string sample_bytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 37 + i / 251 + 1);
    return bytes;
}

} // namespace

TEST(RawDiskIo, ClipsReadsAtTheEnd)
{
    const test_support::temp_dir dir;
    const std::string bytes = sample_bytes(1000);
    const RAW_DISK_IO disk(dir.write_file("image", bytes));
    std::vector<u8> buffer(2000);
    u32 length = 4;
    for (const auto &[offset, wanted, good, delivered] : {
             std::tuple<u64, u32, bool, u32>{0, 2000, true, 1000}, {999, 10, true, 1}, {300, 5, true, 5},
             {1000, 1, false, 1}, {0, 0, false, 0}, {~u64{0}, 8, false, 8}, {~u64{7}, 8, false, 8}}) {
        EXPECT_EQ(disk.read(buffer.data(), length = wanted, offset), good) << offset;
        EXPECT_EQ(length, delivered) << offset;
        if (good) { EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + length), bytes.substr(offset, length)); }
    }
    EXPECT_TRUE(disk.read_unbounded(buffer.data(), length = 4, 998, true) && length == 2);
    EXPECT_TRUE(disk.read_unbounded(buffer.data(), length = 4, 2000, true) && length == 0);
    EXPECT_FALSE(disk.read_unbounded(buffer.data(), length = 4, ~u64{1}, true));
    EXPECT_TRUE(disk.read_exact(buffer.data(), 4, 996) && !disk.read_exact(buffer.data(), 4, 997));
}

TEST(RawDiskIo, OpensWhatItCanRead)
{
    const test_support::temp_dir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    const std::string file = dir.write_file("file", "ab");
    const auto plain = disk_access::file;
    for (const auto &[path, access, open, readable] : {
             std::tuple{file, plain, true, true}, {file, disk_access::drive, true, true}, {std::string(), plain, false, false},
             {file, disk_access::vmdk, false, false}, {dir / "missing", plain, true, false}, {dir / "fifo", plain, true, false},
             {dir.path, plain, true, false}}) {
        const RAW_DISK_IO disk(path, access);
        u8 byte = 0;
        u32 length = 1;
        EXPECT_TRUE(disk.is_open() == open && disk.read(&byte, length, 0) == readable) << path;
    }
    testing::internal::CaptureStderr();
    EXPECT_FALSE(RAW_DISK_IO(20).is_open() || RAW_DISK_IO(25, plain).is_open());
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
            // What was there when the target was opened, and no longer is, reads as zeros.
            const std::size_t left = below(2) == 0 ? model.medium.size() : 41 * c + c / 3;
            std::filesystem::resize_file(path, left);
            model.medium.replace(left, model.medium.npos, model.medium.size() - left, '\0');
        }
        model.runs.clear();
        const bool ascending = below(2) == 0;
        u64 vcn = below(3);
        for (u64 n = 1 + below(8); n > 0; --n) {
            disk_run run{below(62), ascending ? vcn : below(24), below(5) == 0, static_cast<u32>(below(7))};
            if (below(9) == 0) run.lcn = ~u64{0} - below(3);
            if (below(3) == 0 && n < 3 && !model.runs.empty()) run.lcn = model.runs.back().lcn + model.runs.back().clusters;
            vcn += run.clusters + (below(12) == 0 ? 1 : 0);
            model.runs.push_back(run);
        }
        const u32 c = model.cluster_size;
        const u64 offset = below(20 * c);
        const u32 length = static_cast<u32>(1 + below(20 * c));
        const bool leave_out = below(2) == 0;
        std::vector<u8> buffer(length, 0xEE);
        u32 delivered = length;
        u64 status = leave_out ? 1 : 0;
        const bool good = disk->read_mapped(model.runs, c, offset, buffer.data(), delivered, status);
        ASSERT_LE(delivered, length);
        const mapped_result got{good, status, {buffer.begin(), buffer.begin() + delivered}};
        ASSERT_EQ(got, model.read(offset, length, leave_out)) << "cluster size " << c << " round " << round;
    }
}

TEST(RawDiskIo, ReadsAnAttachedFile)
{
    const test_support::temp_dir dir;
    RAW_DISK_IO disk(dir.write_file("image", "_ABCDEFGH"));
    u8 buffer[8] = {};
    u32 length = 8;
    // In the order of the file, the clusters of two bytes are GH, a hole, AB; then the runs end.
    disk.attach_runs(2, {{3, 0, false, 1}, {0, 1, true, 1}, {0, 2, false, 1}}, 6, 1);
    ASSERT_TRUE(disk.read(buffer, length, 1, true));
    EXPECT_EQ(std::string(buffer, buffer + length), std::string("H\0\0AB", 5));
    EXPECT_TRUE(disk.read_run_cluster(4, buffer, length = 4) && length == 4 && buffer[3] == 'H');
    EXPECT_FALSE(disk.read_run_cluster(4, buffer, length = 3) || disk.read_run_cluster(~u64{0}, buffer, length = 2));
    EXPECT_FALSE(disk.read(buffer, length = 1, 9, true)) << "the end of the target bounds mapped positions as well";
    disk.attach_runs(2, {{3, 0, false, 1}}, 0, 1);
    EXPECT_TRUE(disk.read(buffer, length = 1, 0, true) && buffer[0] == '_');
}

TEST(RawDiskIo, PassesOverMissingClustersAtOnce)
{
    const test_support::temp_dir dir;
    const RAW_DISK_IO disk(dir.write_file("image", "ab"));
    // Holes of 2^32 - 1 clusters each, the last first, and one real cluster behind them all.
    const u64 end = u64{99999} * 40000 + 0xFFFFFFFF;
    std::vector<disk_run> runs;
    for (u64 i = 0; i < 100000; ++i) runs.push_back({0, (99999 - i) * 40000, true, 0xFFFFFFFF});
    runs.push_back({0, end, false, 1});
    for (const auto &[offset, wanted, delivered] : {
             std::tuple<u64, u32, u32>{0, 0xFFFFFFFF, 0}, {end - 2, 4, 1}, {end, 4, 1}, {~u64{1}, 4, 0}}) {
        u8 buffer[4] = {};
        u32 length = wanted;
        u64 status = mapped_status::leave_out_sparse;
        EXPECT_TRUE(disk.read_mapped(runs, 1, offset, buffer, length, status)) << offset;
        EXPECT_TRUE(length == delivered && (length == 0 || buffer[0] == 'a')) << offset;
    }
}

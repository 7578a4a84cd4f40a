// A volume with damage in every place: no crash, no hang, and only the rows that depend
// on the damaged bytes may go.

#include "run/volume_modes.h"
#include "samples/bins.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <set>
#include <span>
#include <sstream>
#include <unistd.h>

namespace hv {
namespace {

using namespace test_support;

constexpr u64 lost_entry = 66;  // its row may go when it is damaged, and no other
constexpr u64 other_entry = 69; // no row depends on it

// A bin with three rows; the parts of its files and records are scattered.
ntfs_volume sample()
{
    ntfs_item data = bin_item(68, "$RAB12CD.txt", std::string(5000, 'x'));
    data.stored = {.non_resident = true, .fragments = 3};
    ntfs_item other = bin_item(other_entry, "other file.txt", std::string(9000, 'y'));
    other.stored = {.fragments = 5};
    return ntfs_volume_builder()
        .cluster_size(1024)
        .directory({.entry = bin_entry, .name = "$Recycle.Bin"})
        .directory({.entry = user_entry,
                    .parent = bin_entry,
                    .name = "S-1-5-21-7",
                    .index_blocks = true})
        .file(bin_metadata(lost_entry, "$ILOST12", u"C:\\lost"))
        .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
        .file(data)
        .file(other)
        .file(bin_metadata(70, "$IMOVED1", u"C:\\moved"))
        .move({.entry = 70, .record = 80, .type = ntfs_type::file_name})
        .mft({.fragments = 4})
        .build_volume();
}

enum class scan_kind {
    volume,
    volume_and_forgotten, ///< shadow stores and free clusters as well
    raw,
};

// How each byte is changed. The sanitizers make runs slow, and see the same faults.
#ifdef __SANITIZE_ADDRESS__
constexpr std::array<u8, 1> patterns{0xFF};
#else
constexpr std::array<u8, 3> patterns{0x01, 0x80, 0xFF};
#endif

using path_set = std::multiset<std::string>;

// The deleted paths that a run finds: the eighth column.
path_set rows_of(const std::string &path, scan_kind kind, u64 volume_offset = 0)
{
    run_options options;
    options.image_path = path;
    options.volume_offset = volume_offset;
    options.look_up_bins = true;
    options.progress = false;
    options.include_vss = kind == scan_kind::volume_and_forgotten;
    options.include_unalloc = options.include_vss;
    options.form.kind = form_kind::csvgen;
    options.form.set_separator("|");
    options.form.no_padding = true;
    std::stringstream out;
    if (kind == scan_kind::raw)
        run_raw_image(options, out);
    else
        run_volume(volume_origin::image, options, out);
    path_set paths;
    std::string cell;
    for (std::getline(out, cell); std::getline(out, cell);) {
        std::istringstream line(cell);
        for (int column = 0; column < 8; ++column) std::getline(line, cell, '|');
        paths.insert(cell);
    }
    return paths;
}

struct Damage : testing::Test {
    explicit Damage(ntfs_volume of = sample(), scan_kind scanned = scan_kind::volume)
        : volume(std::move(of)),
          kind(scanned),
          path(dir.write_file("image", text(volume.image)))
    {
        image = open(path.c_str(), O_RDWR);
        testing::internal::CaptureStderr();
        whole = rows_of(path, kind);
    }
    ~Damage() override
    {
        testing::internal::GetCapturedStderr();
        close(image);
    }

    void write(u64 at, std::span<const u8> bytes) const
    {
        ASSERT_EQ(pwrite(image, bytes.data(), bytes.size(), static_cast<off_t>(at)),
                  std::ssize(bytes));
    }

    // Rows of the whole volume that the damaged one lost, besides those that it may.
    path_set lost_besides(const path_set &losable) const
    {
        path_set missing = whole;
        for (const std::string &row : rows_of(path, kind)) missing.erase(row);
        for (const std::string &row : losable) missing.erase(row);
        return missing;
    }

    // Runs with each byte of a stretch changed in turn, three ways: no rows may be lost
    // but these.
    void flip_each(u64 from, u64 count, const path_set &losable) const
    {
        for (u64 at = from; at < from + count; ++at) {
            for (const u8 pattern : patterns) {
                const u8 changed = static_cast<u8>(volume.image[at] ^ pattern);
                write(at, {&changed, 1});
                EXPECT_EQ(lost_besides(losable), path_set{}) << at;
                if (kind != scan_kind::volume) rows_of(path, scan_kind::raw);
            }
            write(at, {&volume.image[at], 1});
        }
    }

    const temp_dir dir;
    const ntfs_volume volume;
    const scan_kind kind;
    std::string path;
    int image = -1;
    path_set whole; ///< the rows of the volume without damage
};

TEST_F(Damage, AnyByteOfARecordCostsAtMostItsOwnRow)
{
    EXPECT_EQ(whole, (path_set{"C:\\a.txt", "C:\\lost", "C:\\moved"}));
    flip_each(volume.record_position(lost_entry), 1024, {"C:\\lost"});
    flip_each(volume.record_position(other_entry), 1024, {});
}

TEST_F(Damage, AnyByteOfTheVolumesOwnStructuresEndsInPeace)
{
    flip_each(volume.boot_position, 84, whole);
    flip_each(volume.record_position(80), 300, whole);
    for (const u64 entry : {u64{0}, u64{5}, bin_entry})
        flip_each(volume.record_position(entry), 512, whole);
    // The index may be lost, but what it leads to is found without it.
    flip_each(volume.index_block_position(user_entry), 400, {});
}

TEST_F(Damage, AnySectorMayBeZeroAndTheEndMissing)
{
    // The volume's geometry, the map of the $MFT, and the folders that make a record
    // part of the bin and name its user carry all rows.
    std::set<u64> vital = {volume.boot_position};
    for (const u64 entry : {u64{0}, bin_entry, user_entry})
        for (const u64 sector : {0, 512})
            vital.insert(volume.record_position(entry) + sector);
    const std::array<u8, 512> zeros{};
    for (u64 at = 0; at + 512 <= volume.image.size(); at += 512) {
        write(at, zeros);
        EXPECT_LE(lost_besides({}).size(), vital.contains(at) ? whole.size() : 1) << at;
        write(at, {volume.image.data() + at, 512});
    }
    EXPECT_EQ(lost_besides({}), path_set{});
    for (u64 size = volume.image.size(); size > 0; size -= std::min<u64>(size, 3000)) {
        ASSERT_EQ(ftruncate(image, static_cast<off_t>(size)), 0);
        rows_of(path, kind);
    }
}

// The $MFT has a run after the end of a truncated image, and one that lies before it
// again: only the records of the first are lost, and none comes up twice.
TEST(TruncatedImage, LosesOnlyWhatItHasNoMore)
{
    byte_vector image = empty_bin()
                            .clusters(900)
                            .mft({.runs = {{10, 20}, {800, 4}, {40, 10}}})
                            .file(bin_metadata(79, "$IBEFORE", u"C:\\before"))
                            .file(bin_metadata(80, "$ICUTOFF", u"C:\\cut off"))
                            .file(bin_metadata(100, "$IAFTER1", u"C:\\after"))
                            .build();
    image.resize(700 * 4096 + 1000);
    const temp_dir dir;
    EXPECT_EQ(rows_of(dir.write_file("image", text(image)), scan_kind::volume),
              (path_set{"C:\\after", "C:\\before"}));
}

TEST(VolumeInADisk, HasTheRowsThatItHasAlone)
{
    constexpr u64 offset = 63 * 512;
    const temp_dir dir;
    const std::string disk = dir.write_file(
        "disk", std::string(offset, '\0') + text(forgotten_bin::build().image));
    EXPECT_EQ(rows_of(disk, scan_kind::volume_and_forgotten, offset),
              (path_set{"C:\\a.txt", "C:\\carved", "C:\\gone"}));
}

struct ForgottenDamage : Damage {
    ForgottenDamage() : Damage(forgotten_bin::build(), scan_kind::volume_and_forgotten)
    {
    }
};

TEST_F(ForgottenDamage, CostsAtMostWhatItHits)
{
    EXPECT_EQ(whole, (path_set{"C:\\a.txt", "C:\\carved", "C:\\gone"}));
    EXPECT_EQ(rows_of(path, scan_kind::raw), whole);
    constexpr u64 cluster = forgotten_bin::cluster_size;
    flip_each(forgotten_bin::catalog * cluster, 400, {"C:\\carved"});
    flip_each(forgotten_bin::store_header * cluster, 240, {"C:\\carved"});
    flip_each(volume.record_position(forgotten_bin::store_entry), 400, {"C:\\carved"});
    flip_each(forgotten_bin::store * cluster, 320, {"C:\\carved"});
    flip_each(forgotten_bin::free_record * cluster, 600, {"C:\\gone"});
    flip_each(volume.record_position(6), 400, {"C:\\gone"});
}

} // namespace
} // namespace hv

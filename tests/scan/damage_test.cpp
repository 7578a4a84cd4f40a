// A volume with damage in every place: no crash, no hang, and only the rows that depend
// on the damaged bytes may go.

#include "run/volume_modes.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/shadow_structures.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <span>
#include <sstream>
#include <unistd.h>

namespace hv {
namespace {

using namespace test_support;

constexpr u64 lost_entry =
    66; // its row may go when it is damaged; the others must stay
constexpr u64 other_entry = 69; // no row depends on it

ntfs_volume sample()
{
    return ntfs_volume_builder()
        .cluster_size(1024)
        .directory({.entry = 64, .name = "$Recycle.Bin"})
        .directory(
            {.entry = 65, .parent = 64, .name = "S-1-5-21-7", .index_blocks = true})
        .file({.entry = lost_entry,
               .parent = 65,
               .name = "$ILOST12",
               .data = metadata(u"C:\\lost")})
        .file({.entry = 67,
               .parent = 65,
               .name = "$IAB12CD.txt",
               .data = metadata(u"C:\\a.txt")})
        .file({.entry = 68,
               .parent = 65,
               .name = "$RAB12CD.txt",
               .data = byte_vector(5000, 'x'),
               .stored = {.non_resident = true, .fragments = 3}})
        .file({.entry = other_entry,
               .parent = 65,
               .name = "other file.txt",
               .data = byte_vector(9000, 'y'),
               .stored = {.fragments = 5}})
        .file({.entry = 70,
               .parent = 65,
               .name = "$IMOVED1",
               .data = metadata(u"C:\\moved")})
        .move({.entry = 70, .record = 80, .type = ntfs_type::file_name})
        .mft({.fragments = 4})
        .build_volume();
}

class Damage : public testing::Test {
protected:
    explicit Damage(ntfs_volume of = sample(), bool later_passes = false)
        : volume(std::move(of)),
          forgotten(later_passes),
          path(dir.write_file("image", text(volume.image)))
    {
        image = open(path.c_str(), O_RDWR);
        testing::internal::CaptureStderr();
        whole = rows();
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

    // The deleted paths that a run finds, sorted: the eighth column.
    std::vector<std::string> rows(bool raw = false) const
    {
        run_options options;
        options.image_path = path;
        options.look_up_bins = true;
        options.progress = false;
        options.include_vss = options.include_unalloc = forgotten;
        options.form.kind = form_kind::csvgen;
        options.form.set_separator("|");
        options.form.no_padding = true;
        std::stringstream out;
        if (raw)
            run_raw_image(options, out);
        else
            run_volume(volume_origin::image, options, out);
        std::vector<std::string> paths;
        std::string cell;
        for (std::getline(out, cell); std::getline(out, cell);) {
            std::istringstream line(cell);
            for (int column = 0; column < 8; ++column) std::getline(line, cell, '|');
            paths.push_back(cell);
        }
        std::ranges::sort(paths);
        return paths;
    }

    // Rows of the whole volume that a damaged one lost.
    std::vector<std::string> lost() const
    {
        const auto found = rows();
        std::vector<std::string> missing;
        std::set_difference(whole.begin(), whole.end(), found.begin(), found.end(),
                            std::back_inserter(missing));
        return missing;
    }

    // The volume's geometry, the map of the $MFT, and the folders that make a record
    // part of the bin and name its user.
    bool carries_all_rows(u64 at) const
    {
        for (const u64 entry : {u64{0}, u64{64}, u64{65}})
            if (at / 1024 == volume.record_position(entry) / 1024) return true;
        return at == volume.boot_position;
    }

    // Runs with each byte of a stretch changed in turn, three ways.
    template <class Check> void flip_each(u64 from, u64 count, Check check)
    {
        for (u64 at = from; at < from + count; ++at) {
            for (const u8 pattern : {u8{0x01}, u8{0x80}, u8{0xFF}}) {
                const u8 changed = static_cast<u8>(volume.image[at] ^ pattern);
                write(at, {&changed, 1});
                check(at);
            }
            write(at, {&volume.image[at], 1});
        }
    }

    const temp_dir dir;
    const ntfs_volume volume;
    const bool forgotten; ///< whether shadow stores and free clusters are looked at
    std::string path;
    int image = -1;
    std::vector<std::string> whole;
};

TEST_F(Damage, TheWholeVolumeHasAllRows)
{
    EXPECT_EQ(whole, (std::vector<std::string>{"C:\\a.txt", "C:\\lost", "C:\\moved"}));
}

TEST_F(Damage, AnyByteOfARecordCostsAtMostItsOwnRow)
{
    const std::vector<std::string> own_row = {"C:\\lost"};
    flip_each(volume.record_position(lost_entry), 1024, [&](u64 at) {
        const auto missing = lost();
        EXPECT_TRUE(missing.empty() || missing == own_row) << at;
    });
    flip_each(volume.record_position(other_entry), 1024,
              [&](u64 at) { EXPECT_TRUE(lost().empty()) << at; });
}

TEST_F(Damage, AnyByteOfTheVolumesOwnStructuresEndsInPeace)
{
    flip_each(volume.boot_position, 84, [&](u64) { rows(); });
    flip_each(volume.record_position(0), 512, [&](u64) { rows(); });
    flip_each(volume.record_position(5), 512, [&](u64) { rows(); });
    flip_each(volume.record_position(80), 300, [&](u64) { rows(); });
    // The index may be lost, but what it leads to is found without it.
    flip_each(volume.record_position(64), 512, [&](u64) { rows(); });
    flip_each(volume.index_block_position(65), 400,
              [&](u64 at) { EXPECT_TRUE(lost().empty()) << at; });
}

TEST_F(Damage, AnySectorMayBeZeroAndTheEndMissing)
{
    const std::array<u8, 512> zeros{};
    for (u64 at = 0; at + 512 <= volume.image.size(); at += 512) {
        write(at, zeros);
        const auto missing = lost();
        EXPECT_LE(missing.size(), carries_all_rows(at) ? whole.size() : 1u) << at;
        write(at, {volume.image.data() + at, 512});
    }
    EXPECT_TRUE(lost().empty());
    for (u64 size = volume.image.size(); size > 0; size -= std::min<u64>(size, 3000)) {
        ASSERT_EQ(ftruncate(image, static_cast<off_t>(size)), 0);
        rows();
    }
}

// A live row, and two that only a shadow store and a free cluster hold.
constexpr u64 store_lcn = 700;
constexpr u64 store_header_lcn = 720;
constexpr u64 free_lcn = 740;
constexpr u64 small_cluster = 1024;

ntfs_volume forgotten_sample()
{
    const auto bin = [] {
        return ntfs_volume_builder()
            .cluster_size(small_cluster)
            .clusters(760)
            .directory({.entry = 64, .name = "$Recycle.Bin"})
            .directory({.entry = 65, .parent = 64, .name = "S-1-5-21-7"});
    };
    const ntfs_volume gone = bin()
                                 .file({.entry = 80,
                                        .parent = 65,
                                        .name = "$IGONE12",
                                        .data = metadata(u"C:\\gone")})
                                 .build_volume();
    const shadow_store store{.header = store_header_lcn * small_cluster,
                             .reference = 73 | u64{1} << 48};
    ntfs_volume volume =
        bin()
            .file({.entry = 66,
                   .parent = 65,
                   .name = "$IAB12CD.txt",
                   .data = metadata(u"C:\\a.txt")})
            .directory({.entry = 71, .name = "System Volume Information"})
            .file({.entry = 72,
                   .parent = 71,
                   .name = shadow_name,
                   .data = shadow_catalog({store}),
                   .stored = {.runs = {{680, 16}}, .valid_size = 0}})
            .file({.entry = 73,
                   .parent = 71,
                   .name = "store",
                   .data = info2_file({{.path = u"C:\\carved"}}),
                   .stored = {.runs = {{store_lcn, 1}}, .valid_size = 0}})
            .build_volume();
    put_bytes(volume.image, store_header_lcn * small_cluster,
              shadow_store_header(store, u"machine", u"service"));
    const auto record =
        gone.image.begin() + static_cast<std::ptrdiff_t>(gone.record_position(80));
    put_bytes(volume.image, free_lcn * small_cluster, {record, record + 1024});
    return volume;
}

class ForgottenDamage : public Damage {
protected:
    ForgottenDamage() : Damage(forgotten_sample(), true) {}
};

TEST_F(ForgottenDamage, CostsAtMostWhatItHits)
{
    const std::vector<std::string> all = {"C:\\a.txt", "C:\\carved", "C:\\gone"};
    EXPECT_EQ(whole, all);
    EXPECT_EQ(rows(true), all);
    const auto costs = [&](const char *row) {
        return [this, row](u64 at) {
            const auto missing = lost();
            EXPECT_TRUE(missing.empty() || missing == std::vector<std::string>{row})
                << at;
            rows(true);
        };
    };
    flip_each(680 * small_cluster, 400, costs("C:\\carved"));
    flip_each(store_header_lcn * small_cluster, 240, costs("C:\\carved"));
    flip_each(volume.record_position(73), 400, costs("C:\\carved"));
    flip_each(store_lcn * small_cluster, 320, costs("C:\\carved"));
    flip_each(free_lcn * small_cluster, 600, costs("C:\\gone"));
    flip_each(volume.record_position(6), 400, costs("C:\\gone"));
}

} // namespace
} // namespace hv

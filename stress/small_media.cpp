#include "stress/small_media.h"

#include "lab/partition_tables.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/security_structures.h"
#include "samples/shadow_structures.h"

#include <array>

namespace stress {

namespace {

using namespace test_support;

// Low numbers make a small $MFT.
constexpr u64 bin = 24, user = 25, first_item = 26;
constexpr u32 owner_id = 256;

ntfs_item item(u64 entry, std::string name, byte_vector data = {}, u64 parent = user)
{
    return {.entry = entry,
            .parent = parent,
            .name = std::move(name),
            .data = std::move(data),
            .security_id = owner_id};
}

ntfs_item stored(ntfs_item what, ntfs_storage how)
{
    what.stored = std::move(how);
    return what;
}

ntfs_item deleted(ntfs_item what)
{
    what.in_use = false;
    return what;
}

// A volume with the bin of one user.
ntfs_volume_builder empty_volume(u32 cluster_size, const char *name = "$Recycle.Bin")
{
    return ntfs_volume_builder()
        .cluster_size(cluster_size)
        .small_system_files()
        .directory({.entry = bin, .name = name})
        .directory({.entry = user,
                    .parent = bin,
                    .name = "S-1-5-21-7-8-9-1001",
                    .security_id = owner_id});
}

byte_vector first_version(std::u16string path)
{
    return dollar_i_builder().version(1).path(std::move(path)).bytes();
}

// Metadata of both versions with its data, without it, and data alone.
ntfs_volume_builder pairs(u32 cluster_size)
{
    return empty_volume(cluster_size)
        .file(item(26, "$IAB12CD.txt", metadata(u"C:\\Users\\ada\\first.txt")))
        .file(item(27, "$RAB12CD.txt", bytes_of("what was in it")))
        .stream({.entry = 27, .name = "Zone.Identifier", .data = bytes_of("ZoneId=3")})
        .file(item(28, "$IOLD123.doc", first_version(u"D:\\old.doc")))
        .file(stored(item(29, "$ROLD123.doc", byte_vector(3000, 'o')),
                     {.non_resident = true}))
        .file(item(30, "$IDIR123", metadata(u"C:\\a folder")))
        .directory(item(31, "$RDIR123"))
        .file(item(32, "in it.txt", bytes_of("deep"), 31))
        .file(item(33, "$ILOST12", metadata(u"C:\\lost")))
        .file(item(34, "$RALONE1.pdf", bytes_of("alone")))
        .file(deleted(item(35, "$IGONE12", metadata(u"C:\\gone"))))
        .file(deleted(item(36, "$RGONE12", byte_vector(900, 'g'))));
}

byte_vector recent()
{
    return pairs(512).build();
}

// Metadata and data outside of the records: in pieces, compressed, with holes.
byte_vector clustered()
{
    byte_vector with_holes(std::size_t{6} * 512, 'h');
    std::fill_n(with_holes.begin() + 512, 1024, u8{0});
    return empty_volume(512)
        .file(stored(item(26, "$IAB12CD.txt", metadata(u"C:\\in clusters")),
                     {.non_resident = true}))
        .file(stored(item(27, "$RAB12CD.txt", byte_vector(5000, 'x')),
                     {.non_resident = true, .fragments = 3}))
        .file(stored(item(28, "$ICMPR12.bin", first_version(u"C:\\compressed")),
                     {.non_resident = true, .compressed = true}))
        .file(stored(item(29, "$RCMPR12.bin", byte_vector(20000, 'c')),
                     {.non_resident = true, .compressed = true}))
        .file(item(30, "$ISPRS12", metadata(u"C:\\sparse")))
        .file(stored(item(31, "$RSPRS12", std::move(with_holes)),
                     {.non_resident = true, .runs = {{120, 1}, {hole, 2}, {121, 3}}}))
        .build();
}

byte_vector old_lists()
{
    const byte_vector list =
        info2_file({{.ansi_path = "C:\\one.txt", .path = u"C:\\one.txt", .number = 1},
                    {.ansi_path = "C:\\two.doc", .path = u"C:\\two.doc", .number = 2},
                    {.ansi_path = "C:\\three", .path = u"C:\\three", .number = 7}});
    byte_vector narrow = info2_header(4, 280);
    append(narrow, info2_record({.ansi_path = "C:\\narrow"}, 280));
    return empty_volume(512, "RECYCLER")
        .file(stored(item(26, "INFO2", list), {.non_resident = true}))
        .file(item(27, "Dc1.txt", bytes_of("1")))
        .file(
            stored(item(28, "Dc2.doc", byte_vector(1500, '2')), {.non_resident = true}))
        .directory(item(29, "Dc7"))
        .file(item(30, "in it.txt", bytes_of("3"), 29))
        .directory({.entry = 31, .parent = bin, .name = "S-1-5-21-7-8-9-1002"})
        .file(item(32, "INFO2", narrow, 31))
        .file(deleted(item(33, "Dc9.txt", bytes_of("9"))))
        .build();
}

// Names of files that are gone, in a root and in blocks.
byte_vector index_remains()
{
    ntfs_volume_builder volume = empty_volume(512);
    ntfs_item folder = item(user, "S-1-5-21-7-8-9-1001", {}, bin);
    folder.index_blocks = true;
    volume.directory(folder);
    for (u64 i = 0; i < 8; ++i) {
        const std::string name = "AB12C" + std::to_string(i) + ".txt";
        volume
            .file(item(first_item + 2 * i, "$I" + name,
                       metadata(u"C:\\indexed " +
                                std::u16string(1, static_cast<char16_t>(u'0' + i)))))
            .file(item(first_item + 1 + 2 * i, "$R" + name, bytes_of("x")));
    }
    return volume
        .stale_entry(
            {.directory = user, .entry = 60, .name = "$IGONE12.txt", .size = 90})
        .stale_entry(
            {.directory = user, .entry = 61, .name = "$RGONE12.txt", .size = 7})
        .stale_entry({.directory = bin, .entry = 62, .name = "S-1-5-21-7-8-9-1003"})
        .build();
}

byte_vector journal_lines()
{
    constexpr u64 user_reference = user | u64{1} << 48;
    byte_vector lines;
    const auto add = [&](u64 version, u64 entry, const char16_t *name, u32 reason) {
        append(lines, journal_line_bytes({.version = version,
                                          .usn = lines.size(),
                                          .name = name,
                                          .reason = reason,
                                          .reference = entry | u64{1} << 48,
                                          .parent = user_reference}));
    };
    for (const u64 version : {u64{2}, u64{3}}) {
        add(version, 26, u"$IAB12CD.txt", 0x100);
        add(version, 27, u"$RAB12CD.txt", 0x2000);
        add(version, 40, u"$IGONE12", 0x80000200);
        add(version, 41, u"$RGONE12", 0x80000200);
        add(version, 26, u"Dc1.txt", 0x2000);
    }
    return lines;
}

byte_vector journal()
{
    return empty_volume(512)
        .file(item(26, "$IAB12CD.txt", metadata(u"C:\\logged.txt")))
        .file(item(27, "$RAB12CD.txt", bytes_of("x")))
        .file({.entry = 28, .parent = 11, .name = "$UsnJrnl", .without_data = true})
        .stream({.entry = 28,
                 .name = "$J",
                 .data = joined({byte_vector(1024), journal_lines()}),
                 .stored = {.non_resident = true, .runs = {{hole, 2}, {120, 4}}}})
        .stream({.entry = 28, .name = "$Max", .data = byte_vector(32)})
        .build();
}

// A snapshot of the time when there was one more deletion; its store has kept the block
// of the $MFT with the record of it.
byte_vector snapshot()
{
    constexpr u64 cluster = 1024, area = 128 << 10, block = shadow_block_size;
    constexpr u64 entry = 31, folder = 27;
    const shadow_store store{.block_list = area + block,
                             .header = area,
                             .bitmap = area + 2 * block,
                             .reference = 29 | u64{1} << 48};
    const auto volume_with = [&](const byte_vector &kept) {
        const std::string id = "{01010101-0101-0101-0101-010101010101}";
        return empty_volume(cluster)
            .file(item(26, "$IAB12CD.txt", metadata(u"C:\\still there")))
            .directory({.entry = folder, .name = "System Volume Information"})
            .file({.entry = 28,
                   .parent = folder,
                   .name = shadow_name,
                   .data = shadow_catalog({store}),
                   .stored = {.runs = {{area / cluster - 16, 16}}, .valid_size = 0}})
            .file({.entry = 29,
                   .parent = folder,
                   .name = id + shadow_name,
                   .data = joined({shadow_store_header(store, u"here", u"here"), kept}),
                   .stored = {.runs = {{area / cluster, 64}}, .valid_size = 0}})
            .clusters(area / cluster + 70);
    };
    const ntfs_volume then = volume_with(byte_vector(3 * block))
                                 .file(item(entry, "$IPURGED", metadata(u"C:\\purged")))
                                 .build_volume();
    const u64 position = then.record_position(entry) / block * block;
    return volume_with(
               joined({shadow_descriptors({{position, area + 3 * block}}, area + block),
                       shadow_bitmap({}, area + 2 * block),
                       cut(then.image, position, block)}))
        .file(item(entry, "other.txt", bytes_of("x"), 5))
        .build();
}

// The $MFT is in pieces, and a part of the records of a bin is in extension records.
byte_vector fragments()
{
    return pairs(512)
        .mft({.fragments = 4})
        .file(stored(item(37, "$RAB12CD.mov", byte_vector(3000, 'm')),
                     {.non_resident = true, .fragments = 4}))
        .move({.entry = 26, .record = 40, .type = ntfs_type::file_name})
        .move({.entry = 28, .record = 41, .type = ntfs_type::data})
        .move({.entry = 37, .record = 42, .type = ntfs_type::data})
        .move({.entry = 37, .record = 43, .type = ntfs_type::data, .first_run = 2})
        .list_in_clusters(37)
        .build();
}

// Records of 4 KiB in large clusters, and one name that is a short one.
byte_vector large_records()
{
    return pairs(4096)
        .record_size(4096)
        .link({.entry = 26, .parent = user, .name = "$IAB12~1.TXT", .name_space = 2})
        .link({.entry = 27, .parent = 5, .name = "a hard link.txt"})
        .build();
}

byte_vector early_records()
{
    return pairs(512).update_array(42).build();
}

byte_vector owners()
{
    const byte_vector sid_of_user = sid(5, {21, 7, 8, 9, 1001});
    const byte_vector owned = descriptor(
        {sid_of_user, sid(5, {32, 545}), {}, acl({ace(0, 3, 0x1F01FF, sid_of_user)})});
    return pairs(512)
        .stream({.entry = 9,
                 .name = "$SDS",
                 .data = sds_of(owner_id, 0, owned),
                 .stored = {.non_resident = true}})
        .build();
}

// What is left in free clusters and in slack.
byte_vector forgotten()
{
    const ntfs_volume gone = pairs(1024).build_volume();
    ntfs_volume volume = empty_volume(1024)
                             .file(item(26, "$IAB12CD.txt", metadata(u"C:\\a.txt")))
                             .clusters(128)
                             .build_volume();
    const u64 free = u64{96} << 10;
    put_bytes(volume.image, free, gone.record(28));
    put_bytes(volume.image, free + 1024, gone.record(36));
    put_bytes(volume.image, free + 2048, metadata(u"D:\\bare"));
    put_bytes(volume.image, free + 2560, info2_file({{.path = u"C:\\listed"}}));
    put_bytes(volume.image, free + 4096, journal_lines());
    put_bytes(volume.image, volume.record_position(26) + 600, metadata(u"C:\\slack"));
    return volume.image;
}

// Two volumes, the second of which begins where the first one ends.
byte_vector disk_of(void (*write_table)(byte_vector &disk,
                                        const std::vector<lab::partition> &partitions))
{
    const byte_vector first =
        empty_volume(512)
            .file(item(26, "$IAB12CD.txt", metadata(u"C:\\first volume")))
            .build();
    const byte_vector second = old_lists();
    const u64 first_at = 63, second_at = first_at + first.size() / 512;
    byte_vector disk(first_at * 512);
    append(disk, first);
    append(disk, second);
    put_bytes(disk, std::size_t{40} * 512, metadata(u"C:\\between"));
    write_table(disk,
                {{first_at, first.size() / 512}, {second_at, second.size() / 512}});
    return disk;
}

byte_vector mbr_disk()
{
    return disk_of(lab::write_mbr);
}

byte_vector gpt_disk()
{
    return disk_of(lab::write_gpt);
}

// No file system at all.
byte_vector bare()
{
    const ntfs_volume gone = pairs(512).build_volume();
    byte_vector image(48 << 10);
    put_bytes(image, 4096, gone.record(26));
    put_bytes(image, 8192, metadata(u"D:\\bare"));
    put_bytes(image, 12800, info2_file({{.path = u"C:\\listed"}}));
    put_bytes(image, 16384, journal_lines());
    return image;
}

constexpr std::array<small_medium, 14> all_media = {{{"recent", recent},
                                                     {"clustered", clustered},
                                                     {"old_lists", old_lists},
                                                     {"index_remains", index_remains},
                                                     {"journal", journal},
                                                     {"snapshot", snapshot},
                                                     {"fragments", fragments},
                                                     {"large_records", large_records},
                                                     {"early_records", early_records},
                                                     {"owners", owners},
                                                     {"forgotten", forgotten},
                                                     {"mbr_disk", mbr_disk},
                                                     {"gpt_disk", gpt_disk},
                                                     {"bare", bare}}};

} // namespace

std::span<const small_medium> small_media()
{
    return all_media;
}

} // namespace stress

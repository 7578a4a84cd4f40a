// Makes a small NTFS volume with the bin of a Windows 10 in it: what make_sample_bin
// writes as files, and what only a volume can hold, such as a shadow copy from the time
// when the bin had one more file. Usage: make_sample_volume FILE

#include "samples/ntfs_volume_builder.h"
#include "samples/security_structures.h"
#include "samples/shadow_structures.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

using namespace test_support;

// 2024-03-05 09:13:20.500 UTC, 09:41:17.250, and later moments of the same morning
constexpr u64 before = filetime(1709630000, 500);
constexpr u64 first = filetime(1709631677, 250);
constexpr u64 second = filetime(1709632040, 7);
constexpr u64 third = filetime(1709633111, 999);

constexpr u64 user = 65; // the entry of the user's folder

constexpr u64 clusters = 640;
constexpr u64 forgotten_cluster = 600; // far beyond all that is in use
constexpr u64 store_cluster = 512;     // at a block of the shadow copies

constexpr u32 owner_id = 256;

ntfs_times all_at(u64 time)
{
    return {time, time, time, time};
}

// The record of a deletion: it is written at that time, and not changed later.
ntfs_item record(u64 entry, std::string name, std::u16string path, u64 size,
                 u64 deleted)
{
    return {
        .entry = entry,
        .parent = user,
        .name = std::move(name),
        .data =
            dollar_i_builder().path(std::move(path)).size(size).time(deleted).bytes(),
        .security_id = owner_id,
        .times = all_at(deleted)};
}

ntfs_item item(u64 entry, u64 parent, std::string name, std::string_view content = {})
{
    return {.entry = entry,
            .parent = parent,
            .name = std::move(name),
            .data = bytes_of(content),
            .security_id = owner_id,
            .times = all_at(filetime(1706774400, 0))}; // 2024-02-01 08:00:00
}

void add_bin(ntfs_volume_builder &volume)
{
    volume.directory(item(64, 5, "$Recycle.Bin"))
        .directory(item(user, 64, "S-1-5-21-2025429265-492894223-1708537768-1001"))
        .file(item(66, user, "desktop.ini", "[.ShellClassInfo]\r\n"))
        .file(record(67, "$IA1B2C3.docx",
                     u"C:\\Users\\ada\\Documents\\offer, final.docx", 33, first))
        .file(item(68, user, "$RA1B2C3.docx", "not really a document, but enough"))
        .file(record(69, "$I7KQ2ZD", u"C:\\Users\\ada\\Projects\\old", 40, second))
        .directory(item(70, user, "$R7KQ2ZD"))
        .file(item(71, 70, "notes.txt", "read me first\n"))
        .directory(item(72, 70, "src"))
        .file(item(73, 72, "main.c", "int main(void) { return 0; }\n"))
        .file(
            record(74, "$IM4N5P6.jpg", u"D:\\Bilder\\K\u00f6ln.jpg", 5000000000, third))
        .file(item(75, user, "$RX9Y8Z7.pdf", "the metadata of this one is gone"));
}

// The document came from the web. One file was taken out of the bin again; of another
// only a name is left, after the end of the folder's index.
void add_traces(ntfs_volume_builder &volume)
{
    volume.stream({.entry = 68,
                   .name = "Zone.Identifier",
                   .data = bytes_of("[ZoneTransfer]\r\nZoneId=3\r\n"
                                    "HostUrl=https://example.org/offer.docx\r\n")});
    ntfs_item restored =
        record(76, "$IQ7R8S9.txt", u"C:\\Users\\ada\\Desktop\\todo.txt", 812, before);
    restored.in_use = false;
    restored.sequence = 2;
    volume.file(restored);
    volume.stale_entry({.directory = user,
                        .entry = 77,
                        .name = "$IT1U2V3.xlsx",
                        .size = 110,
                        .times = all_at(before)});
}

// All files of the sample belong to one user, as one entry of $Secure says.
void add_owner(ntfs_volume_builder &volume)
{
    const byte_vector user_sid = sid(5, {21, 2025429265, 492894223, 1708537768, 1001});
    const byte_vector full_access = ace(0, 3, 0x1F01FF, user_sid);
    const byte_vector owned =
        descriptor({user_sid, sid(5, {32, 545}), {}, acl({full_access})});
    volume.stream({.entry = 9,
                   .name = "$SDS",
                   .data = sds_stream(sds_of(owner_id, 0, owned)),
                   .stored = {.non_resident = true}});
}

ntfs_volume_builder whole_volume()
{
    ntfs_volume_builder volume;
    add_bin(volume);
    add_traces(volume);
    add_owner(volume);
    return volume.clusters(clusters);
}

// A free cluster still holds the record of metadata whose entry was given to another
// file long ago: an older $MFT was there, or a copy of one.
void add_forgotten_record(ntfs_volume &volume)
{
    constexpr u64 entry = 90;
    const ntfs_volume older =
        whole_volume()
            .file(record(entry, "$IW4X5Y6.pst", u"C:\\Users\\ada\\mail\\archive.pst",
                         73400320, before))
            .build_volume();
    put_bytes(volume.image, forgotten_cluster * 4096, older.record(entry));
}

// When the shadow copy was made, the bin still had a file that was purged since, and
// the copy has kept the block of the $MFT with its record.
ntfs_volume build_with_shadow_copy()
{
    constexpr u64 entry = 92;
    const auto add_files = [](ntfs_volume_builder volume, const byte_vector &kept) {
        const u64 area = store_cluster * 4096;
        const shadow_store store{.created = first,
                                 .block_list = area + shadow_block_size,
                                 .header = area,
                                 .bitmap = area + 2 * shadow_block_size,
                                 .reference = 82 | u64{1} << 48};
        const std::string id = "{01010101-0101-0101-0101-010101010101}";
        return volume.directory(item(80, 5, "System Volume Information"))
            .file({.entry = 81,
                   .parent = 80,
                   .name = shadow_name,
                   .data = shadow_catalog({store}),
                   .stored = {.runs = {{store_cluster + 16, 4}}, .valid_size = 0}})
            .file({.entry = 82,
                   .parent = 80,
                   .name = id + shadow_name,
                   .data =
                       joined({shadow_store_header(store, u"ada-pc", u"ada-pc"), kept}),
                   .stored = {.runs = {{store_cluster, 16}}, .valid_size = 0}});
    };
    // The same volume at that time: everything is where it is now.
    const byte_vector no_blocks(3 * shadow_block_size);
    const ntfs_volume then =
        add_files(whole_volume(), no_blocks)
            .file(record(entry, "$IZ1Y2X3.zip", u"C:\\Users\\ada\\purged.zip", 5242880,
                         before))
            .build_volume();
    const u64 record_at = then.record_position(entry);
    const u64 block = record_at - record_at % shadow_block_size;
    const auto kept = then.image.begin() + static_cast<std::ptrdiff_t>(block);
    const u64 area = store_cluster * 4096;
    return add_files(whole_volume(),
                     joined({shadow_descriptors({{block, area + 3 * shadow_block_size}},
                                                area + shadow_block_size),
                             shadow_bitmap({}, area + 2 * shadow_block_size),
                             {kept, kept + shadow_block_size}}))
        .file(item(entry, 5, "grocery list.txt", "milk"))
        .build_volume();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_sample_volume FILE\n";
        return 1;
    }
    ntfs_volume built = build_with_shadow_copy();
    add_forgotten_record(built);
    std::ofstream file(argv[1], std::ios::binary);
    file << std::string(built.image.begin(), built.image.end()) << std::flush;
    if (file.good()) return 0;
    std::cerr << "make_sample_volume: " << argv[1] << " can't be written\n";
    return 1;
}

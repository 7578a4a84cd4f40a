#pragma once

#include "samples/ntfs_volume_builder.h"
#include "samples/shadow_structures.h"

/// Volumes with Recycle Bins, to start from: a test adds what it is about.
namespace test_support {

/// The entries of the bin and of the folder of its user.
inline constexpr u64 bin_entry = 64;
inline constexpr u64 user_entry = 65;

/// A volume with the bin of one user, and nothing in it.
inline ntfs_volume_builder empty_bin(const std::string &bin = "$Recycle.Bin",
                                     const std::string &user = "S-1-5-21-7")
{
    return ntfs_volume_builder()
        .directory({.entry = bin_entry, .name = bin})
        .directory({.entry = user_entry, .parent = bin_entry, .name = user});
}

/// A file or folder, in the folder of the user if no other parent is named.
inline ntfs_item bin_item(u64 entry, const std::string &name,
                          std::string_view content = {}, u64 parent = user_entry)
{
    return {.entry = entry, .parent = parent, .name = name, .data = bytes_of(content)};
}

/// A `$I` file that states the original path.
inline ntfs_item bin_metadata(u64 entry, const std::string &name,
                              const std::u16string &path, u64 parent = user_entry)
{
    return bin_item(entry, name, text(metadata(path)), parent);
}

/// A bin of Windows 10 with all that can become of a deletion: a file and a folder with
/// their metadata, metadata that lost its data and data that lost its metadata, a
/// deleted `$I` file, and one outside the bin.
inline ntfs_volume_builder recent_bin()
{
    ntfs_item data = bin_item(68, "$RAB12CD.txt", std::string(10000, 'x'));
    data.stored.non_resident = true;
    ntfs_item gone = bin_metadata(75, "$IGONE12", u"C:\\gone");
    gone.in_use = false;
    return empty_bin()
        .file(bin_item(66, "desktop.ini", "x"))
        .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
        .file(data)
        .stream(
            {.entry = 68, .name = "Zone.Identifier", .data = bytes_of("ZoneId=3\r\n")})
        .file(bin_metadata(69, "$IDIR123", u"C:\\dir"))
        .directory(bin_item(70, "$RDIR123"))
        .directory(bin_item(71, "s\u00fcb", "", 70))
        .file(bin_item(72, "deep.txt", "12345", 71))
        .file(bin_metadata(73, "$ILOST12", u"C:\\lost"))
        .file(bin_item(74, "$RORPHAN.pdf", "1"))
        .file(gone)
        .directory(bin_item(76, "Users", "", 5))
        .file(bin_metadata(77, "$IELSE12", u"C:\\else", 76));
}

/// A volume with clusters of 1024 bytes whose bin lists "C:\a.txt". An INFO2 list with
/// "C:\carved" is only in a store, and the record of a `$I` file with "C:\gone" only in
/// a free cluster.
struct forgotten_bin {
    static constexpr u32 cluster_size = 1024;
    static constexpr u64 store_entry = 73;
    // Where these begin, in clusters.
    static constexpr u64 catalog = 680;
    static constexpr u64 store = 701; // at no multiple of 4096 bytes
    static constexpr u64 store_header = 720;
    static constexpr u64 free_record = 740;

    static ntfs_volume build()
    {
        const ntfs_volume gone =
            empty_bin().file(bin_metadata(80, "$IGONE12", u"C:\\gone")).build_volume();
        const shadow_store kept{.header = store_header * cluster_size,
                                .reference = store_entry | u64{1} << 48};
        ntfs_item list =
            bin_item(store_entry, "store", text(info2_file({{.path = u"C:\\carved"}})),
                     shadow_folder);
        list.stored = {.runs = {{store, 1}}, .valid_size = 0};
        ntfs_volume_builder builder = empty_bin();
        ntfs_volume volume = add_catalog(builder, shadow_catalog({kept}),
                                         {.runs = {{catalog, 16}}, .valid_size = 0})
                                 .cluster_size(cluster_size)
                                 .clusters(760)
                                 .file(bin_metadata(66, "$IAB12CD.txt", u"C:\\a.txt"))
                                 .file(list)
                                 .build_volume();
        put_bytes(volume.image, store_header * cluster_size,
                  shadow_store_header(kept, u"machine", u"service"));
        put_bytes(volume.image, free_record * cluster_size, gone.record(80));
        return volume;
    }
};

} // namespace test_support

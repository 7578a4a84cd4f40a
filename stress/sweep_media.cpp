#include "stress/sweep_media.h"

#include "samples/bins.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace stress {

namespace {

using namespace test_support;

constexpr u64 max_medium = u64{64} << 20; // what follows is cut off
constexpr u64 sector = 512;

// Two pairs and an empty rest: small enough for a run with each bit of it turned.
byte_vector smallest()
{
    ntfs_item data = bin_item(68, "$RAB12CD.txt", std::string(700, 'x'));
    data.stored.non_resident = true;
    return empty_bin()
        .cluster_size(512)
        .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
        .file(data)
        .file(bin_metadata(69, "$IEF34GH", u"C:\\b"))
        .directory(bin_item(70, "$REF34GH"))
        .file(bin_item(71, "c.txt", "12345", 70))
        .build();
}

// Attribute lists, fragments, and an index with blocks.
byte_vector scattered()
{
    ntfs_item data = bin_item(68, "$RAB12CD.txt", std::string(5000, 'x'));
    data.stored = {.non_resident = true, .fragments = 3};
    ntfs_item metadata_in_clusters =
        bin_metadata(71, "$ICLUS12", u"C:\\in clusters of its own");
    metadata_in_clusters.stored.non_resident = true;
    return ntfs_volume_builder()
        .cluster_size(1024)
        .directory({.entry = bin_entry, .name = "$Recycle.Bin"})
        .directory({.entry = user_entry,
                    .parent = bin_entry,
                    .name = "S-1-5-21-7",
                    .index_blocks = true})
        .file(bin_metadata(66, "$ILOST12", u"C:\\lost"))
        .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
        .file(data)
        .file(metadata_in_clusters)
        .file(bin_metadata(70, "$IMOVED1", u"C:\\moved"))
        .move({.entry = 70, .record = 80, .type = ntfs_type::file_name})
        .stale_entry({.directory = user_entry, .entry = 90, .name = "$RGONE12.txt"})
        .mft({.fragments = 4})
        .build();
}

byte_vector old_bin()
{
    const byte_vector list =
        info2_file({{.ansi_path = "C:\\one.txt", .path = u"C:\\one.txt", .number = 1},
                    {.ansi_path = "C:\\two.doc", .path = u"C:\\two.doc", .number = 2},
                    {.ansi_path = "C:\\three", .path = u"C:\\three", .number = 7}});
    return empty_bin("RECYCLER")
        .cluster_size(1024)
        .file(bin_item(66, "INFO2", text(list)))
        .file(bin_item(67, "Dc1.txt", "1"))
        .file(bin_item(68, "Dc2.doc", std::string(3000, '2')))
        .directory(bin_item(69, "Dc7"))
        .file(bin_item(70, "in it.txt", "3", 69))
        .build();
}

// Free clusters with records of another volume, bare metadata and a list.
byte_vector forgotten()
{
    byte_vector image = forgotten_bin::build().image;
    put_bytes(image, u64{744} * forgotten_bin::cluster_size,
              metadata(u"C:\\bare metadata"));
    put_bytes(image, u64{748} * forgotten_bin::cluster_size + 512,
              info2_file({{.ansi_path = "C:\\in a list", .path = u"C:\\in a list"},
                          {.ansi_path = "C:\\second", .path = u"C:\\second"}}));
    return image;
}

// Nothing of a file system, but metadata all the same.
byte_vector bare()
{
    byte_vector image(64 << 10);
    const ntfs_volume gone =
        empty_bin().file(bin_metadata(80, "$IGONE12", u"C:\\gone")).build_volume();
    put_bytes(image, 4096, gone.record(80));
    put_bytes(image, 8192, metadata(u"D:\\bare"));
    put_bytes(image, 12800, info2_file({{.path = u"C:\\listed"}}));
    byte_vector lines;
    for (const char16_t *name : {u"$RAB12CD.txt", u"$IAB12CD.txt", u"$RXY98ZW"})
        append(lines, journal_line_bytes({.usn = lines.size(), .name = name}));
    put_bytes(image, 16384, lines);
    return image;
}

u64 stored_bytes(std::span<const u8> bytes)
{
    u64 stored = 0;
    for (u64 at = 0; at < bytes.size(); at += sector) {
        const auto part = bytes.subspan(at, std::min<u64>(sector, bytes.size() - at));
        const bool is_zero =
            std::all_of(part.begin(), part.end(), [](u8 byte) { return byte == 0; });
        if (!is_zero) stored += part.size();
    }
    return stored;
}

} // namespace

std::vector<sweep_medium> sample_media()
{
    std::vector<sweep_medium> media;
    const auto add = [&](const char *name, byte_vector bytes) {
        media.push_back({.name = name, .bytes = std::move(bytes), .before = {}});
    };
    add("smallest", smallest());
    media.back().takes_bits = true;
    add("recent", recent_bin().cluster_size(1024).build());
    add("scattered", scattered());
    add("old", old_bin());
    add("forgotten", forgotten());
    add("bare", bare());
    return media;
}

sweep_medium medium_of_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) throw std::runtime_error(path + " can't be opened");
    const u64 size = std::min(static_cast<u64>(file.tellg()), max_medium);
    sweep_medium medium{.name = path, .bytes = std::vector<u8>(size), .before = {}};
    file.seekg(0);
    // Files are read as characters.
    void *const begin = medium.bytes.data();
    if (!file.read(static_cast<char *>(begin), static_cast<std::streamsize>(size)))
        throw std::runtime_error(path + " can't be read");
    return medium;
}

void learn(sweep_medium &medium)
{
    medium.before = make_baseline(medium.bytes);
    medium.stored = stored_bytes(medium.bytes);
}

} // namespace stress

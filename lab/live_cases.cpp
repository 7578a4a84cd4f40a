// Bins as they are while their volume is in use, in all the ways that Windows keeps
// them.

#include "lab/cases.h"
#include "lab/people.h"

#include <array>

namespace lab {

namespace {

// Both versions of `$I` files, of two users.
byte_vector versions(told_case &told, u64 size, u64 seed)
{
    return used_volume(told, size, seed).image();
}

// Four users: of the machine, of a cloud's directory, and the system itself.
byte_vector users(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    std::vector<u64> folders;
    for (const std::string &sid : {ann, ben, cloud, service})
        folders.push_back(volume.user(sid));
    send_many(volume, folders, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// Files right in the bin, as on media that know no users.
byte_vector no_user_folder(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    const u64 bin = volume.bin();
    send_many(volume, {bin}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// Names in scripts of all kinds, halves of surrogate pairs, line breaks and signs that
// mean something to a spreadsheet or a terminal, and names of one letter.
byte_vector names(told_case &told, u64 size, u64 seed)
{
    static constexpr std::u16string_view strange[] = {
        u"C:\\\u6587\u66f8\\\u5831\u544a",
        u"C:\\\u0416\u0443\u043a\\\u043f\u0438\u0441\u044c\u043c\u043e.txt",
        u"C:\\\u05e9\u05dc\u05d5\u05dd\\\u202etxt.exe",
        u"C:\\smile \xD83D\xDE00\\\xD867\xDCCA.jpg",
        u"C:\\half \xD83D",
        u"C:\\other half \xDE00.txt",
        u"C:\\line\r\nbreak.txt",
        u"C:\\=1+41,\"quoted\"|a;b.csv",
        u"C:\\\x1b[31mred",
        u"C:\\[LF]",
        u"C:\\e\u0301 and \u00e9"};
    story volume(told, roomy(size + std::size(strange)), seed);
    const std::vector<u64> folders = {volume.user(ann), volume.user(ben)};
    send_many(volume, folders, std::size(strange), [&](u64 number) {
        sent_item item = any_item(volume);
        item.path = strange[number];
        // Windows takes only the extension along into the bin.
        item.id = volume.new_id(u"C:\\a.bin");
        return item;
    });
    send_many(volume, folders, size, [&](u64 number) {
        return sent_item{.path = u"C:\\" + std::u16string(1, char16_t(u'!' + number)),
                         .size = number};
    });
    volume.settle();
    return volume.image();
}

// A path of so many units, with folders of a hundred letters.
std::u16string path_of(std::u16string path, std::size_t units)
{
    while (path.size() < units) {
        const bool folder = path.size() % 100 == 99 && path.size() + 1 < units;
        path += folder ? u'\\' : static_cast<char16_t>(u'a' + path.size() % 26);
    }
    return path;
}

// Paths at the limits of the formats, on servers, and on other drives.
byte_vector paths(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size + 8), seed);
    const std::vector<u64> folders = {volume.user(ann)};
    const std::array<sent_item, 7> limits = {{
        {.path = path_of(u"C:\\1\\", 258), .size = 1, .version = 1},
        {.path = path_of(u"C:\\2\\", 259), .size = 2, .version = 1},
        {.path = path_of(u"C:\\3\\", 259), .size = 3},
        {.path = path_of(u"C:\\4\\", 2000), .size = 4},
        {.path = path_of(u"C:\\5\\", 1023), .size = 5},
        {.path = u"\\\\server\\share\\folder\\plan.dwg", .size = 6},
        {.path = u"Z:\\x", .size = u64{5} << 30U, .without_data = true},
    }};
    send_many(volume, folders, limits.size(),
              [&](u64 number) { return limits[number]; });
    send_many(volume, folders, size, [&](u64 number) {
        const u64 units = volume.random().between(200, 1500);
        return sent_item{.path =
                             path_of(u"D:\\" + std::u16string(number + 1, u'_'), units),
                         .size = number};
    });
    volume.settle();
    return volume.image();
}

// `$I` files that lost bytes at their end, and pairs that lost one of the two.
byte_vector torn_pairs(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size + 1), seed);
    const u64 user = volume.user(ann);
    volume.send(user, {.size = 100, .version = 1, .metadata_size = 543});
    send_many(volume, {user}, size, [&](u64 number) {
        sent_item item = any_item(volume);
        item.without_data = number % 3 == 0;
        item.without_metadata = number % 3 == 1;
        return item;
    });
    for (told_deletion &deletion : told.deletions)
        if (deletion.data_name.empty()) deletion.fate = "metadata only";
    volume.settle();
    return volume.image();
}

// Times at the edges of what a time can be.
byte_vector times(told_case &told, u64 size, u64 seed)
{
    static constexpr u64 edges[] = {1, 0x7FFFFFFFFFFFFFFF, 94354848000000000, // 1900
                                    94670856000000000,                        // 1901
                                    157468512000000000};                      // 2100
    story volume(told, roomy(size + 5), seed);
    const u64 user = volume.user(ann);
    for (const u64 edge : edges) volume.send(user, {.size = 10, .deleted = edge});
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// The lists of older systems.

sent_item list_item(story &volume)
{
    return {.size = 4096 * volume.random().between(1, 6)};
}

void send_to_lists(story &volume, const std::vector<u64> &folders, u64 count)
{
    for (u64 i = 0; i < count; ++i) {
        const u64 folder = folders[volume.random().below(folders.size())];
        volume.send_to_list(folder, list_item(volume));
    }
}

byte_vector lists(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    send_to_lists(volume, {volume.user(ann, "RECYCLER"), volume.user(ben, "RECYCLER")},
                  size);
    volume.settle();
    return volume.image();
}

// Drives A, Z and 26, which is a server's share; paths that 8 bits can't hold.
byte_vector list_drives(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size + 4), seed);
    const u64 user = volume.user(ann, "RECYCLER");
    volume.send_to_list(user, {.path = u"A:\\disk.txt", .size = 512}, 0);
    volume.send_to_list(user, {.path = u"Z:\\last.txt", .size = 4096}, 25);
    volume.send_to_list(user, {.path = u"\\\\server\\share\\a.txt", .size = 4096}, 26);
    volume.send_to_list(user, {.path = u"C:\\\u6587\u66f8\\\u0416.txt", .size = 8192});
    send_to_lists(volume, {user}, size);
    volume.settle();
    return volume.image();
}

// Records of 280 bytes (Windows 98), and files named INFO (Windows 95, NT 4).
byte_vector old_lists(told_case &told, u64 size, u64 seed)
{
    static const list_form forms[] = {
        {"INFO2", 4, 280}, {"INFO", 0, 280}, {"INFO", 2, 800}};
    story volume(told, roomy(3 * size), seed);
    std::vector<u64> folders = {volume.bin("RECYCLED"), volume.bin("RECYCLER"),
                                volume.user(ann, "RECYCLER")};
    for (std::size_t i = 0; i < folders.size(); ++i)
        volume.set_list(folders[i], forms[i]);
    send_to_lists(volume, folders, 3 * size);
    volume.settle();
    return volume.image();
}

// A volume that two Windows used, one after the other.
byte_vector both_bins(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    send_to_lists(volume, {volume.user(ann, "RECYCLER")}, size);
    send_many(volume, {volume.user(ann)}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// Folders: many files in one, and a few at the end of a hundred folders.
byte_vector folders(told_case &told, u64 size, u64 seed)
{
    volume_form form = roomy(size);
    form.records += 60 * size + 500;
    form.clusters += 20 * size + 300;
    story volume(told, form, seed);
    const u64 user = volume.user(ann);
    std::vector<std::string> wide;
    for (u64 i = 0; i < 50 * size; ++i) wide.push_back("file " + std::to_string(i));
    std::string deep;
    for (int i = 0; i < 100; ++i) deep += std::to_string(i) + '\\';
    volume.send(user, {.path = u"C:\\wide", .size = 50 * size * 200, .members = wide});
    volume.send(user, {.path = u"C:\\deep.d",
                       .size = 600,
                       .members = {deep + "a", deep + "b", "0\\1\\c.txt"}});
    volume.send(user, {.path = u"C:\\empty", .directory = true});
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// Data items and `$I` files that the file system keeps in less usual ways.
byte_vector shapes(told_case &told, u64 size, u64 seed)
{
    const std::array<file_shape, 9> ways = {{
        {.fragments = 4},
        {.compressed = true},
        {.hole_clusters = 40},
        {.zone = true},
        {.hard_link = true},
        {.moved = extension::name},
        {.fragments = 3, .moved = extension::data},
        {.moved = extension::name, .list_in_clusters = true},
        {.zone = true, .hard_link = true, .moved = extension::data},
    }};
    const std::array<file_shape, 4> of_metadata = {{
        {},
        {.moved = extension::name},
        {.moved = extension::data},
        {.moved = extension::data, .list_in_clusters = true},
    }};
    volume_form form = roomy(2 * size + 20);
    form.clusters += 100 * size;
    story volume(told, form, seed);
    send_many(volume, {volume.user(ann)}, std::max<u64>(size, 18), [&](u64 number) {
        sent_item item = {.size = volume.random().between(9000, 60000)};
        item.shape = ways[number % ways.size()];
        item.metadata_shape = of_metadata[number / 3 % of_metadata.size()];
        item.sequence = static_cast<u16>(volume.random().between(1, 40));
        return item;
    });
    volume.settle();
    return volume.image();
}

// `$I` files outside of their records: compressed, or in several stretches of clusters.
byte_vector metadata_shapes(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size, {.cluster_size = 512}), seed);
    send_many(volume, {volume.user(ann)}, size, [&](u64 number) {
        std::u16string path = u"C:\\long\\" + std::u16string(number + 1, u'n');
        path += std::u16string(volume.random().between(600, 1900), u'x');
        sent_item item = {.path = path, .size = number};
        if (number % 3 == 0) item.metadata_shape.fragments = 3;
        if (number % 3 == 1) item.metadata_shape.compressed = true;
        return item;
    });
    volume.settle();
    return volume.image();
}

// How a volume can be formatted.
template <u32 cluster, u32 record = 1024, u32 sector = 512, u32 array = 48>
byte_vector formatted(told_case &told, u64 size, u64 seed)
{
    return used_volume(told, size, seed,
                       {.cluster_size = cluster,
                        .record_size = record,
                        .sector_size = sector,
                        .update_array = array})
        .image();
}

} // namespace

void add_live_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("live/") + name, kind);
    };
    add("versions", versions);
    add("users", users);
    add("no-user-folder", no_user_folder);
    add("names", names);
    add("paths", paths);
    add("torn-pairs", torn_pairs);
    add("times", times);
    add("info2", lists);
    add("info2-drives", list_drives);
    add("info2-280", old_lists);
    add("both-bins", both_bins);
    add("folders", folders);
    add("shapes", shapes);
    add("metadata-shapes", metadata_shapes);
    add("clusters-512", formatted<512>);
    add("clusters-64k", formatted<65536>);
    add_cases(all, "live/clusters-2m", formatted<2U << 20U>, {3}, {1, 2});
    add("records-4096", formatted<4096, 4096>);
    add("sectors-4096", formatted<4096, 4096, 4096>);
    add("updates-at-42", formatted<4096, 1024, 512, 42>);
}

} // namespace lab

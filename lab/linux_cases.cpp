// Volumes that nobody of us wrote a byte of: mkntfs and the Linux driver's library make
// them. What the driver ntfs3 of newer kernels writes is missing here: it can't be
// called without a mount, so it needs root and a kernel that has it.

#include "lab/cases.h"
#include "lab/linux_story.h"

namespace lab {

namespace {

// 2021-01-01, and 2006-01-01 for bins of Windows XP
constexpr u64 recent = 132539328000000000, years_ago = 127806336000000000;

linux_story::volume_form roomy(u64 size, u64 seed, u32 cluster_size = 4096)
{
    const u64 mebibytes = size < 100 ? 16 : 32;
    return {.size = mebibytes << 20,
            .cluster_size = cluster_size,
            .short_names = seed % 2 == 0};
}

// A volume of two users whose bins have `$I` files of version 2.
struct recent_volume : linux_story {
    recent_volume(told_case &told, const volume_form &form, u64 seed)
        : linux_story(told, form, seed, recent + seed * 86400 * 10'000'000),
          ann(add_user(u"ann", bin_format::second)),
          ben(add_user(u"ben", bin_format::second))
    {
    }
    user any() { return random().one_in(3) ? ben : ann; }
    void send_some(u64 size)
    {
        for (u64 i = 0; i < size; ++i) send_new(any());
    }

    // Every n-th deletion of all so far goes.
    void purge_each(u64 n)
    {
        const std::size_t count = sent_count();
        for (std::size_t i = n - 1; i < count; i += n) purge(i);
    }

    user ann, ben;
};

// Bins of a machine that was upgraded: `$I` files of both versions.
byte_vector versions(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    const linux_story::user old = volume.add_user(u"Zoé", bin_format::first);
    for (u64 i = 0; i < size; ++i) volume.send_new(i % 3 == 0 ? old : volume.any());
    return volume.medium();
}

// Bins of Windows XP. Some of what their lists tell of was restored or purged.
byte_vector lists(told_case &told, u64 size, u64 seed)
{
    linux_story volume(told, roomy(size, seed), seed, years_ago);
    const linux_story::user users[] = {volume.add_user(u"ann", bin_format::list),
                                       volume.add_user(u"Борис", bin_format::list)};
    for (u64 i = 0; i < size; ++i) {
        const linux_story::deletion sent = volume.send_new(volume.random().pick(users));
        if (i % 10 == 6) volume.restore(sent);
        if (i % 10 == 9) volume.purge(sent);
    }
    return volume.medium();
}

// A list that was emptied and begun anew.
byte_vector emptied_lists(told_case &told, u64 size, u64 seed)
{
    linux_story volume(told, roomy(size, seed), seed, years_ago);
    const linux_story::user ann = volume.add_user(u"ann", bin_format::list);
    for (u64 i = 0; i < size; ++i) volume.send_new(ann);
    volume.empty_bin(ann);
    for (u64 i = 0; i < size / 3; ++i) volume.send_new(ann);
    return volume.medium();
}

// Clusters of other sizes, and some deletions purged one at a time.
template <u32 CLUSTER_SIZE> byte_vector clusters(told_case &told, u64 size, u64 seed)
{
    linux_story::volume_form form = roomy(size, seed, CLUSTER_SIZE);
    if (CLUSTER_SIZE > 4096) form.size *= 2;
    recent_volume volume(told, form, seed);
    volume.send_some(size);
    volume.purge_each(5);
    volume.send_some(size / 10);
    return volume.medium();
}

// Folders with all that is in them: one large and deep, others small. Of 40, the large
// one is purged as well.
byte_vector folders(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    for (u64 i = 0; i < size; ++i) {
        const bool large = i == size / 2;
        if (i % 3 == 1 && !large) {
            volume.send_new(volume.any());
            continue;
        }
        const linux_story::user user = volume.any();
        const std::u16string path = volume.new_path(user);
        const u64 files =
            large ? std::min<u64>(2000, 60 * size) : volume.random().between(0, 12);
        const u64 depth = large ? 30 : volume.random().below(4);
        volume.send(user, volume.new_folder(path, files, depth));
    }
    volume.purge_each(7);
    return volume.medium();
}

// One user empties the bin; new files and new deletions take some of what it left.
byte_vector emptied(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    volume.send_some(size);
    volume.empty_bin(volume.ann);
    for (u64 i = 0; i < size / 4; ++i) volume.new_document(volume.ben);
    for (u64 i = 0; i < size / 4; ++i) volume.send_new(volume.ann);
    return volume.medium();
}

// Every second deletion is taken back; some of these files are deleted again.
byte_vector restored(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    volume.send_some(size);
    for (u64 i = 0; i < size; i += 2) volume.restore(i);
    for (u64 i = 0; i < size; i += 8) volume.send(volume.ben, volume.data_of(i));
    return volume.medium();
}

// Names in many scripts, names that aren't proper UTF-16, and paths whose `$I` files
// don't fit into an MFT record.
byte_vector names(told_case &told, u64 size, u64 seed)
{
    static constexpr const char16_t *texts[] = {
        u"отчёт за год", u"年度報告書",   u"خطة العمل",
        u"תוכנית",       u"日本語の手紙", u"🗑️ trash 🎂",
        u"naïve Übung",  u"ไฟล์ของฉัน",     u"e\u0301te\u0301",
        u"½ ℃ ﬁ"};
    recent_volume volume(told, roomy(size, seed), seed);
    const std::u16string user_names[] = {u"ann", u"ben"};
    for (u64 i = 0; i < size; ++i) {
        const linux_story::user user = volume.any();
        std::u16string path = u"C:\\Users\\" + user_names[user] + u"\\Рабочий стол\\";
        const u64 long_folders = i % 4 == 3 ? volume.random().between(2, 6) : 0;
        for (u64 k = 0; k < long_folders; ++k)
            path += std::u16string(90 + k, u"長い"[k % 2]) + u"\\";
        path += volume.random().pick(texts);
        if (i % 6 == 2) path += i % 4 == 0 ? u'\xd83d' : u'\xdc01';
        for (const char digit : std::to_string(i))
            path += static_cast<char16_t>(u'٠' + (digit - '0'));
        if (i % 3 != 0) path += u".txt";
        volume.send(user, volume.new_file(path, volume.new_size()));
    }
    return volume.medium();
}

// Files from the internet, and files with large streams beside their content.
byte_vector streams(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    for (u64 i = 0; i < size; ++i) {
        const linux_story::user user = volume.any();
        const linux_story::item file = volume.new_document(user);
        volume.volume().write(file.number, 0,
                              test_support::bytes_of("[ZoneTransfer]\r\nZoneId=3\r\n"),
                              u"Zone.Identifier");
        if (i % 3 == 1)
            volume.volume().write(file.number, 0, byte_vector(9000, 'p'), u"preview");
        volume.send(user, file);
    }
    volume.purge_each(7);
    return volume.medium();
}

// Compressed and sparse data.
byte_vector packed(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed, seed % 2 == 0 ? 1024 : 4096), seed);
    for (u64 i = 0; i < size; ++i) {
        const linux_story::user user = volume.any();
        const std::u16string name = as_units(std::to_string(i));
        const u64 file_size = volume.random().between(5000, 100000);
        const linux_story::item file =
            i % 2 == 0 ? volume.new_compressed(u"C:\\packed\\log " + name, file_size)
                       : volume.new_sparse(u"C:\\disks\\disk " + name + u".img",
                                           file_size, file_size * 30);
        volume.send(user, file);
    }
    return volume.medium();
}

// Fragments, hard links, and so many of them that attributes leave their record.
byte_vector shapes(told_case &told, u64 size, u64 seed)
{
    // The library adds no short name to a file with several names.
    recent_volume volume(told, roomy(size, 1, 1024), seed);
    for (u64 i = 0; i < size; i += 2) {
        const linux_story::user user = volume.any();
        const u64 clusters = i % 60 == 0 ? 600 : volume.random().between(3, 40);
        for (const linux_story::item &file :
             volume.new_fragmented(user, 2, clusters * 1024)) {
            const u64 links = volume.random().below(12);
            for (u64 k = 0; k < links; ++k) {
                // Each path is a new one, so the name is as well.
                const std::u16string path = volume.new_path(user);
                const std::size_t slash = path.rfind(u'\\');
                volume.volume().add_link(
                    file.number,
                    {volume.folder(path.substr(0, slash)), path.substr(slash + 1)});
            }
            volume.send(user, file);
        }
    }
    return volume.medium();
}

// Files out of a folder of thousands into a bin of hundreds, half of it purged.
byte_vector crowded(told_case &told, u64 size, u64 seed)
{
    recent_volume volume(told, roomy(size, seed), seed);
    std::vector<linux_story::item> files;
    for (u64 i = 0; i < 10 * size; ++i)
        files.push_back(volume.new_file(
            u"C:\\archive\\number " + as_units(std::to_string(i)) + u".eml", i % 400));
    for (u64 i = 0; i < size; ++i)
        volume.send(volume.ann, files[10 * i + volume.random().below(10)]);
    volume.purge_each(2);
    return volume.medium();
}

// A small volume that was full once since the bin was emptied.
byte_vector filled(told_case &told, u64 size, u64 seed)
{
    linux_story::volume_form form = roomy(size, seed);
    form.size = (size < 100 ? u64{8} : u64{16}) << 20;
    recent_volume volume(told, form, seed);
    volume.send_some(size);
    volume.empty_bin(volume.ann);
    volume.fill_and_clear();
    volume.send_some(size / 4);
    return volume.medium();
}

} // namespace

void add_linux_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("linux/") + name, kind);
        add_cases(all, std::string("linux/") + name, kind, {300}, {1});
        all.back().is_first = false;
    };
    add("versions", versions);
    add("lists", lists);
    add("emptied-lists", emptied_lists);
    add("clusters-512", clusters<512>);
    add("clusters-4096", clusters<4096>);
    add("clusters-65536", clusters<65536>);
    add("folders", folders);
    add("emptied", emptied);
    add("restored", restored);
    add("names", names);
    add("streams", streams);
    add("packed", packed);
    add("shapes", shapes);
    add("crowded", crowded);
    add("filled", filled);
}

} // namespace lab

// What no file and no folder leads to any more: records and contents in free clusters,
// in slack, at any sector, and on volumes that were formatted anew.

#include "lab/cases.h"
#include "lab/people.h"

#include <algorithm>

namespace lab {

namespace {

// Puts bytes into the volume as it was last settled.
void plant(story &volume, u64 at, const byte_vector &bytes)
{
    test_support::put_bytes(volume.image(), at, bytes);
}

// A volume formatted anew. Its $MFT is shorter than the one of before.
byte_vector formatted_anew(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed, {.mft_cluster = 100});
    volume_form form = volume.form();
    form.records = 48;
    volume.format(form);
    volume.tell("the volume is formatted again");
    volume.file(5, "first.txt", 5000);
    volume.settle();
    return volume.image();
}

// The same with other clusters, and with a bin that is used again.
byte_vector formatted_otherwise(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    volume_form form = volume.form();
    form.clusters *= form.cluster_size / 1024;
    form.cluster_size = 1024;
    form.records = 128 + 8 * size / 2;
    volume.format(form);
    volume.tell("the volume is formatted again");
    send_many(volume, {volume.user(cloud)}, size / 3,
              [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// Records of a volume that is no more, at any sector of free clusters: a partition
// began elsewhere, or a file held a copy of an $MFT.
byte_vector records_anywhere(told_case &told, u64 size, u64 seed)
{
    story gone(told, roomy(size + 8), seed);
    for (int i = 0; i < 40; ++i) gone.file(5, "file " + std::to_string(i), 100);
    send_many(gone, {gone.user(cid), gone.user(dora)}, size,
              [&](u64) { return any_item(gone); });
    gone.settle();
    story volume = used_volume(told, 3, seed + 100);
    const u64 bytes = size * 3 * 4096 + 65536;
    const extent room = volume.unused_clusters(bytes / volume.form().cluster_size);
    u64 at = volume.position(room.lcn);
    const auto move = [&](u64 entry) {
        plant(volume, at, gone.layout().record(entry));
        at += 1024 + 512 * volume.random().below(4);
    };
    for (std::size_t i = 0; i < size; ++i) {
        move(gone.deletion(i).metadata_entry->entry);
        if (i % 2 == 0) move(gone.deletion(i).data_entry->entry);
        gone.deletion(i).fate = "formatted over";
    }
    // The first volume isn't on the medium: what was on it happened here.
    told.volumes.erase(told.volumes.begin());
    for (told_deletion &deletion : told.deletions) deletion.volume = 0;
    for (told_user &user : told.users) user.volume = 0;
    return volume.image();
}

// `$I` files in clusters of their own, purged, their records used again: contents that
// begin a free cluster, without a record.
byte_vector bare_contents(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64 number) {
        std::u16string path = u"C:\\Users\\ann\\" + std::u16string(number + 1, u'n');
        path += std::u16string(volume.random().between(500, 1700), u'x') + u".txt";
        return sent_item{.path = path, .size = number};
    });
    volume.settle();
    volume.empty_bin(user);
    volume.settle();
    for (std::size_t i = 0; i < size; ++i)
        volume.reuse_record(volume.deletion(i).metadata_entry->entry,
                            "new " + std::to_string(i));
    volume.settle();
    return volume.image();
}

// Bare contents of both versions at any sector: in free clusters, and in the slack of
// files whose clusters are larger than a page.
byte_vector contents_anywhere(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, 3, seed, {.cluster_size = 16384});
    const extent room = volume.unused_clusters(1 + size / 4);
    u64 free_at = volume.position(room.lcn);
    for (u64 i = 0; i < size; ++i) {
        const std::u16string path = volume.new_path();
        told_deletion gone;
        gone.path = path;
        gone.size = volume.random().below(1U << 30U);
        gone.deleted = volume.later();
        gone.fate = "emptied";
        const u64 version = 1 + i % 2;
        gone.format = version == 1 ? "$I v1" : "$I v2";
        const byte_vector content = test_support::dollar_i_builder()
                                        .version(version)
                                        .size(gone.size)
                                        .time(gone.deleted)
                                        .path(path)
                                        .bytes();
        gone.traces.push_back({"metadata", "", {content}});
        volume.tell("an older volume knew a deletion of " + utf8(path));
        told.deletions.push_back(std::move(gone));
        plant(volume, free_at, content);
        free_at += 1024 + 512 * volume.random().below(4);
    }
    return volume.image();
}

// A cluster of 16 KiB keeps its end when a shorter file takes it.
byte_vector file_slack(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(3 * size, {.cluster_size = 16384}), seed);
    const u64 user = volume.user(ann, "RECYCLER");
    for (u64 i = 0; i < 2 * size; ++i) volume.send_to_list(user, {.size = 4096});
    volume.settle();
    std::vector<extent> runs = volume.layout().stream_runs(volume.list_of(user));
    volume.empty_bin(user);
    volume.remove(volume.list_of(user));
    volume.settle();
    volume.reuse_record(volume.list_of(user), "new");
    for (const extent &run : runs) {
        for (u64 i = 0; i < run.clusters; ++i) {
            const u64 entry = volume.file_over("short " + std::to_string(run.lcn + i),
                                               {{run.lcn + i, 1}});
            volume.item(entry).data.resize(2000);
        }
    }
    volume.settle();
    return volume.image();
}

// Lists over several clusters, in one stretch or in many, whose record is used again.
byte_vector lists_gone(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 user = volume.user(ann, "RECYCLER");
    volume.set_list(user, {.fragments = 1 + seed % 2});
    for (u64 i = 0; i < size; ++i) volume.send_to_list(user, {.size = 4096});
    volume.settle();
    volume.empty_bin(user);
    volume.remove(volume.list_of(user));
    volume.settle();
    volume.reuse_record(volume.list_of(user), "new");
    volume.settle();
    return volume.image();
}

// Records whose slack holds the end of an older `$I` record; its whole content, where
// the old file's name was longer.
byte_vector record_slack(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size, {.record_size = 4096}), seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64 number) {
        const std::u16string ending =
            number % 2 == 0 ? u"" : u'.' + std::u16string(60, u'e');
        return sent_item{.path = u"C:\\" + std::u16string(number + 1, u'n') +
                                 std::u16string(600, u'x') + ending,
                         .size = 10};
    });
    volume.settle();
    volume.empty_bin(user);
    volume.settle();
    for (std::size_t i = 0; i < size; ++i)
        volume.reuse_record(volume.deletion(i).metadata_entry->entry, std::to_string(i),
                            10);
    volume.settle();
    return volume.image();
}

} // namespace

void add_forgotten_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("forgotten/") + name, kind, {6, 60});
    };
    add("formatted-anew", formatted_anew);
    add("formatted-otherwise", formatted_otherwise);
    add("records-anywhere", records_anywhere);
    add("bare-contents", bare_contents);
    add("contents-anywhere", contents_anywhere);
    add("file-slack", file_slack);
    add("info2-gone", lists_gone);
    add("record-slack", record_slack);
}

} // namespace lab

// What is left of items that are no longer in a bin: deleted from it, or put back.

#include "lab/cases.h"
#include "lab/people.h"

namespace lab {

namespace {

// A share of all deletions, in their order.
std::vector<std::size_t> some(story &volume, std::size_t count, u64 one_in)
{
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < count; ++i)
        if (volume.random().one_in(one_in)) chosen.push_back(i);
    return chosen;
}

void reuse_metadata(story &volume, std::size_t number)
{
    const u64 entry = volume.deletion(number).metadata_entry->entry;
    volume.reuse_record(entry, "new " + std::to_string(entry) + ".txt");
}

void reuse_data(story &volume, std::size_t number)
{
    const u64 entry = volume.deletion(number).data_entry->entry;
    volume.reuse_record(entry, "new " + std::to_string(entry) + ".txt");
}

// Half of the items are purged. Their records and clusters are free, and whole.
byte_vector purged(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    for (const std::size_t number : some(volume, size, 2)) volume.purge(number);
    volume.settle();
    return volume.image();
}

// The whole bin is emptied, and new files get some of the records: those of the `$I`
// file, of the data item, or of both.
byte_vector records_reused(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    for (std::size_t i = 0; i < size; ++i) volume.purge(i);
    volume.settle();
    for (std::size_t i = 0; i < size; ++i) {
        if (i % 4 == 1 || i % 4 == 3) reuse_metadata(volume, i);
        if (i % 4 == 2 || i % 4 == 3) reuse_data(volume, i);
    }
    volume.settle();
    return volume.image();
}

// An item's records are used again for items of the bin: the same entries, with other
// sequence numbers.
byte_vector records_recycled(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    for (std::size_t i = 0; i < size; ++i) volume.purge(i);
    volume.settle();
    volume.use_freed_records();
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume.image();
}

// New files take the clusters of the data, all or the first half of them.
byte_vector data_overwritten(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64) {
        return sent_item{.size = volume.random().between(9000, 30000)};
    });
    volume.settle();
    for (std::size_t i = 0; i < size; ++i) volume.purge(i);
    volume.settle();
    for (std::size_t i = 0; i < size; ++i) {
        std::vector<extent> runs = volume.data_runs(i);
        runs[0].clusters /= 1 + i % 2;
        if (i % 3 != 0) volume.file_over("over " + std::to_string(i), runs);
    }
    volume.settle();
    return volume.image();
}

// Items are put back, and some of the freed `$I` records used again.
byte_vector restored(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    const std::vector<std::size_t> chosen = some(volume, size, 2);
    for (const std::size_t number : chosen) volume.restore(number);
    volume.settle();
    for (const std::size_t number : chosen)
        if (number % 2 == 0) reuse_metadata(volume, number);
    volume.settle();
    return volume.image();
}

// The user's folder is gone ahead of the files; its record is another folder now.
byte_vector user_gone(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    const u64 gone = volume.user(ann), stays = volume.user(ben);
    send_many(volume, {gone, stays}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    volume.empty_bin(gone);
    volume.remove(gone);
    volume.settle();
    if (seed % 2 == 0) {
        volume.reuse_record(gone, "System");
        volume.settle();
    }
    return volume.image();
}

// Deleted folders, purged with all that was in them; records of the folders reused.
byte_vector folders_gone(told_case &told, u64 size, u64 seed)
{
    volume_form form = roomy(size);
    form.records += 12 * size;
    story volume(told, form, seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64) {
        std::vector<std::string> members;
        for (u64 i = volume.random().between(1, 8); i > 0; --i)
            members.push_back("sub\\below\\" + std::to_string(i) + ".txt");
        return sent_item{.size = 1000, .members = members};
    });
    volume.settle();
    for (std::size_t i = 0; i < size; ++i) volume.purge(i);
    volume.settle();
    for (std::size_t i = 0; i < size; i += 2) reuse_data(volume, i);
    volume.settle();
    return volume.image();
}

// Lists: single items purged or put back, which marks their records.
byte_vector list_marked(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    const u64 user = volume.user(ann, "RECYCLER");
    for (u64 i = 0; i < size; ++i)
        volume.send_to_list(user, {.size = 4096 * volume.random().between(1, 6)});
    volume.settle();
    for (const std::size_t number : some(volume, size, 3)) volume.purge(number);
    volume.settle();
    return volume.image();
}

// Lists that are cut to their header when the bin is emptied, and filled again.
byte_vector list_emptied(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 user = volume.user(ann, "RECYCLER");
    const auto send = [&](u64 count) {
        for (u64 i = 0; i < count; ++i) volume.send_to_list(user, {.size = 4096});
        volume.settle();
    };
    send(size);
    volume.empty_bin(user);
    volume.settle();
    send(size / 3);
    return volume.image();
}

} // namespace

void add_emptied_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("emptied/") + name, kind, {6, 60});
    };
    add("purged", purged);
    add("records-reused", records_reused);
    add("records-recycled", records_recycled);
    add("data-overwritten", data_overwritten);
    add("restored", restored);
    add("user-gone", user_gone);
    add("folders-gone", folders_gone);
    add("info2-marked", list_marked);
    add("info2-emptied", list_emptied);
}

} // namespace lab

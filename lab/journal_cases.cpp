// What the change journal remembers when the records and the names are gone.

#include "lab/cases.h"
#include "lab/people.h"

namespace lab {

namespace {

// Items are sent to the bin and purged, some are put back; the records of all that were
// purged belong to new files, and so do the places of their names.
template <u16 version> byte_vector remembered(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    volume.start_journal(version);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    for (std::size_t i = 0; i < size; ++i)
        if (i % 5 == 4)
            volume.restore(i);
        else
            volume.purge(i);
    volume.settle();
    volume.use_freed_records();
    for (std::size_t i = 0; i < 3 * size; ++i)
        volume.file(user, "$" + std::to_string(i) + ".new name", 100);
    volume.settle();
    return volume.image();
}

// The journal itself is deleted: its lines are in free clusters.
byte_vector journal_gone(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(2 * size), seed);
    const u64 journal = volume.start_journal();
    const u64 user = volume.user(ann);
    send_many(volume, {user}, size, [&](u64) { return any_item(volume); });
    volume.settle();
    volume.empty_bin(user);
    volume.settle();
    volume.use_freed_records();
    for (std::size_t i = 0; i < 3 * size; ++i)
        volume.file(user, "$" + std::to_string(i) + ".new name", 100);
    volume.remove(journal);
    volume.tell("the change journal is deleted");
    volume.settle();
    return volume.image();
}

} // namespace

void add_journal_cases(case_makers &all)
{
    add_cases(all, "journal/version-2", remembered<2>, {6, 60});
    add_cases(all, "journal/version-3", remembered<3>, {6, 60});
    add_cases(all, "journal/deleted", journal_gone, {6, 60});
}

} // namespace lab

// Bins as they are while their volume is in use, in all the ways that Windows keeps
// them.

#include "lab/cases.h"
#include "lab/story.h"

namespace lab {

namespace {

const char *const ann = "S-1-5-21-2025429265-492894223-1708537768-1001";
const char *const ben = "S-1-5-21-2025429265-492894223-1708537768-1002";

volume_form roomy(u64 size, volume_form form = {})
{
    form.records = 128 + 8 * size;
    form.clusters = 1024 + 16 * size + (1U << 20U) / form.cluster_size;
    return form;
}

// Both versions of `$I` files, of two users.
byte_vector versions(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size), seed);
    const u64 users[] = {volume.user(ann), volume.user(ben)};
    for (u64 i = 0; i < size; ++i) {
        const u64 user = volume.random().pick(users);
        const u64 version = volume.random().between(1, 2);
        volume.send(user, {.size = volume.random().below(20000), .version = version});
    }
    volume.settle();
    return volume.image();
}

} // namespace

void add_live_cases(case_makers &all)
{
    add_cases(all, "live/versions", versions);
}

} // namespace lab

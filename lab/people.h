#pragma once

#include "lab/story.h"

#include <functional>

/// What the cases of all families have in common: users, and volumes of the right size.
namespace lab {

inline const std::string ann = "S-1-5-21-2025429265-492894223-1708537768-1001";
inline const std::string ben = "S-1-5-21-2025429265-492894223-1708537768-1002";
inline const std::string service = "S-1-5-18";
/// An account that a cloud's directory keeps.
inline const std::string cloud = "S-1-12-1-1043286543-1195842391-2917392276-3180247611";

/// Users of a machine that had the medium before.
inline const std::string cid = "S-1-5-21-1004336348-1177238915-682003330-1003";
inline const std::string dora = "S-1-5-21-1004336348-1177238915-682003330-1004";

/// A volume with room for `size` deletions of some KiB each.
inline volume_form roomy(u64 size, volume_form form = {})
{
    form.records = 128 + 8 * size;
    const u64 bytes = (4U << 20U) + size * 48 * 1024;
    const u64 spare = form.cluster_size > 65536 ? 64 : 192;
    form.clusters = spare + bytes / form.cluster_size + 6 * size;
    return form;
}

/// Sends `count` items, each to the bin of one of the users.
inline void send_many(story &volume, const std::vector<u64> &users, u64 count,
                      const std::function<sent_item(u64 number)> &what)
{
    for (u64 i = 0; i < count; ++i) {
        // Before the user is drawn, so that all compilers make the same media.
        const sent_item item = what(i);
        volume.send(users[volume.random().below(users.size())], item);
    }
}

/// A file of up to some KiB, with a `$I` file of either version.
inline sent_item any_item(story &volume)
{
    const u64 version = volume.random().between(1, 2);
    return {.size = volume.random().below(20000), .version = version};
}

/// A volume on which users have deleted `size` items.
inline story used_volume(told_case &told, u64 size, u64 seed, volume_form form = {},
                         const std::vector<std::string> &sids = {ann, ben})
{
    form = roomy(size, form);
    story volume(told, form, seed);
    std::vector<u64> users;
    users.reserve(sids.size());
    for (const std::string &sid : sids) users.push_back(volume.user(sid));
    send_many(volume, users, size, [&](u64) { return any_item(volume); });
    volume.settle();
    return volume;
}

} // namespace lab

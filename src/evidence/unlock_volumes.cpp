#include "evidence/unlock_volumes.h"

#include "evidence/partition_slots.h"
#include "evidence/volume_content.h"
#include "media/stitched_source.h"

#include <algorithm>

namespace hv {

namespace {

// Where BitLocker volumes are, by offset; none overlaps the one before it.
std::vector<partition_slot> find_locked(const byte_source &medium)
{
    std::vector<partition_slot> slots = read_partition_slots(medium);
    if (slots.empty())
        slots.push_back({.offset = 0, .size = medium.size(), .name = {}});
    std::ranges::sort(slots, {}, &partition_slot::offset);
    std::vector<partition_slot> locked;
    u64 end = 0;
    for (const partition_slot &slot : slots) {
        if (slot.offset < end ||
            read_volume_content(medium, slot.offset) != volume_content::bitlocker)
            continue;
        locked.push_back(slot);
        end = slot.offset + slot.size;
    }
    return locked;
}

byte_source_ptr stretch_of(const byte_source_ptr &medium, u64 offset, u64 size)
{
    const auto stretch = std::make_shared<stitched_source>();
    stretch->append(medium, offset, size);
    return stretch;
}

} // namespace

unlocked_medium unlock_volumes(const byte_source_ptr &medium, const volume_keys &keys)
{
    unlocked_medium result;
    const auto whole = std::make_shared<stitched_source>();
    for (const partition_slot &slot : find_locked(*medium)) {
        const std::string name =
            "BitLocker volume at offset " + std::to_string(slot.offset);
        const unlocked_volume volume =
            unlock_bitlocker(stretch_of(medium, slot.offset, slot.size), keys);
        if (!volume.source) {
            result.problems.push_back(name + ": " + volume.problem);
            continue;
        }
        whole->append(medium, whole->size(), slot.offset - whole->size());
        whole->append(volume.source, 0, volume.source->size());
        result.unlocked.push_back(name + ", unlocked");
    }
    if (result.unlocked.empty()) {
        result.source = medium;
        return result;
    }
    whole->append(medium, whole->size(), medium->size() - whole->size());
    result.source = whole;
    return result;
}

} // namespace hv

#include "evidence/describe_medium.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u8 dynamic_disk_type = 0x42;

std::string with_advice(std::string text, content_texts texts)
{
    if (!texts.advice.empty()) text.append("; ").append(texts.advice);
    return text;
}

other_content describe_content(volume_content content, u64 offset, u64 size)
{
    const content_texts texts = texts_of(content);
    std::string text(texts.name);
    if (content == volume_content::ntfs) text = "NTFS with a damaged boot sector";
    text += " at offset " + std::to_string(offset);
    return {offset, size, content, with_advice(std::move(text), texts)};
}

bool is_volume_at(const std::vector<found_volume> &volumes, u64 offset)
{
    return std::ranges::find(volumes, offset, &found_volume::offset) != volumes.end();
}

std::vector<other_content> find_others(const byte_source &medium,
                                       const medium_layout &layout)
{
    std::vector<other_content> others;
    for (const partition_slot &slot : layout.slots) {
        if (is_volume_at(layout.volumes, slot.offset)) continue;
        volume_content content = read_volume_content(medium, slot.offset);
        if (slot.type == dynamic_disk_type) content = volume_content::dynamic_disk;
        others.push_back(describe_content(content, slot.offset, slot.size));
    }
    if (layout.slots.empty() && layout.volumes.empty())
        others.push_back(
            describe_content(read_volume_content(medium, 0), 0, medium.size()));
    std::ranges::sort(others, {}, &other_content::offset);
    return others;
}

std::string name_table(const medium_layout &layout)
{
    const auto is_listed = [&](partition_table table) {
        return std::ranges::find(layout.slots, table, &partition_slot::table) !=
               layout.slots.end();
    };
    for (const partition_table table :
         {partition_table::gpt, partition_table::mbr, partition_table::gpt_copy})
        if (is_listed(table)) return table_name(table);
    const bool is_bare = layout.volumes.empty() || is_volume_at(layout.volumes, 0);
    return is_bare ? table_name(partition_table::none) : "lost table";
}

// Why a raw medium shows no volume.
std::string explain_refusal(const std::vector<other_content> &others)
{
    const auto is_telling = [](const other_content &other) {
        return other.content != volume_content::unknown &&
               other.content != volume_content::empty;
    };
    std::string text;
    for (const other_content &other : others)
        if (is_telling(other)) text += (text.empty() ? "" : ". ") + other.text;
    if (!text.empty()) return "no NTFS volume can be read: " + text;
    return "no NTFS volume was found where volumes usually begin; a search of every "
           "sector may find one whose table is lost";
}

} // namespace

medium_description describe_medium(const byte_source &medium)
{
    medium_description description;
    description.container = read_container_kind(medium);
    if (description.container != container_kind::none) {
        const content_texts texts = texts_of(description.container);
        description.refusal = with_advice(
            std::string(texts.name) + ": this kind of file isn't read", texts);
        return description;
    }
    if (medium.size() == 0) {
        description.refusal = "it is empty";
        return description;
    }
    medium_layout layout = find_volumes(medium, volume_search::usual_places);
    description.table = name_table(layout);
    description.others = find_others(medium, layout);
    if (layout.volumes.empty())
        description.refusal = explain_refusal(description.others);
    description.volumes = std::move(layout.volumes);
    return description;
}

} // namespace hv

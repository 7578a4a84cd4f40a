#include "recyclebin/run_context.h"

#include "recyclebin/evidence_text.h"

#include <algorithm>
#include <cstdio>

namespace hv {

std::vector<const deletion *> run_context::selected() const
{
    const volume_numbers volumes(found);
    std::vector<const deletion *> items;
    for (const deletion &item : found.deletions)
        if (is_selected(item, line.wanted, volumes)) items.push_back(&item);
    return items;
}

std::set<u32> run_context::snapshots() const
{
    const volume_numbers volumes(found);
    std::set<u32> numbers;
    for (u32 region = 0; region < found.regions.size(); ++region) {
        if (line.wanted.volume && volumes.number_of(region) != line.wanted.volume)
            continue;
        for (u32 n = 1; n <= found.regions[region].snapshots.size(); ++n)
            numbers.insert(n);
    }
    return numbers;
}

std::string run_context::unread_text() const
{
    const u64 bytes = std::max(found.unreadable_bytes, medium->unreadable());
    u64 troubles = input.source().faults().size();
    for (const examined_region &region : found.regions)
        troubles += !region.trouble.empty();
    std::string text;
    if (bytes > 0) text = counted(bytes, "byte") + " unreadable";
    if (troubles > 0)
        text += (text.empty() ? "" : ", ") + counted(troubles, "source") +
                " not read whole";
    return text.empty() ? "nothing unreadable" : text;
}

std::string refusal_text(const medium_description &description)
{
    return description.refusal.empty() ? "no NTFS volume was found"
                                       : description.refusal;
}

void complain(std::string_view text)
{
    std::fprintf(stderr, "recyclebin: %s\n", escaped(text).c_str());
}

} // namespace hv

#pragma once

#include "recyclebin/forms/form.h"

/// Deletions as moments, for forms with a line for each.
namespace hv {

/// What happened then.
enum class timed_fact {
    deleted, ///< as the metadata states it
    logged,  ///< the change journal saw the item enter the bin
    // The data item's own times, which may be of years before
    created,
    modified,
    record_changed,
    accessed
};

struct timed_line {
    u64 filetime = 0;
    timed_fact fact = timed_fact::deleted;
    const deletion *item = nullptr;
};

/// All moments that RFC 3339 can write, the earliest first. A deletion without any has
/// no line; one without a time of deletion has no line that is named so.
std::vector<timed_line> timeline_of(const listing &told);
/// The same for one deletion, in the order of `timed_fact`.
std::vector<timed_line> times_of(const deletion &item);

/// Whether it is one of the data item's own times.
bool is_own_time(timed_fact fact);

/// What timelines call it: "Content Deletion Time".
std::string_view timestamp_name(timed_fact fact);
/// A sentence without its end or commas: "sent to the Recycle Bin".
std::string_view sentence_for(timed_fact fact);
/// The letters that a timeline shows for it: "..C.".
std::string_view macb_for(timed_fact fact);

/// The path before the deletion or, if nothing states it, the name of one of its two
/// files in the bin; empty if neither is known. As it was found, not escaped.
const std::u16string &path_or_name(const deletion &item);
/// Number of the MFT entry of the data item, else of the metadata.
std::optional<u64> entry_number(const deletion &item);
/// Bytes that the metadata states, else those of the data item.
std::optional<u64> size_of(const deletion &item);

} // namespace hv

#pragma once

#include "recyclebin/views.h"

namespace hv {

/// Which deletions a user asks for. An empty or absent field asks for all; a deletion
/// that doesn't state what is asked for isn't selected.
struct selection {
    std::optional<u64> since; ///< FILETIME of the deletion, inclusive
    std::optional<u64> until; ///< the same
    std::vector<std::u16string>
        users; ///< names of users or of their folders, or the last number of a SID
    std::vector<std::u16string> paths; ///< globs
    std::vector<deletion_state> states;
    std::vector<seen_place> seen_in;
    std::optional<u32> at;     ///< a view in which it was in the bin
    std::optional<u32> volume; ///< number of a volume
};

/// Whether a deletion has all that is asked for; of the lists, any one of each.
bool is_selected(const deletion &item, const selection &wanted,
                 const volume_numbers &volumes);

/// What a table calls a user: the name or, if that isn't known, `short_user`.
std::u16string_view shown_user(const deletion &item);
/// The last number of a user's SID, "1001"; the whole name where it isn't a SID.
std::u16string_view short_user(std::u16string_view user);

} // namespace hv

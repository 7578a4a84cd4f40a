// Directory indexes: the live walk, the search of the slack, the walk over names.

#include "ntfs/hv_directory_index.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view index{data, size};
    hv::index_live_map live;
    hv::index_slack_map slack;
    hv::u64 parent = 0;
    hv::parse_index_entries(live, slack, parent, index, 0, hv::slack_mode::recover);
    const auto check = [size](const hv::index_entry &entry) {
        if (entry.position >= size) std::abort();
        // A UTF-16 unit becomes at most three bytes of UTF-8, and the text for a
        // missing name is shorter than that.
        if (entry.name.size() > std::size_t{3} * 255) std::abort();
    };
    for (const auto &[key, entry] : live) check(entry);
    for (const auto &[key, entry] : slack) check(entry);
    // Recovered entries start at least 82 bytes apart.
    if (slack.size() > size / 82 + 1) std::abort();

    std::set<hv::u64> strict;
    std::set<hv::u64> tolerant;
    hv::read_index_names(strict, index, hv::name_walk::strict);
    hv::read_index_names(tolerant, index, hv::name_walk::tolerant);
    // The tolerant walk skips the entries at which the strict one ends.
    if (!std::includes(tolerant.begin(), tolerant.end(), strict.begin(), strict.end()))
        std::abort();
    return 0;
}

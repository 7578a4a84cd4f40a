#include "scan/find_bins.h"

#include "ntfs/hv_directory_index.h"
#include "ntfs/hv_path_lookup.h"
#include "trash/bin_names.h"

#include <set>
#include <string>

namespace hv {

namespace {

// The entry number of the bin's root, the newer form first.
bool find_bin_root(CNtfs &volume, u64 &entry, log_handle log)
{
    for (const char *name : bin_folder_names) {
        u64 parent = 0;
        std::string resolved;
        if (find_inode_by_path_utf8(entry, parent, resolved, volume,
                                    std::string("\\") + name, link_mode::stop, log))
            return true;
    }
    return false;
}

} // namespace

bool find_recycle_bins(_trash_inodes &collection, CNtfs &volume, log_handle log)
{
    collection.bins_known = false;
    collection.known_bin_directories.clear();
    collection.known_bin_files.clear();
    u64 current = 0;
    if (!find_bin_root(volume, current, log)) return false;

    // Hostile folders may all claim the whole medium as their index.
    u64 budget = 2 * volume.get_disk()->get_size();
    // Each folder is listed once, whatever stale entries say of who contains whom.
    std::set<u64> listed = {current};
    std::set<u64> pending;
    const auto take = [&](const index_entry &one) {
        const u64 entry = reference_entry(one.reference);
        if (entry == 0) return;
        if (!one.is_directory) {
            collection.known_bin_files.insert(entry);
            return;
        }
        collection.known_bin_directories.insert(entry);
        if (listed.insert(entry).second) pending.insert(entry);
    };
    index_live_map live;
    index_slack_map slack;
    while (list_directory(volume, live, slack, current, slack_mode::recover, budget)) {
        for (const auto &[key, one] : live) take(one);
        for (const auto &[parent, one] : slack) take(one);
        if (pending.empty()) break;
        current = pending.extract(pending.begin()).value();
    }
    collection.bins_known = !collection.known_bin_directories.empty();
    return collection.bins_known;
}

} // namespace hv

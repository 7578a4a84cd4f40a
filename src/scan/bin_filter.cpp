#include "scan/bin_filter.h"

#include "trash/bin_names.h"

namespace hv {

namespace {

// The content of an `INFO2` is counted in clusters of this size, whatever the volume's.
// On a volume with larger ones, the end of a long `INFO2` is lost.
constexpr unsigned info2_cluster_shift = 12;
constexpr u64 max_info2 = 0xFFFFFF;

u64 parent_of(const parsed_record &record)
{
    return record.has_parents() ? record.first_parent : 0;
}

bool is_known_bin_folder(const _trash_inodes &collection, u64 entry)
{
    return collection.bins_known && collection.known_bin_directories.contains(entry);
}

// Directories are kept for the paths; in the root, only the bin itself is.
filter_decision decide_on_directory(const _trash_inodes &collection,
                                    const parsed_record &record)
{
    const u64 parent = parent_of(record);
    filter_decision decision;
    decision.is_bin_root = parent == root_entry_number && is_bin_name(record.name);
    decision.in_bin =
        decision.is_bin_root ||
        (parent != root_entry_number && (collection.bin_directories.contains(parent) ||
                                         is_known_bin_folder(collection, parent)));
    if (decision.in_bin || parent != root_entry_number)
        decision.answer = filter_answer::keep;
    return decision;
}

filter_decision decide_on_file(const _trash_inodes &collection,
                               const parsed_record &record)
{
    const u64 parent = parent_of(record);
    filter_decision decision;
    if (collection.bins_known && (collection.known_bin_directories.contains(parent) ||
                                  collection.bin_directories.contains(parent)))
        decision.answer = filter_answer::keep;
    return decision;
}

bool has_extras(const parsed_record &record)
{
    return may_be_metadata(record.name) || !record.zone_data.empty();
}

// Only what can be metadata is worth its memory.
void keep_extras(inode_store &records, u64 index, const parsed_record &record)
{
    if (may_be_metadata(record.name)) {
        record_extras &extras = records.extras(index);
        extras.data = record.data;
        extras.data_runs = record.data_runs;
    }
    if (!record.zone_data.empty()) records.extras(index).zone_data = record.zone_data;
}

u64 add_record(inode_store &records, const parsed_record &parsed, u64 position)
{
    inode_record record;
    record.entry = parsed.entry;
    record.sequence = parsed.sequence;
    record.first_parent = parsed.first_parent;
    record.si_modified = parsed.si_modified;
    record.si_accessed = parsed.si_accessed;
    record.si_mft_changed = parsed.si_mft_changed;
    record.si_created = parsed.si_created;
    record.real_size = parsed.real_size;
    record.is_directory = parsed.is_directory();
    record.in_use = parsed.in_use();
    record.position = position;
    // The paths of directories are built later, and every one is looked up.
    if (!record.is_directory && !has_extras(parsed))
        return records.add_packed(record, parsed.name);
    const u64 index = records.add();
    records.edit(index) = record;
    records.set_name(index, parsed.name);
    keep_extras(records, index, parsed);
    return index;
}

void claim_directory(_trash_inodes &collection, u64 index, directory_claim claim)
{
    const inode_record record = collection.records[index];
    const auto [known, added] = collection.directories.emplace(record.entry, index);
    if (added || !record.in_use) return;
    if (claim == directory_claim::of_later_pass &&
        collection.records[known->second].in_use)
        return;
    known->second = index;
}

} // namespace

filter_decision filter_record(const _trash_inodes &collection,
                              const parsed_record &record)
{
    if (record.name.size() < min_name) return {};
    filter_decision decision = record.is_directory()
                                   ? decide_on_directory(collection, record)
                                   : decide_on_file(collection, record);
    if (!collection.bins_known && !is_info2_name(record.name))
        decision.answer = filter_answer::keep;
    return decision;
}

void load_info2(filter_decision &decision, parsed_record &record,
                const content_source &source, u64 &budget)
{
    if (record.name.size() < min_name || !is_info2_name(record.name)) return;
    std::vector<cluster_run> runs;
    flat_to_cluster_runs(record.data_runs, runs);
    const u64 clusters = runs_total_bytes(runs, 1, true);
    const u64 bytes = clusters << info2_cluster_shift;
    // One that isn't loaded is kept all the same: carving may find its content.
    const bool loads = !record.data_runs.empty() && record.data.empty() &&
                       source.disk != nullptr &&
                       clusters <= max_info2 >> info2_cluster_shift && bytes <= budget;
    if (loads) {
        budget -= bytes;
        record.data.assign(bytes, 0);
        u32 length = static_cast<u32>(bytes);
        u64 status = 0;
        if (!source.disk->read_mapped(runs, source.cluster_size, 0, record.data.data(),
                                      length, status))
            return;
    }
    decision.answer = filter_answer::keep;
}

void keep_record(_trash_inodes &collection, const parsed_record &parsed, u64 position,
                 const filter_decision &decision, directory_claim claim)
{
    const u64 index = add_record(collection.records, parsed, position);
    if (decision.in_bin) collection.bin_directories.emplace(parsed.entry, index);
    // A stale bin must not take the place of the one that the first pass saw.
    if (decision.is_bin_root && (claim == directory_claim::of_first_pass ||
                                 collection.bin_root_index == no_index))
        collection.bin_root_index = index;
    if (parsed.is_directory()) claim_directory(collection, index, claim);
}

} // namespace hv

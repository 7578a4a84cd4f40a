#pragma once

#include "base/hv_byte_view.h"
#include "ntfs/hv_data_run.h"
#include "ntfs/hv_ntfs_layout.h"

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// The index of a directory ($I30): a copy of each child's $FILE_NAME, in $INDEX_ROOT
/// and in the 4096-byte "INDX" blocks of $INDEX_ALLOCATION. Behind the last live entry
/// of a block stale ones remain: files that were deleted, renamed or moved on.
namespace hv {

class CNtfs;

/// One child of a directory, as its index holds it.
struct index_entry {
    u64 reference = 0; ///< of the child; 0 in some stale entries
    u16 entry_length = 0;
    u16 content_length = 0;
    u16 flags = 0;
    std::array<u8, file_name::fixed_size> content{}; ///< fixed part of the $FILE_NAME
    std::string name;                                ///< UTF-8
    bool is_live = false; ///< set for every accepted slack entry as well
    bool is_directory = false;
    u64 position = 0; ///< byte position in the index stream
    u32 true_length = 0;

    u64 parent_reference() const
    {
        return byte_view{content}.read_padded<u64>(file_name::parent);
    }
};

/// Live entries by parent and name: "0000000005_pagefile.sys". The first of two equal
/// keys stays.
using index_live_map = std::map<std::string, index_entry>;
/// Recovered entries by the entry number of their parent, in the order of discovery.
using index_slack_map = std::multimap<u64, index_entry>;

/// Whether the bytes behind the last live entry are searched.
enum class slack_mode { skip, recover };

/// Reads up to `count` index blocks from block `start_block` of an allocation on, with
/// their sector tails put back, and sets `count` to the blocks read. Sparse runs
/// contribute nothing. Where a cluster can't be read, the blocks up to the end of its
/// run are left out. A block without the "INDX" signature stays as it was read. False
/// if the runs hold no whole block, or none at `start_block`.
bool read_index_blocks(std::vector<u8> &out_bytes, u64 &count, const CNtfs &volume,
                       const std::vector<cluster_run> &runs, u64 start_block);

/// Calls `visit` with each block of an allocation, in batches that bound the memory,
/// and with its running position. Runs that leave the medium are cut, and no more is
/// read than the medium has, nor more bytes than `budget`, which shrinks.
void for_each_index_block(const CNtfs &volume, const std::vector<cluster_run> &runs,
                          u64 &budget,
                          const std::function<void(byte_view, u64)> &visit);

/// Parses one block or root from its index header on. `position_base` is the position
/// of that header in the index stream. The slack is searched for `parent_reference`;
/// where that is 0, the first live entry supplies it. False, with nothing added, if the
/// first entry lies outside.
bool parse_index_entries(index_live_map &live, index_slack_map &slack,
                         u64 &parent_reference, byte_view index_header,
                         u64 position_base, slack_mode mode);

/// Lists a directory's whole index. The maps are cleared first. True if either ends up
/// with an entry. Blocks that don't parse are passed over. `budget` is how many bytes
/// of blocks may still be read; a walk over many directories hands on what is left.
bool list_directory(const CNtfs &volume, index_live_map &live, index_slack_map &slack,
                    u64 entry, slack_mode mode, u64 &budget);

/// How `read_index_names` takes entries that look wrong.
enum class name_walk { strict, tolerant };

/// Adds the entry numbers of the children in one block or root, from its index header
/// on. A strict walk ends at the last entry or at an entry shorter than its content; a
/// tolerant one passes over them. False if there was no entry to look at.
bool read_index_names(std::set<u64> &children, byte_view index_header, name_walk mode);

/// The three phases of the slack search, on the bytes behind the last live entry.
namespace index_slack {

/// Offsets in the region at which entries are believed to begin.
using candidate_set = std::set<u64>;

/// Entries of this parent are searched by its reference, at steps of 8 bytes.
void find_by_parent(candidate_set &candidates, byte_view region, u64 parent_reference);
/// Entries are searched by the time stamps that stand in them.
void find_by_times(candidate_set &candidates, byte_view region);
/// Makes entries of the candidates. `position` is that of the region in the stream.
void harvest(index_slack_map &slack, byte_view region, const candidate_set &candidates,
             u64 position);

} // namespace index_slack

} // namespace hv

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
/// and in the 4096-byte "INDX" blocks of $INDEX_ALLOCATION. After the last live entry
/// of a block, stale ones remain in what is called its slack: files that were deleted,
/// renamed or moved to another block.
namespace hv {

class CNtfs;

/// One child of a directory, as its index holds it.
struct index_entry {
    u64 reference = 0;      ///< of the child; 0 in some stale entries
    u16 entry_length = 0;   ///< bytes, as stored
    u16 content_length = 0; ///< bytes of the $FILE_NAME, as stored
    u16 flags = 0;          ///< 1: has a sub-node, 2: last entry
    std::array<u8, file_name::fixed_size> content{}; ///< fixed part of the $FILE_NAME
    std::string name;                                ///< UTF-8
    bool is_live = false; ///< set for every accepted stale entry as well
    bool is_directory = false;
    u64 position = 0;    ///< byte position in the index stream
    u32 true_length = 0; ///< bytes up to the end of the name

    /// The file reference of the directory that the entry was made for.
    u64 parent_reference() const
    {
        return byte_view{content}.read_padded<u64>(file_name::parent);
    }
};

/// Live entries by parent and name: "0000000005_pagefile.sys". Of two with equal keys,
/// the first stays.
using index_live_map = std::map<std::string, index_entry>;
/// Stale entries by the entry number of their parent, in the order they were found.
using index_slack_map = std::multimap<u64, index_entry>;

/// Whether the slack is searched for stale entries.
enum class slack_mode { skip, recover };

/// Reads up to `count` index blocks of an allocation from block `start_block` on,
/// applies their update sequences, and sets `count` to the blocks read. Sparse runs are
/// skipped. Where a cluster can't be read, the blocks up to the end of its run are left
/// out. A block without the "INDX" signature stays as it was read. False if the runs
/// don't hold block `start_block` whole.
bool read_index_blocks(std::vector<u8> &out_bytes, u64 &count, const CNtfs &volume,
                       const std::vector<cluster_run> &runs, u64 start_block);

/// Calls `visit` with each block of an allocation and its running position, in batches
/// that bound the memory. Runs that leave the medium are cut. No more bytes are read
/// than the medium has, nor more than `budget`, which shrinks by them.
void for_each_index_block(const CNtfs &volume, const std::vector<cluster_run> &runs,
                          u64 &budget,
                          const std::function<void(byte_view, u64)> &visit);

/// Parses one block or root, given from its index header on, and adds what it finds to
/// the maps. `position_base` is the byte position of the header in the index stream.
/// The slack is searched for entries of `parent_reference`, a file reference; if it is
/// 0, that of the first live entry is taken. False, with nothing added, if the first
/// entry would begin after the end of `index_header`.
bool parse_index_entries(index_live_map &live, index_slack_map &slack,
                         u64 &parent_reference, byte_view index_header,
                         u64 position_base, slack_mode mode);

/// Lists the whole index of the directory with this entry number. The maps are cleared
/// first. Blocks that can't be parsed are skipped. `budget` is how many bytes of blocks
/// may still be read; it shrinks, so that a walk over many directories can bound them
/// together. True if at least one entry was found.
bool list_directory(const CNtfs &volume, index_live_map &live, index_slack_map &slack,
                    u64 entry, slack_mode mode, u64 &budget);

/// How `read_index_names` treats entries that look wrong.
enum class name_walk { strict, tolerant };

/// Adds the entry numbers of the children in one block or root, given from its index
/// header on. A strict walk ends at the last entry or at an entry shorter than its
/// content; a tolerant one goes on after them. False if there was no entry to look at.
bool read_index_names(std::set<u64> &children, byte_view index_header, name_walk mode);

/// The three phases of the slack search. The region is what follows the last live entry
/// of a block or root.
namespace index_slack {

/// Byte offsets in the region at which entries are believed to begin.
using candidate_set = std::set<u64>;

/// Adds the entries that hold this file reference of their parent, searched at steps of
/// 8 bytes.
void find_by_parent(candidate_set &candidates, byte_view region, u64 parent_reference);
/// Adds the entries that hold believable time stamps.
void find_by_times(candidate_set &candidates, byte_view region);
/// Decodes the candidates into `slack`. `position` is the byte position of the region
/// in the index stream.
void harvest(index_slack_map &slack, byte_view region, const candidate_set &candidates,
             u64 position);

} // namespace index_slack

} // namespace hv

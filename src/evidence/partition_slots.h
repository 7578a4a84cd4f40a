#pragma once

#include "disk/hv_byte_source.h"

#include <string>
#include <vector>

namespace hv {

/// Which table lists a partition.
enum class partition_table { none, mbr, gpt, gpt_copy };

/// A stretch of a disk that a table calls a partition. Its numbers are the table's, cut
/// off at the end of the disk.
struct partition_slot {
    u64 offset = 0; ///< bytes
    u64 size = 0;   ///< bytes
    partition_table table = partition_table::none;
    u8 type = 0;      ///< of an MBR
    std::string name; ///< of a GPT, in UTF-8
};

/// Reads the tables of a disk: an MBR with its chain of logical partitions, a GPT (with
/// or without a protective MBR), and its copy at the end of the disk. No table is taken
/// for the truth: an entry that leaves the disk, or that repeats an offset, costs only
/// itself. Sectors are of 512 bytes or, where only that leads to volumes, of 4096.
std::vector<partition_slot> read_partition_slots(const byte_source &disk);

/// The name of a table for a reader, such as "copy of the GPT".
const char *table_name(partition_table table);

} // namespace hv

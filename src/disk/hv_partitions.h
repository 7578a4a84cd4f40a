#pragma once

#include "partitions/hv_partition_buffer.h"

/// The walk over the partition tables of a disk.
namespace hv {

class RAW_DISK_IO;

/// Whether the areas that belong to no partition get entries as well: the tables, by a
/// name each, and what is left between two entries or behind the last one, as
/// "unalloc".
enum class table_gaps { off, on };

/// Finds the partitions of a disk by its MBR and extended partitions, or by its GPT. A
/// disk that begins with a volume gives one entry, and no gaps. With the scan on, a
/// disk without a table at its start is searched for the first table sector of an
/// extended partition, up to 1 MiB. Entries stand in the order of the walk, not of
/// their places; gaps follow that order. A file system is recognised where the first
/// 512 bytes of a partition show it. True if the list isn't empty. Where a table can't
/// be read the result is false, and the list holds what came before it.
bool find_partitions(partition_list &out_partitions, const RAW_DISK_IO &disk,
                     table_scan scan, table_gaps gaps);

/// The same by the GPT alone, which begins in the second sector; its signature and
/// checksums aren't looked at. With `gaps`, only the areas of the tables get entries.
/// False as well if an entry, or the start of what it names, can't be read.
bool find_partitions_gpt(partition_list &out_partitions, const RAW_DISK_IO &disk,
                         table_gaps gaps);

} // namespace hv

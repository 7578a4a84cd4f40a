#pragma once

#include "partitions/hv_partition_buffer.h"

/// Reads the partition tables of a disk: MBR, EBR and GPT.
namespace hv {

class RAW_DISK_IO;

/// Whether areas outside all partitions get entries too: the tables themselves, each
/// under a name of its own, and unused space between two entries or after the last one,
/// under the name "unalloc".
enum class table_gaps { off, on };

/// Finds the partitions of a disk by its MBR and extended partitions, or by its GPT.
///
/// A disk that begins with a volume is one entry, without gaps. With the scan on, a
/// disk without a table at its start is searched for the first table sector of an
/// extended partition, up to 1 MiB. File systems are recognised by the first 512 bytes
/// of a partition. Entries come in the order of the walk, not sorted by place; gaps are
/// computed in that order, in sectors of the table.
///
/// True if the list isn't empty. False if there is no table, or if one can't be read;
/// the list then holds what was found before it.
bool find_partitions(partition_list &out_partitions, const RAW_DISK_IO &disk,
                     table_scan scan, table_gaps gaps);

/// The same by the GPT alone, whose header is in the second sector. Its checksums
/// aren't verified. With `gaps`, only the tables get entries, not unused space. False
/// as well if an entry, or the first sector of its partition, can't be read.
bool find_partitions_gpt(partition_list &out_partitions, const RAW_DISK_IO &disk,
                         table_gaps gaps);

} // namespace hv

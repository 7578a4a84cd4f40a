#pragma once

#include "samples/bytes.h"

#include <vector>

/// Tables of partitions, as bytes. Positions and lengths are sectors of 512 bytes.
namespace lab {

struct partition {
    test_support::u64 first = 0;
    test_support::u64 sectors = 0;
    test_support::u8 type = 7; ///< NTFS
};

/// Writes an MBR into the first sector of a disk. Of more than four partitions, the
/// fourth and all further ones become logical: each has its own table in the sector
/// `first - 63`, which has to be free.
void write_mbr(test_support::byte_vector &disk,
               const std::vector<partition> &partitions);

/// Writes a GPT with its protective MBR, and its copy at the end of the disk, which
/// grows by 33 sectors.
void write_gpt(test_support::byte_vector &disk,
               const std::vector<partition> &partitions);

} // namespace lab

#pragma once

#include "evidence/sighting.h"

#include <span>
#include <string>
#include <vector>

/// Where a medium has structures worth damaging, found by their signatures alone and
/// without the program's own readers, so that any image will do.
namespace stress {

using hv::byte_range;
using hv::u16;
using hv::u32;
using hv::u64;
using hv::u8;

enum class structure_kind {
    partition_table, ///< a sector with 55 AA, a GPT header or its entries
    boot_sector,     ///< of NTFS, or its copy
    file_record,     ///< "FILE"
    index_block,     ///< "INDX"
    bin_metadata,    ///< the contents of a `$I` outside of a record, or a list
    journal_page,    ///< USN records
    shadow_block,    ///< a block that begins with the identifier of shadow copies
    plain            ///< a sector with data that is none of these
};

/// One structure. A run list, a name or a value in it is part of its `file_record`.
struct structure {
    structure_kind kind = structure_kind::plain;
    u64 offset = 0;
    u64 length = 0;
    /// Rows may depend on it without being in it: the boot sector, tables, the records
    /// of the volume's own files and of directories, blocks of shadow copies.
    bool is_vital = false;
};

/// The structures of a medium, in order, without overlaps. Sectors of zeros are in
/// none.
std::vector<structure> find_structures(std::span<const u8> medium);

} // namespace stress

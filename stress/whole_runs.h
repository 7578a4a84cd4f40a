#pragma once

#include "evidence/deletion.h"
#include "evidence/examine.h"

#include <set>
#include <span>

/// Whole runs of both programs, in this process, over a medium in memory.
namespace stress {

using hv::u64;
using hv::u8;

enum class veskit_mode {
    image,             ///< -image
    image_unallocated, ///< the same with -include_unalloc_clusters
    image_shadows,     ///< the same with -include_vss
    image_all,         ///< with both
    raw_scan           ///< -rawscan
};

/// What one run of veskit wrote. Nothing goes to standard error.
struct veskit_run {
    std::string output;              ///< to the byte
    std::multiset<std::string> rows; ///< lines of it after the header
};
/// `volume_offset` is where the volume begins, in bytes; the raw scan doesn't use it.
veskit_run run_veskit(std::span<const u8> medium, veskit_mode mode, u64 volume_offset);

enum class carving { off, on };

/// What one run of `recyclebin list` found and wrote, and what it cost.
struct recyclebin_run {
    carving carve = carving::off;
    hv::examination found;
    std::string json_lines; ///< as `--format jsonl` writes them
    u64 bytes_read = 0;     ///< asked of the medium, lent windows included
};
/// Whether windows of the medium are lent or have to be read, which must not matter.
enum class access { lent, read };
recyclebin_run run_recyclebin(std::span<const u8> medium, carving carve,
                              access how = access::lent);

} // namespace stress

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

/// A medium as a file without a place in the file system, which veskit opens by a path
/// like any other. Throws std::runtime_error if it can't be written.
class file_in_memory {
public:
    explicit file_in_memory(std::span<const u8> bytes);
    ~file_in_memory();
    file_in_memory(const file_in_memory &) = delete;
    file_in_memory &operator=(const file_in_memory &) = delete;

    std::string path() const;

private:
    int m_descriptor;
};

/// `volume_offset` is where the volume begins, in bytes; the raw scan doesn't use it.
veskit_run run_veskit(const file_in_memory &medium, veskit_mode mode,
                      u64 volume_offset);

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

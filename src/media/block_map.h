#pragma once

#include "disk/hv_byte_source.h"

#include <vector>

namespace hv {

/// A file that holds some of the blocks of a disk, in any order, perhaps compressed: a
/// virtual disk that grows, or what changed after a snapshot.
class block_map {
public:
    block_map() = default;
    virtual ~block_map() = default;
    block_map(const block_map &) = delete;
    block_map &operator=(const block_map &) = delete;

    virtual u64 size() const = 0; ///< bytes of the disk that the file stands for
    virtual u64 block_bytes() const = 0;
    virtual const byte_source &file() const = 0;
    virtual bool is_packed() const = 0; ///< whether blocks may be compressed
    /// Bytes of all tables that are read from the file when they are needed.
    virtual u64 table_bytes() const { return 0; }

    enum class holding {
        nothing, ///< a parent may have it
        zeros,
        plain, ///< at `place` in the file
        packed ///< in a compressed block, see `unpack`
    };
    struct answer {
        holding what = holding::nothing;
        u64 place = 0; ///< in the file: of the byte, or of the compressed block
        u64 bytes = 0; ///< for how many bytes from the offset this holds; not 0
    };
    /// What the file holds at byte `offset` of the disk, which is before its end.
    virtual answer find(u64 offset) const = 0;
    /// The compressed block with the byte at `offset`: its bytes at least up to the end
    /// of the disk. Empty if it can't be decoded. The view is valid until the next
    /// call.
    virtual std::span<const u8> unpack(u64 offset) const = 0;
};

/// The first table of a file is kept in memory. Those of the largest disks in use have
/// 16 MiB; a sparse file could claim any number.
inline constexpr u64 max_first_table = u64{32} << 20; // bytes

/// Whether a file can hold what its tables list. Hostile ones name a table or a block
/// over and over, and reading such a disk would never end.
bool fits_its_file(const block_map &map);
/// What to tell a user about one that doesn't.
inline constexpr const char *unfit_tables =
    "its tables list more than the file can hold, so they are damaged; try to repair a "
    "copy with qemu-img check";

/// A table of `length` bytes at `place` of a file; empty if it is in a hole.
std::vector<u8> read_table(const byte_source &file, u64 place, u64 length);

} // namespace hv

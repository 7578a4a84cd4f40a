#pragma once

#include "disk/hv_byte_source.h"

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

} // namespace hv

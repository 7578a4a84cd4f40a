#pragma once

#include "base/hv_types.h"

#include <memory>
#include <span>

namespace hv {

/// Bytes with a size, wherever they come from: a file, a device, a virtual disk, a
/// volume as a snapshot saw it. Reading changes nothing that a caller can see.
class byte_source {
public:
    byte_source() = default;
    virtual ~byte_source() = default;
    byte_source(const byte_source &) = delete;
    byte_source &operator=(const byte_source &) = delete;

    /// In bytes.
    virtual u64 size() const = 0;
    /// Reads up to `out.size()` bytes at `offset`, and returns how many were delivered:
    /// fewer at the end. Bytes before the end that can't be read are zeros, and are
    /// counted by `unreadable`.
    virtual std::size_t read(u64 offset, std::span<u8> out) const = 0;

    /// Where bytes of this source are on the medium.
    struct place {
        u64 position = 0;      ///< byte on the medium
        u64 length = 0;        ///< how many bytes from there on are one stretch
        bool is_stored = true; ///< false: on no medium; they read as zeros
    };
    /// The place of the byte at `offset`, which is before the end. For a source that is
    /// the medium itself, the offset.
    virtual place locate(u64 offset) const { return {offset, size() - offset, true}; }
    /// How many bytes couldn't be read so far.
    virtual u64 unreadable() const { return 0; }
};

using byte_source_ptr = std::shared_ptr<const byte_source>;

} // namespace hv

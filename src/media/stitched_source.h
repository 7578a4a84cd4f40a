#pragma once

#include "media/unread_parts.h"

namespace hv {

/// Stretches of other sources one after the other, as one medium: the parts of an image
/// that was split, or a disk with an unlocked volume in its place.
class stitched_source : public byte_source {
public:
    /// Appends `length` bytes that `from` has at `offset`. Where it has fewer, or is
    /// null, they are zeros. False, with nothing appended, if the size would wrap.
    bool append(byte_source_ptr from, u64 offset, u64 length);
    /// Appends zeros in the place of bytes that are missing: they count as unreadable.
    bool append_missing(u64 length);

    u64 size() const override { return m_size; }
    u64 stored_size() const override;
    std::size_t read(u64 offset, std::span<u8> out) const override;
    std::span<const u8> view(u64 offset, std::size_t length) const override;
    u64 next_data(u64 offset) const override;
    u64 unreadable() const override;
    unread_parts unreadable_in(u64 offset, u64 length) const override;

private:
    struct stretch {
        u64 begin = 0;
        u64 length = 0;
        byte_source_ptr from; ///< null: zeros
        u64 offset = 0;       ///< in `from`
        bool is_missing = false;
    };
    std::size_t find(u64 offset) const;

    std::vector<stretch> m_stretches; ///< by begin, without gaps, none empty
    std::vector<byte_source_ptr> m_sources;
    u64 m_size = 0;
    u64 m_missing = 0;
};

} // namespace hv

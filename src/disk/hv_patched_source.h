#pragma once

#include "disk/hv_byte_source.h"

#include <vector>

namespace hv {

/// Another source, with some stretches of it replaced: damaged structures by their
/// copies. `locate` says where the bytes come from that are read.
class patched_source : public byte_source {
public:
    /// `base` isn't null.
    explicit patched_source(byte_source_ptr base) : m_base(std::move(base)) {}

    /// Replaces `length` bytes at `offset` by those that the base has at `from`, as for
    /// a boot sector whose copy is intact. Where stretches overlap, the latest counts.
    /// False, with nothing replaced, if either stretch leaves the base.
    bool replace(u64 offset, u64 length, u64 from);
    /// Replaces bytes at `offset` by some that are on no medium. False, with nothing
    /// replaced, if they leave the base.
    bool replace(u64 offset, std::vector<u8> bytes);

    u64 size() const override { return m_base->size(); }
    u64 stored_size() const override { return m_base->stored_size(); }
    std::size_t read(u64 offset, std::span<u8> out) const override;
    std::span<const u8> view(u64 offset, std::size_t length) const override;
    place locate(u64 offset) const override;
    u64 next_data(u64 offset) const override;
    u64 next_hole(u64 offset) const override;
    u64 unreadable() const override { return m_base->unreadable(); }
    std::vector<unread_part> unreadable_in(u64 offset, u64 length) const override;

private:
    struct patch {
        u64 offset = 0;
        u64 length = 0;
        u64 from = 0;          ///< in the base, if there are no bytes
        std::vector<u8> bytes; ///< empty: the base has them
    };
    // Bytes with one origin.
    struct stretch {
        const patch *origin = nullptr; ///< null: the base, at the same offset
        u64 length = 0;
    };

    bool holds(u64 offset, u64 length) const;
    stretch stretch_at(u64 offset) const;

    byte_source_ptr m_base;
    std::vector<patch> m_patches; ///< the later ones are over the earlier ones
};

} // namespace hv

#pragma once

#include "disk/hv_byte_source.h"

#include <functional>

namespace hv {

/// Another source, whose reads are counted and can be ended: a pass over a slow medium
/// answers between two pieces of a read, however large that is.
class watched_source : public byte_source {
public:
    /// Called before each piece of a read with the bytes that the piece before it had.
    /// False ends all reading.
    using watcher = std::function<bool(u64 read)>;

    /// `base` isn't null.
    watched_source(byte_source_ptr base, watcher goes_on)
        : m_base(std::move(base)),
          m_goes_on(std::move(goes_on))
    {
    }

    /// Whether a read was refused. From then on, all are: their bytes are zeros, and
    /// `unreadable_in` names all that it is asked for. `unreadable` doesn't count them.
    bool is_ended() const { return m_is_ended; }

    u64 size() const override { return m_base->size(); }
    u64 stored_size() const override { return m_base->stored_size(); }
    std::size_t read(u64 offset, std::span<u8> out) const override;
    std::span<const u8> view(u64 offset, std::size_t length) const override;
    place locate(u64 offset) const override { return m_base->locate(offset); }
    u64 next_data(u64 offset) const override { return m_base->next_data(offset); }
    u64 next_hole(u64 offset) const override { return m_base->next_hole(offset); }
    u64 unreadable() const override { return m_base->unreadable(); }
    std::vector<unread_part> unreadable_in(u64 offset, u64 length) const override;

private:
    bool goes_on(u64 next_piece) const;

    byte_source_ptr m_base;
    watcher m_goes_on;
    mutable u64 m_last_piece = 0;
    mutable bool m_is_ended = false;
};

} // namespace hv

#pragma once

#include "base/hv_types.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace hv {

/// Bytes with a size, wherever they come from: a file, a device, a virtual disk, a
/// volume as a snapshot saw it. Nothing is ever written. Reads may change what a source
/// caches and counts, so one thread uses it at a time. Offsets and sizes are in bytes.
class byte_source {
public:
    byte_source() = default;
    virtual ~byte_source() = default;
    byte_source(const byte_source &) = delete;
    byte_source &operator=(const byte_source &) = delete;

    virtual u64 size() const = 0;
    /// How many bytes there are on the medium: fewer than `size` for a sparse file or a
    /// compressed image. What hostile structures may cost is bounded by this.
    virtual u64 stored_size() const { return size(); }
    /// Reads up to `out.size()` bytes at `offset`, and returns how many were delivered:
    /// fewer at the end, 0 from there on. Bytes before the end that can't be read are
    /// zeros, and are counted by `unreadable`.
    virtual std::size_t read(u64 offset, std::span<u8> out) const = 0;
    /// The `length` bytes at `offset` where they are, without a copy; empty if they
    /// have to be read, as at the end or where some can't be read. They are good until
    /// the next call of `view`. For passes over large parts of a medium;
    /// `source_window` reads where it has to.
    virtual std::span<const u8> view(u64 /*offset*/, std::size_t /*length*/) const
    {
        return {};
    }

    /// Where bytes of this source are on the medium.
    struct place {
        u64 position = 0;      ///< byte on the medium
        u64 length = 0;        ///< how many bytes of the source follow each other there
        bool is_stored = true; ///< false: on no medium, and `position` means nothing
    };
    /// The place of the byte at `offset`, which is before the end. Its length is at
    /// least 1 and ends with the source; the byte after it may well follow on the
    /// medium, too. For a source that is the medium itself, the place is the offset.
    virtual place locate(u64 offset) const { return {offset, size() - offset, true}; }
    /// The next offset, at or after this one, where bytes may be other than zero: a
    /// hole of a sparse image is passed over. `size` if there is none.
    virtual u64 next_data(u64 offset) const { return offset; }
    /// Where the data ends that `offset` is in, as returned by `next_data`: after it,
    /// and at the start of a hole or at the end.
    virtual u64 next_hole(u64 /*offset*/) const { return size(); }
    /// How many different bytes of the medium couldn't be read so far. A source over
    /// another one may leave the count to that.
    virtual u64 unreadable() const { return 0; }

    /// A stretch of this source.
    struct unread_part {
        u64 offset = 0;
        u64 length = 0;
    };
    /// Which of these bytes were read and couldn't be delivered so far, in order. A
    /// source that doesn't know says nothing, and counts them all the same.
    virtual std::vector<unread_part> unreadable_in(u64 /*offset*/, u64 /*length*/) const
    {
        return {};
    }
};

using byte_source_ptr = std::shared_ptr<const byte_source>;

/// Shows the bytes of a source to a pass over it, with as few copies as it can.
class source_window {
public:
    /// `source` outlives the window.
    explicit source_window(const byte_source &source) : m_source(source) {}

    /// Some of the `length` bytes at `offset`; none only at the end. They are good
    /// until the next call. What can't be read is zeros; see `byte_source::read`.
    std::span<const u8> at(u64 offset, u64 length)
    {
        if (offset >= m_source.size()) return {};
        length = std::min(length, m_source.size() - offset);
        if (length >= min_view) {
            const std::span<const u8> bytes =
                m_source.view(offset, std::min(length, view_length(offset)));
            if (!bytes.empty()) return bytes;
        }
        m_buffer.resize(std::min(length, max_read));
        return std::span(m_buffer).first(m_source.read(offset, m_buffer));
    }

private:
    // Mapping a shorter stretch costs more than copying it.
    static constexpr u64 min_view = u64{64} << 10;
    // Views end at multiples of this, which is large enough to make the requests cheap:
    // the system can map such a piece of a file at one stroke.
    static constexpr u64 usual_view = u64{2} << 20;
    static u64 view_length(u64 offset)
    {
        const u64 rest = usual_view - offset % usual_view;
        return rest < min_view ? rest + usual_view : rest;
    }
    // Small enough to be searched while the processor still has it at hand.
    static constexpr u64 max_read = u64{1} << 19;

    const byte_source &m_source;
    std::vector<u8> m_buffer;
};

} // namespace hv

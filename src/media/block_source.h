#pragma once

#include "disk/hv_byte_source.h"
#include "media/fault_list.h"
#include "media/inflate.h"

#include <array>
#include <functional>
#include <vector>

namespace hv {

/// The most bytes of a disk of `size` that files of `stored` bytes can hold in the
/// methods of compression that containers use: for `byte_source::stored_size`. What
/// limits hostile structures mustn't limit a real disk that was compressed well.
inline u64 most_stored_bytes(u64 stored, u64 size)
{
    return stored > size / max_inflation ? size : stored * max_inflation;
}

/// A disk that a library decodes, read in whole blocks. The last blocks are kept, so
/// that reads one after the other decode none twice.
class block_source : public byte_source {
public:
    /// Fills `out` with whole blocks from `offset` on; at the end of the disk the last
    /// one may be short. False if not all of it could be read.
    using read_blocks = std::function<bool(u64 offset, std::span<u8> out)>;
    /// See `byte_source::next_data`; `offset` is before the end.
    using find_data = std::function<u64(u64 offset)>;

    struct form {
        u64 size = 0;        ///< of the disk
        u64 stored_size = 0; ///< of the files that it is in
        u32 block_bytes = 0; ///< not 0
        /// What `read` reads from: what it can't deliver counts as unreadable.
        std::vector<byte_source_ptr> files = {};
        /// Holds each byte of the disk at the offset that it has in the disk, as under
        /// an encryption: what it can't deliver is missing here, and is counted by it.
        byte_source_ptr encrypted = {};
    };

    /// A block that `read` fails on is zeros, and is noted in `faults`, which isn't
    /// null.
    block_source(form how, read_blocks read, std::shared_ptr<fault_list> faults)
        : m_form(std::move(how)),
          m_read(std::move(read)),
          m_faults(std::move(faults))
    {
    }
    void set_next_data(find_data next) { m_next_data = std::move(next); }

    u64 size() const override { return m_form.size; }
    u64 stored_size() const override { return m_form.stored_size; }
    std::size_t read(u64 offset, std::span<u8> out) const override;
    u64 next_data(u64 offset) const override;
    u64 unreadable() const override;
    unread_parts unreadable_in(u64 offset, u64 length) const override;

private:
    struct kept_block {
        u64 offset = ~u64{0};
        std::vector<u8> bytes;
    };
    void read_whole(u64 offset, std::span<u8> out) const;
    const std::vector<u8> &block_at(u64 offset) const;

    form m_form;
    read_blocks m_read;
    find_data m_next_data;
    std::shared_ptr<fault_list> m_faults;
    mutable std::array<kept_block, 32> m_kept;
};

} // namespace hv

#pragma once

#include "media/block_map.h"
#include "media/fault_list.h"

namespace hv {

/// A virtual disk of one or more layers: a base, and children that hold what changed
/// after it. A layer consists of stretches one after the other. What no layer holds is
/// zeros.
class layered_source : public byte_source {
public:
    /// A stretch of the disk in a layer: in a file of blocks, or as it is in a file
    /// from `offset` on. With neither it is zeros.
    struct stretch {
        u64 begin = 0; ///< set by `add_layer`
        u64 length = 0;
        std::shared_ptr<const block_map> blocks = {};
        byte_source_ptr flat = {};
        u64 offset = 0;
    };

    /// `faults` isn't null.
    explicit layered_source(std::shared_ptr<fault_list> faults)
        : m_faults(std::move(faults))
    {
    }
    /// Adds a layer below those before it; the disk is as large as the first one.
    /// False, with nothing added, if the sum of the lengths wraps.
    bool add_layer(std::vector<stretch> layer);
    /// Counts a file for `stored_size` and `unreadable`.
    void add_file(byte_source_ptr file) { m_files.push_back(std::move(file)); }

    u64 size() const override { return m_size; }
    u64 stored_size() const override;
    std::size_t read(u64 offset, std::span<u8> out) const override;
    std::span<const u8> view(u64 offset, std::size_t length) const override;
    u64 next_data(u64 offset) const override;
    u64 unreadable() const override;
    unread_parts unreadable_in(u64 offset, u64 length) const override;

private:
    // Bytes of the disk that are read in one way.
    struct piece {
        const byte_source *file = nullptr; ///< plain bytes, at `place`
        const block_map *packed = nullptr; ///< a block, with `in_map` in it
        u64 place = 0;
        u64 in_map = 0;
        u64 bytes = 0;

        bool continues(const piece &before) const
        {
            return file != nullptr && file == before.file &&
                   place == before.place + before.bytes;
        }
    };
    piece find_piece(u64 offset, u64 max_bytes) const;
    piece find_row(u64 offset, u64 max_bytes) const;
    void read_piece(u64 offset, const piece &part, std::span<u8> out) const;

    std::shared_ptr<fault_list> m_faults;
    std::vector<std::vector<stretch>> m_layers; ///< the newest first
    std::vector<byte_source_ptr> m_files;
    u64 m_size = 0;
    bool m_packed = false; ///< there are compressed blocks
};

} // namespace hv

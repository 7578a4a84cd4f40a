#pragma once

#include "media/block_map.h"

#include <string>
#include <vector>

namespace hv {

/// The blocks of a VHD that grows, as its table lists them.
class vhd_map : public block_map {
public:
    /// Null if `file` is no such disk: of fixed size, differencing, or damaged.
    static std::shared_ptr<const vhd_map> open(byte_source_ptr file);

    u64 size() const override { return m_size; }
    u64 block_bytes() const override { return m_block_bytes; }
    const byte_source &file() const override { return *m_file; }
    bool is_packed() const override { return false; }
    answer find(u64 offset) const override;
    std::span<const u8> unpack(u64) const override { return {}; }
    /// Whether the file has lost its footer, and was read by the copy at its start.
    bool has_lost_footer() const { return m_lost_footer; }

private:
    byte_source_ptr m_file;
    u64 m_size = 0;
    u64 m_block_bytes = 0;
    u64 m_bitmap_bytes = 0; ///< before each block
    bool m_lost_footer = false;
    std::vector<u8> m_table;
};

} // namespace hv

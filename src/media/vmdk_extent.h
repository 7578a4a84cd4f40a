#pragma once

#include "media/block_map.h"
#include "media/vmdk_descriptor.h"

#include <array>
#include <string>
#include <vector>

namespace hv {

/// A file of a virtual disk that holds some of its grains: sparse, compressed, or of an
/// ESX server. Reads `vmdk_header`, `cowd_header`, the grain directory and its tables.
class vmdk_extent : public block_map {
public:
    /// Reads the header and the directory of a file, which isn't null. Null if it is no
    /// such file; `problem` says why.
    static std::shared_ptr<vmdk_extent> open(byte_source_ptr file,
                                             std::string &problem);

    u64 size() const override { return m_size; }
    u64 block_bytes() const override { return m_grain_bytes; }
    const byte_source &file() const override { return *m_file; }
    bool is_packed() const override { return m_packed; }
    u64 table_bytes() const override;
    answer find(u64 offset) const override;
    std::span<const u8> unpack(u64 offset) const override;

    /// The text in the file; without extents if it has none.
    const vmdk_descriptor &descriptor() const { return m_descriptor; }

private:
    struct kept_table {
        u64 number = ~u64{0};
        std::vector<u32> entries;
        bool is_empty = true; // it lists nothing
    };

    bool read_header(std::string &problem);
    bool read_cowd_header();
    bool set_sizes(u64 sectors, u64 grain_sectors, u64 entries);
    void read_directory(u64 sector, u64 max_entries);
    const kept_table &table(u64 number) const;
    bool unpack_into(std::vector<u8> &grain, u64 start, u64 place) const;

    byte_source_ptr m_file;
    vmdk_descriptor m_descriptor;
    u64 m_size = 0;
    u64 m_grain_bytes = 0;
    u64 m_entries = 0; ///< of a table
    bool m_packed = false;
    bool m_has_markers = false;
    std::vector<u32> m_directory; ///< sector of each table; 0: there is none
    mutable std::array<kept_table, 64> m_tables;
    mutable std::vector<u8> m_grain;
    mutable u64 m_grain_start = ~u64{0}; ///< of `m_grain`, in the extent
};

} // namespace hv

#pragma once

#include "media/block_map.h"

#include <array>
#include <string>
#include <vector>

namespace hv {

/// What the header of a qcow or qcow2 file says that decides who can read it.
struct qcow_facts {
    u64 version = 0;
    u64 encryption = 0;       ///< 0: none
    u64 features = 0;         ///< that a reader must know
    std::string backing_name; ///< empty without a backing file
};
qcow_facts read_qcow_facts(const byte_source &file);

/// The clusters of a qcow2 file, as its two levels of tables list them.
class qcow_map : public block_map {
public:
    /// Null if `file` isn't of version 2 or 3, or its header is damaged.
    static std::shared_ptr<const qcow_map> open(byte_source_ptr file);

    u64 size() const override { return m_size; }
    u64 block_bytes() const override { return u64{1} << m_cluster_bits; }
    const byte_source &file() const override { return *m_file; }
    bool is_packed() const override { return true; }
    u64 table_bytes() const override;
    answer find(u64 offset) const override;
    std::span<const u8> unpack(u64 offset) const override;
    /// Where the file must end for all clusters that the tables list, in bytes; for a
    /// compressed one at the end, up to a cluster less.
    u64 expected_end() const;

private:
    struct kept_table {
        u64 place = ~u64{0};
        std::vector<u8> bytes;
        bool is_empty = true; // it lists nothing
    };
    u64 table_place(u64 offset) const;
    const kept_table &table_at(u64 place) const;
    u64 row_of(const kept_table &table, u64 number) const;
    u64 cluster_entry(u64 offset) const;
    u64 entries_of_table() const;
    u64 packed_place(u64 offset) const;

    byte_source_ptr m_file;
    u64 m_size = 0;
    u64 m_cluster_bits = 0;
    bool m_knows_zeros = false;  ///< as of version 3
    std::vector<u8> m_directory; ///< the first table
    mutable std::array<kept_table, 16> m_tables;
    mutable std::vector<u8> m_cluster;
    mutable u64 m_cluster_entry = 0; ///< of `m_cluster`
};

} // namespace hv

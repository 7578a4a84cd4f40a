#pragma once

#include "scan/record_parse.h"
#include "scan/scan_source.h"

#include <vector>

namespace hv {

/// Follows the attribute lists that a scan meets, to other records and to clusters of
/// its source. What all lists of a scan together may cost is bounded by the source's
/// size: real lists name each record about once; hostile ones may lose attributes, but
/// not our time.
class list_follower {
public:
    /// `source` has to outlive the object. `record_size` is in bytes.
    list_follower(const scan_source &source, u32 record_size);
    list_follower(const list_follower &) = delete;
    list_follower &operator=(const list_follower &) = delete;

    /// What a parse reaches other records and clusters through.
    const record_source &source() const { return m_reader; }

private:
    bool read_extension(u64 entry, std::vector<u8> &record);
    std::vector<u8> read_list_clusters(const std::vector<flat_run> &runs);
    bool take_cluster(std::vector<u8> &bytes, const flat_run &run, u32 index);

    const scan_source &m_source;
    u32 m_record_size;
    u32 m_cluster_size;
    u64 m_list_bytes;      ///< how many more may be read for non-resident lists
    u64 m_extension_reads; ///< how many more may be made
    record_source m_reader;
};

} // namespace hv

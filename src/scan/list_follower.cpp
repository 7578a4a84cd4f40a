#include "scan/list_follower.h"

#include "base/hv_checked_math.h"
#include "ntfs/hv_attribute_list.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u32 default_cluster_size = 4096;

// What a small source may spend beyond its size.
constexpr u64 spare_lists = 64;

} // namespace

list_follower::list_follower(const scan_source &source, u32 record_size)
    : m_source(source),
      m_record_size(record_size),
      m_cluster_size(source.cluster_size != 0 ? source.cluster_size
                                              : default_cluster_size),
      m_list_bytes(std::min(source.total_size, source.disk.get_stored_size()) +
                   spare_lists * max_list_bytes),
      m_extension_reads(m_list_bytes / record_size)
{
    m_reader.read_record = [this](u64 entry, std::vector<u8> &record) {
        return read_extension(entry, record);
    };
    m_reader.read_clusters = [this](const std::vector<flat_run> &runs) {
        return read_list_clusters(runs);
    };
}

bool list_follower::read_extension(u64 entry, std::vector<u8> &record)
{
    u64 position = 0;
    if (m_extension_reads == 0 ||
        !checked_position(entry, m_record_size, m_source.base_offset, position))
        return false;
    --m_extension_reads;
    record.resize(m_record_size);
    u32 length = m_record_size;
    return m_source.disk.read(record.data(), length, position, m_source.mapped) &&
           length == m_record_size;
}

std::vector<u8> list_follower::read_list_clusters(const std::vector<flat_run> &runs)
{
    std::vector<u8> bytes;
    for (const flat_run &run : runs)
        for (u32 i = 0; i < run.clusters; ++i)
            if (!take_cluster(bytes, run, i)) return bytes;
    return bytes;
}

// Appends one cluster of a list. False if the list ends before it.
bool list_follower::take_cluster(std::vector<u8> &bytes, const flat_run &run, u32 index)
{
    u64 position = 0;
    if (bytes.size() + m_cluster_size > std::max<u64>(max_list_bytes, m_cluster_size) ||
        m_list_bytes < m_cluster_size || run.delta == 0 ||
        !checked_position(run.lcn + index, m_cluster_size, m_source.disk.map_base(),
                          position) ||
        position >= m_source.disk.get_size())
        return false;
    m_list_bytes -= m_cluster_size;
    const std::size_t had = bytes.size();
    u32 length = static_cast<u32>(
        std::min<u64>(m_cluster_size, m_source.disk.get_size() - position));
    bytes.resize(had + length);
    if (!m_source.disk.read(bytes.data() + had, length, position)) length = 0;
    bytes.resize(had + length);
    return length != 0;
}

} // namespace hv

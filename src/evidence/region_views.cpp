#include "evidence/region_views.h"

#include "evidence/source_bytes.h"
#include "vss/hv_snapshot_source.h"

namespace hv {

namespace {

// Each holds the bitmap of the volume: 32 MiB for one of a terabyte.
constexpr std::size_t max_open = 8;

} // namespace

region_views::region_views(byte_source_ptr medium, const examined_region &region)
    : m_medium(std::move(medium)),
      m_source(patch_source(m_medium, region.patches)),
      m_offset(region.offset)
{
    auto live = std::make_shared<volume_view>(m_source, m_offset, 0);
    if (live->open()) m_live = std::move(live);
}

volume_view_ptr region_views::view(u32 number)
{
    if (number == 0 || !m_live) return m_live;
    const auto known = m_open.find(number);
    if (known != m_open.end()) return known->second;
    if (m_open.size() >= max_open) m_open.clear();
    return m_open[number] = open_snapshot(number);
}

volume_view_ptr region_views::open_snapshot(u32 number)
{
    if (!m_snapshots) {
        m_snapshots = std::make_shared<vss_container>();
        m_snapshots->report_live_reads = false;
        m_snapshots->init(m_live->volume(), vss_load::with_blocks);
    }
    if (number > m_snapshots->store_count()) return nullptr;
    auto view = std::make_shared<volume_view>(
        std::make_shared<snapshot_source>(m_snapshots, number), 0, number);
    return view->open() ? view : nullptr;
}

} // namespace hv

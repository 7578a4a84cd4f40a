#pragma once

#include "evidence/deletion.h"
#include "evidence/volume_view.h"
#include "vss/hv_vss_reader.h"

#include <map>
#include <memory>

namespace hv {

using volume_view_ptr = std::shared_ptr<const volume_view>;

/// The views of a volume that was examined, opened again when they are asked for.
class region_views {
public:
    /// `region` is a volume of `medium`.
    region_views(byte_source_ptr medium, const examined_region &region);

    /// View 0 is the volume as it is now, 1 and up are its snapshots. Null if it can't
    /// be read. A few views are kept open for the next call.
    volume_view_ptr view(u32 number);
    const byte_source &medium() const { return *m_medium; }

private:
    volume_view_ptr open_snapshot(u32 number);

    byte_source_ptr m_medium;
    byte_source_ptr m_source; // the medium with its patches
    u64 m_offset;
    volume_view_ptr m_live;
    std::shared_ptr<vss_container> m_snapshots;
    std::map<u32, volume_view_ptr> m_open;
};

} // namespace hv

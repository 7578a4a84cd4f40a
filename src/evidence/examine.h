#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/deletion.h"

#include <functional>
#include <optional>

namespace hv {

/// How much of a medium is examined.
struct examine_options {
    std::optional<u64> offset; ///< of the only volume to look at, in bytes
    bool carve = false; ///< free clusters at every sector, slack, gaps between volumes
    bool snapshots = true;
    /// Told now and then how many of how many bytes are done.
    std::function<void(u64 done, u64 all)> progress;
    /// Asked now and then; true ends the examination with what was found so far.
    std::function<bool()> should_stop;
};

/// Examines a medium: finds its volumes, collects what each of their sources shows, and
/// tells each deletion once. What can't be read costs only itself; `out` says so.
void examine(examination &out, const byte_source_ptr &medium,
             const examine_options &options);

/// Joins sightings of one region to deletions. The order of the sightings doesn't
/// matter. Appends to `out`. The region's offset on the medium is part of each id.
void assemble(std::vector<deletion> &out, std::vector<sighting> sightings,
              u64 region_offset);

/// Puts deletions in order by region and time.
void sort_deletions(std::vector<deletion> &deletions);

} // namespace hv

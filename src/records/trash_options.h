#pragma once

#include "options/run_options.h"
#include "records/known_references.h"
#include "records/trash_inodes.h"

#include <optional>

namespace hv {

/// A run, as the scans hand it to their callbacks: its options, which nothing changes,
/// and the collection that it fills.
struct trash_options {
    trash_options(const run_options &run, _trash_inodes &found)
        : options(run),
          collection(found),
          references(found.records)
    {
    }

    const run_options &options;
    _trash_inodes &collection;
    /// False once results can't be written any more: nothing is carved then.
    bool results_writable = true;

    // What the passes after the first one remember from one record to the next.
    known_references references;
    /// Bytes that may still be read for single records; unknown before the first one.
    std::optional<u64> side_reads_left;
};

} // namespace hv

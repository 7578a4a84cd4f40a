#pragma once

#include "records/trash_options.h"

namespace hv {

/// Makes all rows of the run and writes them to `results_stream`. `volume_offset` is in
/// bytes. Runs once, at the end of every run mode.
void process_entries(std::ostream &results_stream, u64 volume_offset,
                     trash_options &options);

} // namespace hv

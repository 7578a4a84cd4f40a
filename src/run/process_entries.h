#pragma once

#include "options/output_form.h"
#include "trash/resolve.h"

#include <ostream>

namespace hv {

/// Makes all rows of the run and writes them to `results_stream`. Runs once, at the end
/// of every run mode.
void process_entries(std::ostream &results_stream, const output_form &form,
                     const resolve_request &request, _trash_inodes &collection);

} // namespace hv

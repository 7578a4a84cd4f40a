#pragma once

#include "options/option_readers.h"

#include <string>
#include <string_view>

namespace hv {

/// True if `path` is the same file as the value of an option in `args` that names what
/// the run reads. Such a file is evidence: it is neither written nor removed.
bool names_a_source(const arg_list &args, std::string_view path);

/// Makes sure that a results file can be made at `path`, and makes room for it. What
/// stands there is opened for writing but never emptied; a regular file, or a link to
/// one, is then removed, so that the results file is always a new one. Anything else (a
/// device, a pipe, a folder) stays. False if `path` can't be opened for writing or is a
/// source of the run.
bool prepare_output_path(const arg_list &args, const std::string &path);

} // namespace hv

#pragma once

#include "options/cmd_params.h"
#include "options/option_readers.h"

#include <string>
#include <string_view>

namespace hv {

/// True if writing to `path` would change what the run reads: it is the same file as
/// the value of an option in `args` that names a source, or a file that is there
/// already and passes `is_evidence`, which gets the path with its folder resolved. Such
/// a file is neither written nor removed.
bool is_evidence_path(const arg_list &args, const std::string &path,
                      evidence_test is_evidence);

/// The same for a file that is appended to, where a link leads to what is written.
bool appends_to_evidence(const arg_list &args, const std::string &path,
                         evidence_test is_evidence);

/// Makes sure that a results file can be made at `path`, and makes room for it. What is
/// there is opened for writing but never emptied; a regular file, or a link, is then
/// removed, so that the results file is always a new one, and the target of a link
/// stays as it was. Anything else (a device, a pipe, a folder) stays. False if `path`
/// can't be opened for writing or is evidence; then everything stays.
bool prepare_output_path(const arg_list &args, const std::string &path,
                         evidence_test is_evidence);

} // namespace hv

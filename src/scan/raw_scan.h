#pragma once

#include <string_view>

namespace hv {

class trash_options;

/// The pass over a whole medium, from its first byte on, that trusts no file system:
/// every "FILE" record at a multiple of 1024 bytes is parsed, every other cluster is
/// given to the carver. The cluster size is that of the options; it has to be set.
/// False if the medium can't be opened or is shorter than a cluster (4096 bytes for
/// clusters below 1024), or if no bin was seen.
bool run_raw_scan(trash_options &options, std::string_view path);

} // namespace hv

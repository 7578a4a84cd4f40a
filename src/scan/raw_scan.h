#pragma once

#include "base/hv_types.h"

#include <string_view>

namespace hv {

struct trash_options;

/// The pass over a whole medium, from its first byte on, that trusts no file system:
/// every "FILE" record at a multiple of 1024 bytes is parsed, every other cluster is
/// given to the carver. `cluster_size` is in bytes and not 0. False if the medium can't
/// be opened or is shorter than a cluster (4096 bytes for clusters below 1024), or if
/// no bin was seen.
bool run_raw_scan(trash_options &context, std::string_view path, u32 cluster_size);

} // namespace hv

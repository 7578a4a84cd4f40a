#pragma once

#include "scan/scan_item.h"

namespace hv {

/// Hands the clusters of every shadow-copy store of a volume to the carver, as they lie
/// on the volume: old data that Windows copied away before a change. Of each cluster
/// 4096 bytes are read, whatever its size. False if the volume has no catalog of
/// stores, or one that can't be read.
bool scan_shadow_stores(const CNtfs &volume, trash_options &context);

} // namespace hv

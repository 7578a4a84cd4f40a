#pragma once

#include "scan/scan_item.h"

namespace hv {

/// The pass over the free clusters, if the options ask for it: each is handed to the
/// carver. False for a volume that doesn't validate.
bool scan_volume_extras(CNtfs &volume, trash_options &context);

/// Reads every cluster that the volume's `$Bitmap` calls free and hands it to
/// `callback`, with its number and its position on the medium. A cluster that can't be
/// read, or that a sparse image doesn't hold, is skipped. False if the `$Bitmap` can't
/// be read.
bool scan_unallocated(const CNtfs &volume, const scan_callback &callback,
                      trash_options &context);

} // namespace hv

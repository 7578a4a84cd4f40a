#pragma once

#include "scan/scan_item.h"

namespace hv {

/// Looks for "FILE" records and for the head of an `INFO2` in bytes that no file system
/// structure leads to. Records go to `process_mft_record`. The first `INFO2` becomes an
/// entry of `carved_entries`, with all bytes from there to the end of the item, and
/// ends the search: a cluster can't hold two. The item is searched in pieces of the
/// volume's cluster size, or as a whole where there is no volume.
void carve_cluster(const scan_item &item);

} // namespace hv

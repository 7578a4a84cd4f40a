#pragma once

#include "scan/scan_item.h"

namespace hv {

/// Parses one record, of whatever origin, and adds it to the store if the filter keeps
/// it. Each entry and sequence number is stored once. `item.volume` must be set; what
/// the record leads to is read through it.
void process_mft_record(const scan_item &item);

} // namespace hv

#pragma once

#include "evidence/carve_sink.h"

/// What lies after the used bytes of a record or an index block: what was there before
/// it became shorter. Places are reported in bytes from the start of the record or
/// block, whose update sequence has been undone.
namespace hv {

/// Reports contents of `$I` files, records of lists and names after the used bytes of a
/// "FILE" record. Nothing if the record says that it uses more bytes than it has.
void search_record_slack(byte_view record, carve_sink &sink);

/// Reports names after the last live entry of an "INDX" block.
void search_index_slack(byte_view block, carve_sink &sink);

} // namespace hv

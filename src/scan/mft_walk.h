#pragma once

#include "scan/record_parse.h"
#include "scan/scan_source.h"

#include <functional>

namespace hv {

/// Gets each parsed record and its byte position in the source. The record is valid
/// until the call ends.
using record_visitor = std::function<void(parsed_record &record, u64 position)>;

/// Walks over all records of an `$MFT`, from a file or through a disk that has its run
/// list attached, parses each and hands it to `visit`. Damaged records are skipped.
/// False if the source is too short, or if its first record fails the record test.
bool scan_records(const scan_source &source, const parse_options &options,
                  const record_visitor &visit, bool show_progress);

} // namespace hv

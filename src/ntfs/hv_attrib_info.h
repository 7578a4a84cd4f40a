#pragma once

#include "base/hv_types.h"
#include "ntfs/hv_data_run.h"

#include <string>
#include <vector>

namespace hv {

/// The plain description of one attribute of an entry.
struct attrib_info {
    u32 type = 0;
    u16 attribute_id = 0;
    u16 attribute_flags = 0; ///< 1 compressed
    bool non_resident = false;
    u64 source_entry = 0; ///< entry number of the record that holds it
    u64 allocated_size = 0;
    u64 real_size = 0;
    u64 valid_size = 0;
    u64 compressed_size = 0; ///< 0 unless the stream is compressed
    u16 compression_unit = 0;
    std::string stream_name; ///< the attribute's own name
    std::string value_text;
    std::vector<cluster_run> cluster_runs;
    std::vector<u8> content; ///< resident
    u32 record_size = 0;
};

} // namespace hv

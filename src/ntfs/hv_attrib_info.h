#pragma once

#include "base/hv_types.h"
#include "ntfs/hv_data_run.h"
#include "ntfs/hv_ntfs_layout.h"

#include <string>
#include <vector>

namespace hv {

/// One attribute of an $MFT entry, from its header. Sizes are in bytes; those of the
/// non-resident form are 0 for a resident attribute.
struct attrib_info {
    bool is(attribute_type wanted) const { return is_type(type, wanted); }

    u32 type = 0;
    u16 attribute_id = 0;
    u16 attribute_flags = 0; ///< 1: compressed
    bool non_resident = false;
    u64 source_entry = 0; ///< entry number of the record that holds it
    u64 allocated_size = 0;
    u64 real_size = 0;
    u64 valid_size = 0;
    u64 compressed_size = 0;  ///< 0 unless the stream is compressed
    u16 compression_unit = 0; ///< clusters of a unit, as a power of two
    std::string stream_name;  ///< the attribute's own name, in UTF-8
    std::string value_text;   ///< of $VOLUME_NAME: the name, in UTF-8
    std::vector<cluster_run> cluster_runs;
    std::vector<u8> content; ///< of a resident attribute
    u32 record_size = 0;     ///< of the volume
};

} // namespace hv

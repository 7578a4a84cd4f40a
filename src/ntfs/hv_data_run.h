#pragma once

#include "base/hv_types.h"

namespace hv {

/// One run of a file's clusters in its compact form, as an attribute header lists it.
struct flat_run {
    u64 lcn = 0;   ///< first cluster on the volume
    u64 delta = 0; ///< magnitude of the offset to the run before; 0 marks a sparse run
    u32 clusters = 0;
    u64 vcn = 0; ///< first cluster inside the file
    bool negative = false;
};

} // namespace hv

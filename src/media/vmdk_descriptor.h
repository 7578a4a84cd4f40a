#pragma once

#include "base/hv_byte_view.h"

#include <string>
#include <vector>

namespace hv {

/// A file of a virtual disk, as a line of its descriptor says:
/// `RW 4192256 SPARSE "disk-s001.vmdk"`.
struct vmdk_extent_line {
    u64 sectors = 0;
    std::string type; ///< "SPARSE", "FLAT", "VMFS", "VMFSSPARSE", "ZERO", ...
    std::string file; ///< may be empty, as for "ZERO"
    u64 offset = 0;   ///< in the file, sectors
};

/// The text that says what a virtual disk consists of.
struct vmdk_descriptor {
    std::string content_id;
    std::string parent_id;   ///< "ffffffff" or empty without a parent
    std::string parent_name; ///< where the parent was when the child was made
    std::string type;        ///< "streamOptimized", ...
    std::vector<vmdk_extent_line> extents;

    bool has_parent() const { return !parent_id.empty() && parent_id != "ffffffff"; }
};

/// Reads a descriptor up to its first NUL byte. Lines that aren't understood are passed
/// over; keys are taken in any case, values are without their quotes.
vmdk_descriptor parse_vmdk_descriptor(byte_view text);

} // namespace hv

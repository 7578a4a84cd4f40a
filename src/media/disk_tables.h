#pragma once

#include "disk/hv_byte_source.h"

namespace hv {

// Where files of virtual disks must end for all that their tables list, in bytes. A
// file that ends before that is cut off. 0 if the tables can't be read.

u64 vdi_end(const byte_source &file);
u64 parallels_end(const byte_source &file);

} // namespace hv

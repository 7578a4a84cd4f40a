#pragma once

#include "ntfs/ntfs.h"

#include <string>

namespace hv {

/// Why `validate_volume` refused a volume, in words for a log: the file can't be
/// opened, the offset is after the end of the medium, the boot sector is missing, of
/// another file system or encrypted, or the first record of the `$MFT` is no record.
std::string refusal_reason(const CNtfs &volume);

} // namespace hv

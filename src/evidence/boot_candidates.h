#pragma once

#include "evidence/find_volumes.h"

#include <optional>

namespace hv {

/// The volume whose boot sector is at `position` of the medium, or whose copy of it is.
/// Its size and trouble aren't filled in. Empty without a boot sector of NTFS, or if
/// entry 0 of the $MFT isn't where it says; records after a lost entry 0 are enough for
/// a volume that begins at `expected`, or where the boot sector says it does.
std::optional<found_volume> volume_of_boot_sector(const byte_source &medium,
                                                  u64 position, u64 expected = ~u64{0});

/// The volume of a partition: by the boot sector at its start, even if no $MFT is
/// there, or by a copy of it at the partition's end.
std::optional<found_volume> volume_of_slot(const byte_source &medium, u64 offset,
                                           u64 size);

} // namespace hv

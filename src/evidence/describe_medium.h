#pragma once

#include "evidence/find_volumes.h"
#include "evidence/volume_content.h"

namespace hv {

/// A partition, or a medium as a whole, that isn't an NTFS volume.
struct other_content {
    u64 offset = 0;
    u64 size = 0;
    volume_content content = volume_content::unknown;
    /// For a user: what it is, where, and what to try, such as "BitLocker volume at
    /// offset 1048576; unlock it with ...".
    std::string text;
};

/// What a medium is.
struct medium_description {
    container_kind container = container_kind::none;
    std::string table; ///< "MBR", "GPT", "copy of the GPT", "lost table", "no table"
    std::vector<found_volume> volumes; ///< those of NTFS, by offset
    std::vector<other_content> others; ///< by offset
    /// Why nothing can be read, and what to try, as a sentence for a user; empty if
    /// there is a volume.
    std::string refusal;
};

/// Says what a medium is without reading much of it: its table, its volumes, and what
/// its other partitions begin with; or which container it is that has to be opened
/// first. Of a container nothing else is filled in.
medium_description describe_medium(const byte_source &medium);

} // namespace hv

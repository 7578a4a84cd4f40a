#pragma once

#include "media/container_kind.h"

namespace hv {

/// What a partition, or a medium without a table, begins with.
enum class volume_content {
    unknown,
    empty, ///< zeros
    ntfs,
    bitlocker,
    refs,
    exfat,
    fat,
    ext,
    xfs,
    btrfs,
    hfs,
    apfs,
    luks,
    lvm,
    dynamic_disk,
    storage_pool,
    swap,
    iso9660
};

/// Recognises the content at `offset` of a medium by its first bytes. `ntfs` says only
/// that the name is there; whether the volume can be opened is another question.
volume_content read_volume_content(const byte_source &medium, u64 offset);

/// See `content_texts`.
content_texts texts_of(volume_content content);

} // namespace hv

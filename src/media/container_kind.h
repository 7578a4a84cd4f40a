#pragma once

#include "disk/hv_byte_source.h"

#include <string_view>

namespace hv {

/// A file format that keeps a disk in a form of its own, or that isn't a disk at all.
enum class container_kind {
    none,
    ewf,         ///< E01
    ewf_2,       ///< Ex01
    ewf_logical, ///< L01, Lx01: files, no disk
    vmdk,
    vmdk_descriptor, ///< a text that names the files of a virtual disk
    vhd,             ///< that grows or differs
    vhdx,
    qcow,
    vdi,
    aff,
    parallels,
    dmg,
    qed,
    cloop,
    gzip,
    zip,
    seven_zip,
    xz,
    bzip2,
    zstd,
    rar,
    mft ///< a copy of an $MFT
};

/// Recognises a container by its first and last bytes. A virtual disk of fixed size,
/// whose only addition is a footer, is a raw image and not a container.
container_kind read_container_kind(const byte_source &medium);

/// For a user: what it is, and what to do with it. The advice is empty where there is
/// nothing to do.
struct content_texts {
    std::string_view name;
    std::string_view advice;
};
content_texts texts_of(container_kind kind);

} // namespace hv

#pragma once

#include "disk/hv_patched_source.h"
#include "disk/hv_source_bytes.h"

#include <vector>

namespace hv {

/// A stretch of a source that reads as something else: as `bytes` or, where these are
/// empty, as the `length` bytes at `from` of the same source.
struct source_patch {
    u64 offset = 0;
    std::vector<u8> bytes;
    u64 from = 0;
    u64 length = 0;
};

/// A source with its patches; the source itself if there are none. A patch that leaves
/// the source is left out.
inline byte_source_ptr patch_source(const byte_source_ptr &source,
                                    const std::vector<source_patch> &patches)
{
    if (patches.empty()) return source;
    auto patched = std::make_shared<patched_source>(source);
    for (const source_patch &patch : patches) {
        if (patch.bytes.empty())
            patched->replace(patch.offset, patch.length, patch.from);
        else
            patched->replace(patch.offset, patch.bytes);
    }
    return patched;
}

} // namespace hv

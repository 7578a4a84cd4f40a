#pragma once

#include "base/hv_log.h"
#include "disk/hv_run_index.h"
#include "ntfs/hv_attrib_info.h"

#include <ostream>

namespace hv {

class CNtfs;

/// Reads `size` bytes at `offset` of the stream that `runs` describe; `size` comes back
/// as the bytes delivered. A plain run list may stand for the index, but costs a pass
/// over it with each call. `flags` goes in and comes out as `mapped_status`. The read
/// ends at the first cluster that no run holds, that can't be read, or that the end of
/// the target cuts short. False for no buffer or size, for a range without any cluster,
/// or if the first cluster of the range can't be read.
bool read_stream_range(const CNtfs &volume, const run_index &runs, u64 offset,
                       u8 *buffer, u32 &size, u64 &flags);

struct stream_options {
    bool whole_allocation = false; ///< all allocated bytes, as they lie on the volume
    bool compact = false;          ///< holes are left out instead of read as zeros
    bool follow_slack = false;     ///< go on behind the stream's end
    u64 max_bytes = ~u64{0};       ///< for a reader that keeps them all in memory
    log_handle log = {};
};

/// Writes an attribute to `out`: the content of a resident one; of the others the
/// larger of real and valid size, as far as the runs reach and can be read, expanded if
/// it is compressed. Blocks of an index get their update sequence applied. Never more
/// than `max_bytes` and, with `compact`, than the medium has, unless compressed. False
/// if nothing was written, for a bad stream, or for a lack of memory.
bool read_attribute_stream(const CNtfs &volume, const attrib_info &attribute,
                           std::ostream &out, const stream_options &options);

/// `read_attribute_stream` for the first unnamed $DATA of an entry. False if there is
/// none.
bool read_inode_data(const CNtfs &volume, u64 entry, std::ostream &out,
                     const stream_options &options);

} // namespace hv

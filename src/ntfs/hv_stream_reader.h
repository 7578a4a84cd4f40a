#pragma once

#include "base/hv_log.h"
#include "disk/hv_run_index.h"
#include "ntfs/hv_attrib_info.h"

#include <ostream>

namespace hv {

class CNtfs;

/// Reads `size` bytes at byte `offset` of the stream that `runs` describe, as they are
/// on the volume; `size` comes back as the bytes delivered. A plain run list works as
/// well, but each call then makes an index of it. `flags` goes in and comes out as
/// `mapped_status`. The read ends at the first cluster that no run holds, that can't be
/// read, or that the end of the medium cuts short. False for no buffer or size, for a
/// range without any cluster, or if the first cluster of the range can't be read.
bool read_stream_range(const CNtfs &volume, const run_index &runs, u64 offset,
                       u8 *buffer, u32 &size, u64 &flags);

/// How a stream is read.
struct stream_options {
    bool whole_allocation = false; ///< all allocated bytes, as they are on the volume
    bool compact = false;          ///< holes are left out instead of read as zeros
    bool follow_slack = false;     ///< go on after the stream's end
    u64 max_bytes = ~u64{0};       ///< written; for a reader that keeps all in memory
    log_handle log = {};           ///< gets the size, or why there is none
};

/// Writes the content of an attribute to `out`. For a non-resident one this is the
/// larger of its real and its valid size, up to where the runs end or can't be read;
/// compressed streams are expanded, and index blocks get their update sequence applied.
/// With `compact`, what isn't compressed ends at the size of the medium. False if
/// nothing was written, if `out` fails, or for too little memory.
bool read_attribute_stream(const CNtfs &volume, const attrib_info &attribute,
                           std::ostream &out, const stream_options &options);

/// `read_attribute_stream` for the first unnamed $DATA of an entry. False as well if
/// the entry has none.
bool read_inode_data(const CNtfs &volume, u64 entry, std::ostream &out,
                     const stream_options &options);

} // namespace hv

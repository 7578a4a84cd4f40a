#pragma once

#include "base/hv_byte_view.h"
#include "disk/hv_mapped_window.h"
#include "disk/hv_raw_disk_io.h"

#include <vector>

namespace hv {

/// Provides the bytes of a medium to a scan that goes through it from start to end. It
/// reads large pieces, maps a plain file into memory where the system allows that, and
/// knows the holes of a sparse one. Where it has no bytes, the scan has to read the
/// disk itself.
class medium_reader {
public:
    explicit medium_reader(const RAW_DISK_IO &disk);
    medium_reader(const medium_reader &) = delete;
    medium_reader &operator=(const medium_reader &) = delete;

    /// The `length` bytes at byte `offset`, or an empty view if not all of them can be
    /// read. It is valid until the next call. `wanted_in_all` is how many bytes from
    /// `offset` on the scan is going to ask for without a gap; more isn't read.
    byte_view view(u64 offset, u32 length, u64 wanted_in_all);

    /// The first position from `offset` on that isn't in a hole of a sparse file; the
    /// end of the medium if there is none. Holes read as zeros.
    u64 next_data(u64 offset);

private:
    bool covers(u64 offset, u32 length) const;
    bool map_window(u64 offset, u64 length);
    bool read_window(u64 offset, u64 length);

    const RAW_DISK_IO &m_disk;
    int m_descriptor; ///< of a file that can be mapped; -1 for none
    mapped_window m_window;
    std::vector<u8> m_buffer; ///< what was read, if nothing is mapped
    u64 m_buffer_offset = 0;
    u64 m_data_begin = 0; ///< a stretch without holes
    u64 m_data_end = 0;
    u64 m_last_hole = ~u64{0}; ///< from here on there is no data
};

} // namespace hv

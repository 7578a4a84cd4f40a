#pragma once

#include "base/hv_byte_view.h"
#include "disk/hv_raw_disk_io.h"

#include <vector>

namespace hv {

/// Hands out the bytes of a medium to a scan that goes through it from front to back.
/// It reads in large pieces, maps a plain file instead of copying it where the system
/// allows that, and knows the holes of a sparse one. Where it can't deliver, the scan
/// falls back to the reads of the disk itself, whose failure decides. There may be one
/// such reader at a time with a mapping.
class medium_reader {
public:
    explicit medium_reader(const RAW_DISK_IO &disk);
    ~medium_reader();
    medium_reader(const medium_reader &) = delete;
    medium_reader &operator=(const medium_reader &) = delete;

    /// The `length` bytes at `offset`, or an empty view if not all of them can be had.
    /// It holds until the next call. `ahead` is how many bytes from `offset` on the
    /// scan is going to ask for without a gap; more isn't read.
    byte_view view(u64 offset, u32 length, u64 ahead);

    /// The first position from `offset` on that no hole of a sparse file covers; the
    /// end of the medium if there is none. Holes read as zeros.
    u64 next_data(u64 offset);

private:
    bool covers(u64 offset, u32 length) const;
    bool map_window(u64 offset, u64 length);
    bool read_window(u64 offset, u64 length);
    void unmap();

    const RAW_DISK_IO &m_disk;
    int m_descriptor; ///< of a file that can be mapped; -1 for none
    const u8 *m_window = nullptr;
    u64 m_window_offset = 0;
    u64 m_window_size = 0;
    bool m_mapped = false;
    std::vector<u8> m_buffer;
    u64 m_data_begin = 0; ///< a stretch that is known to be no hole
    u64 m_data_end = 0;
    u64 m_last_hole = ~u64{0}; ///< from here on there is no data
};

} // namespace hv

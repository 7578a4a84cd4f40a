#pragma once

#include "base/hv_open_failure.h"
#include "disk/hv_bad_sectors.h"
#include "disk/hv_byte_source.h"
#include "disk/hv_mapped_window.h"

#include <string>

namespace hv {

/// A raw image or a device. It is only ever opened for reading.
class file_source : public byte_source {
public:
    /// Opens a path; see `failure`.
    explicit file_source(const std::string &path);
    ~file_source() override;

    /// Why there are no bytes, as for a folder or a FIFO; `none` if it is open.
    open_failure failure() const { return m_failure; }

    /// As of the opening; 0 if it isn't open. Bytes that a file has lost since then
    /// count as unreadable.
    u64 size() const override { return m_size; }
    u64 stored_size() const override;
    std::size_t read(u64 offset, std::span<u8> out) const override;
    std::span<const u8> view(u64 offset, std::size_t length) const override;
    u64 next_data(u64 offset) const override;
    u64 next_hole(u64 offset) const override;
    u64 unreadable() const override;
    std::vector<unread_part> unreadable_in(u64 offset, u64 length) const override
    {
        return m_bad.within(offset, length);
    }

private:
    void count_failed_window() const;

    int m_descriptor = -1;
    bool m_is_mappable = false;
    u64 m_size = 0;
    open_failure m_failure = open_failure::none;
    mutable bad_sectors m_bad;
    mutable mapped_window m_window;
};

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"

#include <csignal>

namespace hv {

/// A stretch of a file that is mapped into memory, so that its bytes needn't be copied.
/// A page that can't be read, because of a bad sector or because the file was truncated
/// meanwhile, reads as zeros from then on, and the window has failed. Offsets and
/// lengths are in bytes. For one thread; there may be several windows.
class mapped_window {
public:
    mapped_window() = default;
    ~mapped_window() { unmap(); }
    mapped_window(const mapped_window &) = delete;
    mapped_window &operator=(const mapped_window &) = delete;

    /// Whether reading a mapping of an open file is as good as reading the file. Not
    /// for devices, nor for files that another process provides.
    static bool is_useful_for(int descriptor);

    /// Takes the place of what was mapped before. False, with nothing mapped, if the
    /// system can't map the file.
    bool map(int descriptor, u64 offset, u64 length);
    void unmap();
    bool is_mapped() const { return m_bytes != nullptr; }
    u64 offset() const { return m_offset; }
    u64 size() const { return m_size; }
    bool covers(u64 offset, u64 length) const;

    /// The bytes of a stretch that the window covers; empty if not all of them can be
    /// read. Good until the window is mapped anew.
    byte_view view(u64 offset, u64 length) const;
    /// Whether a page of the window couldn't be read.
    bool has_failed() const { return m_failed != 0; }

private:
    static void replace_faulting_page(int number, siginfo_t *info, void *);
    static void guard_mappings();
    bool replace_page_at(const u8 *fault);

    static inline mapped_window *first = nullptr; ///< of all windows that are mapped
    mapped_window *m_next = nullptr;
    const u8 *m_bytes = nullptr;
    u64 m_offset = 0; ///< in the file
    u64 m_size = 0;
    volatile std::sig_atomic_t m_failed = 0;
};

} // namespace hv

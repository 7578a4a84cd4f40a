#pragma once

#include "base/hv_types.h"

namespace hv {

/// Has the system fetch what a pass over a file comes to next, while the pass looks at
/// what it has. Nothing waits for it, and nothing depends on it: what can't be fetched
/// fails when it is read. Offsets are in bytes.
class read_ahead {
public:
    /// The most that is fetched ahead of a pass. Requests this large keep a disk, an
    /// array of disks or a network busy.
    static constexpr u64 max_depth = u64{16} << 20;

    /// The pass has `length` bytes at `offset` in hand, and won't go beyond `end`. Only
    /// a pass that goes on where it was is helped, with as much as it has passed, so
    /// that single reads and short passes fetch nothing.
    void pass(int descriptor, u64 offset, u64 length, u64 end);

private:
    u64 m_begin = 0;     ///< of what was passed without a gap
    u64 m_position = 0;  ///< where the pass goes on
    u64 m_requested = 0; ///< the end of what was asked for
};

} // namespace hv

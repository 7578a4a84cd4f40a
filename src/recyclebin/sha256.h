#pragma once

#include "base/hv_byte_view.h"

#include <array>
#include <string>

namespace hv {

/// SHA-256 of bytes that come in pieces.
class sha256 {
public:
    void add(byte_view bytes);
    /// Ends the sum; 64 digits, in lower case.
    std::string finish();

private:
    void add_block(byte_view block);

    std::array<u32, 8> m_state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                  0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<u8, 64> m_pending{};
    u64 m_length = 0; // bytes
};

} // namespace hv

#pragma once

#include "samples/bytes.h"

#include <array>

namespace test_support {

/// The check sum of GPTs, archives and much else.
inline u32 crc32(const byte_vector &bytes)
{
    static const auto table = [] {
        std::array<u32, 256> sums{};
        for (u32 i = 0; i < sums.size(); ++i) {
            sums[i] = i;
            for (int bit = 0; bit < 8; ++bit)
                sums[i] = sums[i] >> 1U ^ ((sums[i] & 1U) != 0 ? 0xEDB88320U : 0U);
        }
        return sums;
    }();
    u32 sum = ~u32{0};
    for (const u8 byte : bytes) sum = sum >> 8U ^ table[(sum ^ byte) & 0xFFU];
    return ~sum;
}

} // namespace test_support

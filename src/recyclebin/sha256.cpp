#include "recyclebin/sha256.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace hv {

namespace {

// The first 32 bits of the fractions of the cube roots of the first 64 primes.
constexpr std::array<u32, 64> round_constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
    0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe,
    0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
    0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
    0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc,
    0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b,
    0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116,
    0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7,
    0xc67178f2};

u32 big_endian(byte_view bytes, std::size_t at)
{
    u32 word = 0;
    bytes.read(at, word);
    return __builtin_bswap32(word);
}

// The 16 words of a block, and 48 that follow from them.
std::array<u32, 64> schedule(byte_view block)
{
    std::array<u32, 64> w{};
    for (std::size_t i = 0; i < 16; ++i) w[i] = big_endian(block, 4 * i);
    for (std::size_t i = 16; i < 64; ++i) {
        const u32 s0 =
            std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const u32 s1 =
            std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    return w;
}

} // namespace

void sha256::add_block(byte_view block)
{
    const std::array<u32, 64> w = schedule(block);
    auto [a, b, c, d, e, f, g, h] = m_state;
    for (std::size_t i = 0; i < 64; ++i) {
        const u32 s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const u32 t1 = h + s1 + ((e & f) ^ (~e & g)) + round_constants[i] + w[i];
        const u32 s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const u32 t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
        h = std::exchange(g, std::exchange(f, std::exchange(e, d + t1)));
        d = std::exchange(c, std::exchange(b, std::exchange(a, t1 + t2)));
    }
    const std::array<u32, 8> sums = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < 8; ++i) m_state[i] += sums[i];
}

void sha256::add(byte_view bytes)
{
    while (!bytes.empty()) {
        const std::size_t used = m_length % m_pending.size();
        const byte_view part = bytes.clip(0, m_pending.size() - used);
        std::copy(part.bytes().begin(), part.bytes().end(), m_pending.begin() + used);
        m_length += part.size();
        if (m_length % m_pending.size() == 0) add_block({m_pending});
        bytes = bytes.from(part.size());
    }
}

std::string sha256::finish()
{
    const u64 bits = m_length * 8;
    const u8 end_mark = 0x80;
    const u8 zero = 0;
    add({&end_mark, 1});
    while (m_length % m_pending.size() != 56) add({&zero, 1});
    std::array<u8, 8> length{};
    for (std::size_t i = 0; i < 8; ++i)
        length[i] = static_cast<u8>(bits >> (56 - 8 * i));
    add({length});
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const u32 word : m_state)
        for (int shift = 28; shift >= 0; shift -= 4) text += digits[word >> shift & 15];
    return text;
}

} // namespace hv

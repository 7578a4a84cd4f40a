#include "lab/sha256.h"

#include <array>
#include <bit>
#include <cstdio>

namespace lab {

namespace {

using test_support::byte_vector;
using test_support::u32;
using test_support::u64;
using test_support::u8;

constexpr std::size_t block_size = 64;

using hash_state = std::array<u32, 8>;

// The first 32 bits after the point of the cube roots of the first 64 primes.
constexpr std::array<u32, 64> constants = {
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

u32 big_endian(const u8 *bytes)
{
    return u32{bytes[0]} << 24 | u32{bytes[1]} << 16 | u32{bytes[2]} << 8 | bytes[3];
}

void add_block(hash_state &state, const u8 *block)
{
    std::array<u32, 64> words{};
    for (std::size_t i = 0; i < 16; ++i) words[i] = big_endian(block + 4 * i);
    for (std::size_t i = 16; i < 64; ++i) {
        const u32 a = words[i - 15], b = words[i - 2];
        words[i] = words[i - 16] + words[i - 7] +
                   (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3) +
                   (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10);
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < 64; ++i) {
        const u32 first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                          ((e & f) ^ (~e & g)) + constants[i] + words[i];
        const u32 second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) +
                           ((a & b) ^ (a & c) ^ (b & c));
        h = g, g = f, f = e, e = d + first;
        d = c, c = b, b = a, a = first + second;
    }
    const hash_state turned = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) state[i] += turned[i];
}

} // namespace

std::string sha256(const byte_vector &bytes)
{
    hash_state state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    const std::size_t whole = bytes.size() / block_size * block_size;
    for (std::size_t at = 0; at < whole; at += block_size)
        add_block(state, bytes.data() + at);
    byte_vector rest(bytes.begin() + static_cast<std::ptrdiff_t>(whole), bytes.end());
    rest.push_back(0x80);
    rest.resize(rest.size() + 8 <= block_size ? block_size : 2 * block_size);
    for (std::size_t i = 0; i < 8; ++i) // the count of bits, big endian
        rest[rest.size() - 1 - i] = static_cast<u8>(u64{bytes.size()} * 8 >> 8 * i);
    for (std::size_t at = 0; at < rest.size(); at += block_size)
        add_block(state, rest.data() + at);
    std::string text;
    for (const u32 word : state) {
        std::array<char, 9> digits{};
        std::snprintf(digits.data(), digits.size(), "%08x", word);
        text += digits.data();
    }
    return text;
}

} // namespace lab

#include "ntfs/hv_lznt1.h"

#include <gtest/gtest.h>

#include <random>

using namespace hv;

namespace {

std::string operator""_b(const char *text, std::size_t size)
{
    return {text, size};
}
byte_view view(const std::string &bytes)
{
    return {static_cast<const u8 *>(static_cast<const void *>(bytes.data())),
            bytes.size()};
}
std::string text(std::span<const u8> bytes)
{
    return {bytes.begin(), bytes.end()};
}

// A payload of literals and matches by chance, and the 4096 bytes that it stands for.
// Distances take as many bits as the bytes so far need, at least 4, and lengths the
// other bits of the token.
std::pair<std::string, std::string> random_payload(unsigned seed)
{
    std::mt19937 random(seed);
    std::string payload, plain;
    while (plain.size() < 4096) {
        const std::size_t flags_at = payload.size();
        payload.push_back(0);
        for (unsigned item = 0; item < 8 && plain.size() < 4096; ++item) {
            unsigned bits = 4;
            while ((std::size_t{1} << bits) < plain.size()) ++bits;
            if (plain.empty() || plain.size() > 4093 || random() % 2 == 0) {
                payload.push_back(static_cast<char>(random() & 0xFF));
                plain.push_back(payload.back());
                continue;
            }
            const std::size_t distance = 1 + random() % plain.size();
            const std::size_t length =
                3 + random() % std::min<std::size_t>(
                                   {1u << (16 - bits), 40, 4094 - plain.size()});
            const std::size_t token = (distance - 1) << (16 - bits) | (length - 3);
            payload[flags_at] = static_cast<char>(payload[flags_at] | 1 << item);
            payload += {static_cast<char>(token & 0xFF), static_cast<char>(token >> 8)};
            for (std::size_t i = 0; i < length; ++i)
                plain.push_back(plain[plain.size() - distance]);
        }
    }
    return {payload, plain};
}

std::string chunk(const std::string &payload)
{
    const std::size_t header = 0xB000 + payload.size() - 1;
    return std::string{static_cast<char>(header & 0xFF),
                       static_cast<char>(header >> 8)} +
           payload;
}

TEST(Lznt1, DecodesChunks)
{
    const std::pair<std::string, std::string> good[] = {{"\x08"
                                                         "abc\x06\x20"_b,
                                                         "abcabcabcabc\0\0"_b},
                                                        {"\x02x\xFF\x0F"_b, "xxxxx"_b},
                                                        {"\x02x\0"_b, "x\0"_b},
                                                        {"\0"
                                                         "12345678"_b,
                                                         "12345678##"_b},
                                                        {""_b, "\0\0\0"_b}};
    for (const auto &[input, output] : good) {
        std::vector<u8> out(output.size(), '#');
        EXPECT_TRUE(decode_lznt1_chunk(view(input), out));
        EXPECT_EQ(text(out), output);
    }
    std::vector<u8> out(2, '#');
    EXPECT_FALSE(decode_lznt1_chunk(view("\x01\0\0"_b), out));
    EXPECT_EQ(text(out), "\0\0"_b);
    EXPECT_FALSE(decode_lznt1_chunk(view("\x02x\0\x10"_b), out));
    EXPECT_EQ(text(out), "x\0"_b) << "what came before the bad token";
}

// What `wanted` bytes of a unit expand to; "(none)" if it can't be expanded.
std::string expanded(const std::string &unit, std::size_t wanted,
                     bool found_sparse = true)
{
    std::vector<u8> out(wanted);
    std::size_t count = 0;
    const bool good = expand_unit(out, count, view(unit), found_sparse);
    return good ? text(std::span(out).first(count)) : "(none)";
}

TEST(Lznt1, ExpandsWhatWasCompressed)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        const auto [payload, block] = random_payload(seed);
        const auto [second_payload, second] = random_payload(seed + 100);
        const std::string stored(4096, 's'), plain = block + stored + second;
        std::string unit = chunk(payload) + "\xFF\x3F" + stored + chunk(second_payload);
        unit.resize(65536);
        for (const std::size_t wanted : {1u, 10000u, 20000u})
            EXPECT_TRUE(expanded(unit, wanted) == plain.substr(0, wanted))
                << wanted << " seed " << seed;
    }
}

TEST(Lznt1, KnowsUnitsThatAreNoChunks)
{
    const std::string xs(4096, 'x'), zeros(4096, '\0'), full = chunk("\x02x\xFC\x0F"_b);
    const std::string stored = "\xFF\x3F", junk = "\x34\x12", bad = chunk("\x01\0\0"_b);
    const std::string nine = chunk("\0"
                                   "12345678\0"
                                   "9"_b),
                      seven = chunk("\0"
                                    "1234567"_b);
    // Stored plain, unless it begins like a stored chunk.
    EXPECT_TRUE(expanded(full + junk, 5000, false) == full + junk);
    EXPECT_EQ(expanded("abcdef", 3, false), "abc");
    EXPECT_TRUE(expanded(stored + xs + nine, 4097, false) == xs + "1");
    // A short chunk keeps the end of the one before, a very short one doesn't.
    EXPECT_TRUE(expanded(full + nine, 8192) == xs + "123456789" + xs.substr(9));
    EXPECT_TRUE(expanded(full + seven, 8192) == xs + "1234567" + zeros.substr(7));
    EXPECT_TRUE(expanded(stored + "a", 4097) == "a" + zeros.substr(1));
    EXPECT_EQ(expanded("\0\0"_b + xs.substr(2) + nine, 9), "123456789") << "padding";
    // No chunks, or none after all that is wanted.
    EXPECT_TRUE(expanded(junk + full, 9000) == junk + full);
    EXPECT_EQ(expanded(full + junk, 4), full.substr(0, 4));
    EXPECT_EQ(expanded(full + bad, 4), full.substr(0, 4));
    EXPECT_EQ(expanded(bad + zeros, 100), "(none)");
    EXPECT_EQ(expanded(nine, 0), "(none)");
    EXPECT_EQ(expanded("", 10), "(none)");
}

} // namespace

#include "ntfs/hv_lznt1.h"

#include "samples/ntfs_structures.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>

using namespace hv;
using namespace std::string_literals;
using namespace test_support;

namespace {

std::string chunk(const std::string &payload)
{
    const std::size_t header = 0xB000 + payload.size() - 1;
    return std::string{static_cast<char>(header & 0xFF),
                       static_cast<char>(header >> 8)} +
           payload;
}

TEST(Lznt1, DecodesChunks)
{
    const std::tuple<std::string, bool, std::string> cases[] = {
        {"\x08\x61\x62\x63\x06\x20"s, true, "abcabcabcabc\0\0"s},
        {"\x02x\xFF\x0F"s, true, "xxxxx"},
        {"\x02x\0"s, true, "x\0"s},
        {"\0+1234567"s, true, "+1234567##"},
        {"", true, "\0\0\0"s},
        {"\x01\0\0"s, false, "\0\0"s},
        {"\x02x\0\x10"s, false, "x\0"s}}; // what came before the bad token
    for (const auto &[input, good, output] : cases) {
        std::vector<u8> out(output.size(), '#');
        EXPECT_EQ(decode_lznt1_chunk(byte_view{bytes_of(input)}, out), good) << output;
        EXPECT_EQ(text(out), output);
    }
}

// What `wanted` bytes of a unit expand to; "(none)" if it can't be expanded.
std::string expanded(const std::string &unit, std::size_t wanted,
                     bool found_sparse = true)
{
    std::vector<u8> out(wanted);
    std::size_t count = 0;
    const bool good = expand_unit(out, count, byte_view{bytes_of(unit)}, found_sparse);
    return good ? text(out).substr(0, count) : "(none)";
}

// The fewer letters, the longer the matches; the more, the further off.
TEST(Lznt1, ExpandsWhatWasCompressed)
{
    std::mt19937 random(7);
    for (unsigned letters = 2; letters < 18; ++letters) {
        byte_vector plain(3 * 4096); // the second block is stored
        for (std::size_t i = 0; i < plain.size(); ++i)
            plain[i] = static_cast<u8>(random() % (i / 4096 == 1 ? 256 : letters));
        std::string unit = text(ntfs_structures::compress_unit(plain));
        EXPECT_LT(unit.size(), plain.size() - 200) << letters;
        unit.resize(65536);
        for (const std::size_t wanted : {1u, 10000u, 20000u})
            EXPECT_TRUE(expanded(unit, wanted) == text(plain).substr(0, wanted))
                << wanted << " of " << letters;
    }
}

TEST(Lznt1, KnowsUnitsThatAreNoChunks)
{
    const std::string xs(4096, 'x'), zeros(4096, '\0'), full = chunk("\x02x\xFC\x0F"s);
    const std::string stored = "\xFF\x3F", junk = "\x34\x12", bad = chunk("\x01\0\0"s);
    const std::string nine = chunk("\0+2345678\0009"s), seven = chunk("\0+234567"s);
    // Stored plain, unless it begins like a stored chunk.
    EXPECT_TRUE(expanded(full + junk, 5000, false) == full + junk);
    EXPECT_EQ(expanded("abcdef", 3, false), "abc");
    EXPECT_TRUE(expanded(stored + xs + nine, 4097, false) == xs + "+");
    // A short chunk keeps the end of the one before, a very short one doesn't.
    EXPECT_TRUE(expanded(full + nine, 8192) == xs + "+23456789" + xs.substr(9));
    EXPECT_TRUE(expanded(full + seven, 8192) == xs + "+234567" + zeros.substr(7));
    EXPECT_TRUE(expanded(stored + "a", 4097) == "a" + zeros.substr(1));
    EXPECT_EQ(expanded("\0\0"s + xs.substr(2) + nine, 9), "+23456789") << "padding";
    // No chunks, or none after all that is wanted.
    EXPECT_TRUE(expanded(junk + full, 9000) == junk + full);
    EXPECT_EQ(expanded(full + junk, 4), full.substr(0, 4));
    EXPECT_EQ(expanded(full + bad, 4), full.substr(0, 4));
    EXPECT_EQ(expanded(bad + zeros, 100), "(none)");
    EXPECT_EQ(expanded(nine, 0), "(none)");
    EXPECT_EQ(expanded("", 10), "(none)");
}

} // namespace

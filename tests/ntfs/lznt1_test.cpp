#include "ntfs/hv_lznt1.h"

#include <gtest/gtest.h>

#include <random>

using namespace hv;

// clang-format off
namespace {

std::string operator""_b(const char *text, std::size_t size) { return {text, size}; }
byte_view view(const std::string &bytes) { return {static_cast<const u8 *>(static_cast<const void *>(bytes.data())), bytes.size()}; }
std::string text(std::span<const u8> bytes) { return {bytes.begin(), bytes.end()}; }

// A payload of literals and matches by chance, and the 4096 bytes that it stands for. Distances take as many bits as
// the bytes so far need, at least 4, and lengths the other bits of the token.
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
            const std::size_t length = 3 + random() % std::min<std::size_t>({1u << (16 - bits), 40, 4094 - plain.size()});
            const std::size_t token = (distance - 1) << (16 - bits) | (length - 3);
            payload[flags_at] = static_cast<char>(payload[flags_at] | 1 << item);
            payload += {static_cast<char>(token & 0xFF), static_cast<char>(token >> 8)};
            for (std::size_t i = 0; i < length; ++i) plain.push_back(plain[plain.size() - distance]);
        }
    }
    return {payload, plain};
}

std::string chunk(const std::string &payload)
{
    const std::size_t header = 0xB000 + payload.size() - 1;
    return std::string{static_cast<char>(header & 0xFF), static_cast<char>(header >> 8)} + payload;
}

} // namespace

TEST(Lznt1, DecodesChunks)
{
    for (const auto &[input, good, output] : {
             std::tuple{"\x08" "abc\x06\x20"_b, true, "abcabcabcabc\0\0"_b}, {"\x02x\xFF\x0F"_b, true, "xxxxx"_b},
             {"\x01\0\0"_b, false, "\0\0"_b}, {"\x02x\0\x10"_b, false, "x\0"_b}, {"\x02x\0"_b, true, "x\0"_b},
             {"\0" "12345678"_b, true, "12345678##"_b}, {""_b, true, "\0\0\0"_b}}) {
        std::vector<u8> out(output.size(), '#');
        EXPECT_EQ(decode_lznt1_chunk(view(input), out), good) << testing::PrintToString(input);
        EXPECT_EQ(text(out), output);
    }
}

TEST(Lznt1, ExpandsWhatWasCompressed)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        const auto [payload, block] = random_payload(seed);
        const auto [second_payload, second] = random_payload(seed + 100);
        const std::string stored(4096, 's'), plain = block + stored + second;
        std::string unit = chunk(payload) + "\xFF\x3F" + stored + chunk(second_payload);
        unit.resize(65536);
        for (const std::size_t wanted : {1u, 10000u, 20000u}) {
            std::vector<u8> out(wanted);
            std::size_t count = 0;
            EXPECT_TRUE(expand_unit(out, count, view(unit), true));
            EXPECT_TRUE(text(std::span(out).first(count)) == plain.substr(0, wanted)) << wanted << " seed " << seed;
        }
    }
}

TEST(Lznt1, KnowsUnitsThatAreNoChunks)
{
    const std::string xs(4096, 'x'), full = chunk("\x02x\xFC\x0F"_b), junk = "\x34\x12", bad = chunk("\x01\0\0"_b);
    const std::string nine = chunk("\0" "12345678\0" "9"_b), seven = chunk("\0" "1234567"_b);
    const struct { const char *name; std::string unit; bool sparse; std::size_t wanted; bool good; std::string output; } cases[] = {
        {"StoredPlain", full + junk, false, 5000, true, full + junk}, {"InPart", "abcdef", false, 3, true, "abc"},
        {"BeginsLikeAStoredChunk", "\xFF\x3F" + xs + nine, false, 4097, true, xs + "1"},
        {"ShortChunkKeepsTheOneBefore", full + nine, true, 8192, true, xs + "123456789" + xs.substr(9)},
        {"VeryShortChunkDoesNot", full + seven, true, 8192, true, xs + "1234567" + std::string(4089, '\0')},
        {"CutStoredChunk", "\xFF\x3F" "a"_b, true, 4097, true, "a" + std::string(4095, '\0')},
        {"PaddingToTheNextBlock", "\0\0"_b + xs.substr(2) + nine, true, 9, true, "123456789"},
        {"Junk", junk + full, true, 9000, true, junk + full},
        {"JunkBehindAllThatIsWanted", full + junk, true, 4, true, full.substr(0, 4)},
        {"BadChunkBehindAllThatIsWanted", full + bad, true, 4, true, full.substr(0, 4)},
        {"BadChunkAndZeros", bad + std::string(4096, '\0'), true, 100, false, ""},
        {"NothingWanted", nine, true, 0, false, ""}, {"NothingThere", "", true, 10, false, ""}};
    for (const auto &[name, unit, sparse, wanted, good, output] : cases) {
        std::vector<u8> out(wanted);
        std::size_t count = 0;
        EXPECT_EQ(expand_unit(out, count, view(unit), sparse), good) << name;
        EXPECT_TRUE(text(std::span(out).first(count)) == output) << name << " gave " << count;
    }
}

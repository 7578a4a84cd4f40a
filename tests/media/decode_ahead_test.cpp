#include "media/decode_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>

using namespace hv;

namespace {

constexpr u32 block = 1 << 15;
constexpr u64 disk_bytes = u64{12} << 20;
constexpr u64 bad_block = disk_bytes / 2;

u8 byte_at(u64 offset)
{
    return static_cast<u8>(offset * 0x9E3779B97F4A7C15U >> 56U);
}

// A decoder that fails on every read that touches the bad block.
bool decode(u64 offset, std::span<u8> out)
{
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = byte_at(offset + i);
    return offset + out.size() <= bad_block || offset >= bad_block + block;
}

// Reads some blocks. Empty, or what is wrong with the answer.
std::string fault_of_read(decode_ahead &ahead, u64 offset, u64 length)
{
    std::vector<u8> out(std::min(length, disk_bytes - offset));
    const bool touches = offset < bad_block + block && offset + out.size() > bad_block;
    const std::string where = "read at " + std::to_string(offset);
    if (ahead.read(offset, out) == touches) return where + " has the wrong result";
    for (std::size_t i = 0; !touches && i < out.size(); i += 1021)
        if (out[i] != byte_at(offset + i)) return where + " has wrong bytes";
    return {};
}

// Passes in steps of several sizes, with single reads between them, forth and back.
TEST(DecodeAhead, ReadsAsOneDecoderWould)
{
    for (const unsigned threads : {1U, 2U, 4U}) {
        decode_ahead ahead(
            {.size = disk_bytes - 5, .block_bytes = block, .threads = threads}, decode,
            [] { return decode; });
        std::mt19937 random(threads);
        for (const u64 step : {u64{1}, u64{3}, u64{16}})
            for (u64 at = step * 7 * block; at < disk_bytes - 5; at += step * block) {
                const u64 rest = disk_bytes - 5 - at;
                ASSERT_EQ(fault_of_read(ahead, at, std::min(rest, step * block)), "");
                if (random() % 40 == 0) {
                    const u64 other = random() % (disk_bytes / block - 1) * block;
                    ASSERT_EQ(fault_of_read(ahead, other, block), "");
                }
                if (random() % 200 == 0 && rest > 40 * block) at += 20 * block;
            }
    }
}

// Two decoders are at work at once, and a third that can't be opened isn't missed.
TEST(DecodeAhead, DecodesOnSeveralThreads)
{
    std::atomic<int> at_work = 0;
    std::atomic<bool> met = false;
    std::atomic<int> opened = 0;
    const auto meeting = [&](u64 offset, std::span<u8> out) {
        ++at_work;
        using clock = std::chrono::steady_clock;
        const auto until = clock::now() + std::chrono::milliseconds(500);
        // The reader's own reads, before the threads begin, are alone.
        while (opened > 1 && !met && clock::now() < until) met = met || at_work > 1;
        const bool good = decode(offset, out);
        --at_work;
        return good;
    };
    {
        decode_ahead ahead({.size = disk_bytes, .block_bytes = block, .threads = 3},
                           meeting, [&]() -> decode_ahead::decoder {
                               if (++opened == 1) return {};
                               return meeting;
                           });
        for (u64 at = 0; at < bad_block; at += block)
            ASSERT_EQ(fault_of_read(ahead, at, block), "");
    }
    EXPECT_TRUE(met);
    EXPECT_EQ(opened, 2);
}

// A decoder that runs out of memory on a thread costs nothing but that thread's work.
TEST(DecodeAhead, OutlivesDecodersThatThrow)
{
    decode_ahead ahead(
        {.size = disk_bytes, .block_bytes = block, .threads = 2}, decode,
        [] { return [](u64, std::span<u8>) -> bool { throw std::bad_alloc(); }; });
    for (u64 at = 0; at < bad_block; at += block)
        ASSERT_EQ(fault_of_read(ahead, at, block), "");
}

} // namespace

#include "ntfs/hv_lznt1.h"

#include <algorithm>
#include <array>
#include <bit>

namespace hv {

namespace {

constexpr std::size_t clears_output_below = 9;
constexpr unsigned items_per_flags = 8;
constexpr unsigned token_length_bits = 12;
constexpr u16 token_length_mask = 0xFFF;
constexpr unsigned min_match = 3;

constexpr u16 chunk_is_compressed = 0x8000;
constexpr u16 chunk_length_mask = 0x0FFF;
constexpr std::size_t chunk_header_size = 2;
constexpr u16 full_chunk_length = 0x0FFF;
// A unit that was read without holes may begin with a full stored chunk all the same.
constexpr u16 stored_chunk_mark = 0x3FFF;

// Walks over the items of a payload until it is used up or `capacity` bytes are
// reached. `literal` is called with the position and the byte, `match` with the
// position, the distance and the end of what is copied. False if a token copies from
// before the first byte.
template <class Literal, class Match>
bool for_each_item(byte_view input, std::size_t capacity, Literal literal, Match match)
{
    std::size_t from = 0;
    std::size_t at = 0;
    u8 flags = 0;
    while (at < capacity && input.read(from, flags)) {
        ++from;
        for (unsigned i = 0; i < items_per_flags && at < capacity; ++i) {
            u8 byte = 0;
            u16 token = 0;
            if ((flags >> i & 1) == 0) {
                if (!input.read(from++, byte)) return true;
                literal(at++, byte);
                continue;
            }
            if (!input.read(from, token)) return true;
            from += sizeof(token);
            if (at == 0) return false;
            // The further on, the more bits are for the distance, and the fewer for the
            // length.
            const auto fewer = static_cast<unsigned>(std::bit_width((at - 1) / 16));
            const std::size_t distance =
                (token >> (token_length_bits - fewer)) + std::size_t{1};
            const std::size_t length =
                (token & (token_length_mask >> fewer)) + min_match;
            if (distance > at) return false;
            const std::size_t end = std::min(capacity, at + length);
            match(at, distance, end);
            at = end;
        }
    }
    return true;
}

// What `decode_lznt1_chunk` would return, without the cost of writing the output.
bool is_sound_chunk(byte_view input)
{
    return for_each_item(
        input, lznt1_block, [](std::size_t, u8) {},
        [](std::size_t, std::size_t, std::size_t) {});
}

// Collects the plain bytes of one chunk after the other.
class block_sink {
public:
    explicit block_sink(std::span<u8> out) : m_out(out) {}

    void put(byte_view block)
    {
        const std::size_t count = std::min(lznt1_block, m_out.size() - m_count);
        const auto target = m_out.subspan(m_count, count);
        const auto source = block.clip(0, count).bytes();
        const auto rest = std::ranges::copy(source, target.begin()).out;
        std::fill(rest, target.end(), u8{0});
        m_count += count;
    }
    std::size_t count() const { return m_count; }
    bool is_full() const { return m_count == m_out.size(); }

private:
    std::span<u8> m_out;
    std::size_t m_count = 0;
};

bool walk_chunks(block_sink &sink, byte_view unit)
{
    // Not cleared between chunks: after a short chunk, the bytes of the one before
    // remain.
    std::array<u8, lznt1_block> block{};
    std::size_t at = 0;
    while (at < unit.size()) {
        const u16 header = unit.read_padded<u16>(at);
        const u16 length = header & chunk_length_mask;
        const byte_view payload = unit.from(at + chunk_header_size);
        if ((header & chunk_is_compressed) != 0) {
            const std::size_t size = length + std::size_t{1};
            const byte_view chunk = payload.clip(0, size);
            // Once the output is full, chunks are only checked: decoding chunks of
            // three bytes each would cost a thousand times as much as reading them.
            if (!(sink.is_full() ? is_sound_chunk(chunk)
                                 : decode_lznt1_chunk(chunk, block)))
                return false;
            sink.put(byte_view{block});
            at += chunk_header_size + size;
        } else if (length == full_chunk_length) {
            sink.put(payload.clip(0, lznt1_block));
            at += chunk_header_size + lznt1_block;
        } else if (length == 0) {
            at += lznt1_block - at % lznt1_block;
        } else {
            return false;
        }
    }
    return true;
}

std::size_t copy_plain(std::span<u8> out, byte_view unit)
{
    const auto bytes = unit.clip(0, out.size()).bytes();
    std::ranges::copy(bytes, out.begin());
    return bytes.size();
}

bool ends_in_zeros(byte_view unit)
{
    const byte_view end = unit.from(unit.size() - std::min(unit.size(), lznt1_block));
    return std::ranges::all_of(end.bytes(), [](u8 byte) { return byte == 0; });
}

} // namespace

bool decode_lznt1_chunk(byte_view input, std::span<u8> out)
{
    if (out.size() > lznt1_max_output) return false;
    if (input.size() < clears_output_below) std::ranges::fill(out, u8{0});
    return for_each_item(
        input, out.size(), [out](std::size_t at, u8 byte) { out[at] = byte; },
        [out](std::size_t at, std::size_t distance, std::size_t end) {
            // The source may overlap what is written: that is how a byte is repeated.
            for (; at < end; ++at) out[at] = out[at - distance];
        });
}

bool expand_unit(std::span<u8> out, std::size_t &out_count, byte_view unit,
                 bool found_sparse)
{
    out_count = 0;
    if (out.empty() || unit.empty()) return false;
    const bool starts_stored = unit.read_padded<u16>(0) == stored_chunk_mark;
    if (!found_sparse && !starts_stored) {
        out_count = copy_plain(out, unit);
        return true;
    }
    block_sink sink(out);
    if (walk_chunks(sink, unit)) {
        out_count = sink.count();
        return true;
    }
    // Some streams are marked as compressed and hold plain units with a hole after
    // them.
    if (ends_in_zeros(unit)) return false;
    out_count = copy_plain(out, unit);
    return true;
}

} // namespace hv

#include "media/layered_source.h"

#include "media/block_source.h"

#include <algorithm>

namespace hv {

bool layered_source::add_layer(std::vector<stretch> layer)
{
    u64 size = 0;
    std::erase_if(layer, [](const stretch &each) { return each.length == 0; });
    for (stretch &each : layer) {
        each.begin = size;
        m_packed = m_packed || (each.blocks && each.blocks->is_packed());
        if (__builtin_add_overflow(size, each.length, &size)) return false;
    }
    if (m_layers.empty()) m_size = size;
    m_layers.push_back(std::move(layer));
    return true;
}

// The newest layer that holds the byte decides; it may be larger than those below it.
layered_source::piece layered_source::find_piece(u64 offset, u64 max_bytes) const
{
    piece found{.bytes = max_bytes};
    for (const std::vector<stretch> &layer : m_layers) {
        const auto after = std::ranges::upper_bound(layer, offset, {}, &stretch::begin);
        if (after == layer.begin()) continue;
        const stretch &here = *std::prev(after);
        const u64 skipped = offset - here.begin;
        if (skipped >= here.length) continue;
        found.bytes = std::min(found.bytes, here.length - skipped);
        if (!here.blocks) {
            found.file = here.flat.get();
            found.place = here.offset + skipped;
            return found;
        }
        if (skipped >= here.blocks->size()) continue;
        const block_map::answer answer = here.blocks->find(skipped);
        found.bytes = std::min(found.bytes, answer.bytes);
        found.place = answer.place;
        found.in_map = skipped;
        if (answer.what == block_map::holding::plain) found.file = &here.blocks->file();
        if (answer.what == block_map::holding::packed) found.packed = here.blocks.get();
        if (answer.what != block_map::holding::nothing) return found;
    }
    return found;
}

// Neighbouring blocks mostly follow each other in the file as well, and are read at
// once.
layered_source::piece layered_source::find_row(u64 offset, u64 max_bytes) const
{
    piece row = find_piece(offset, max_bytes);
    while (row.file != nullptr && row.bytes < max_bytes) {
        const piece next = find_piece(offset + row.bytes, max_bytes - row.bytes);
        if (!next.continues(row)) break;
        row.bytes += next.bytes;
    }
    return row;
}

void layered_source::read_piece(u64 offset, const piece &part, std::span<u8> out) const
{
    if (part.packed != nullptr) {
        const std::span<const u8> block = part.packed->unpack(part.in_map);
        const u64 in_block = part.in_map % part.packed->block_bytes();
        if (!block.empty()) {
            std::ranges::copy(block.subspan(in_block, out.size()), out.begin());
            return;
        }
        std::ranges::fill(out, u8{0});
        m_faults->add(offset - in_block,
                      std::min(m_size, offset - in_block + part.packed->block_bytes()),
                      "its compressed block is damaged or cut off");
        return;
    }
    const std::size_t count =
        part.file == nullptr ? 0 : part.file->read(part.place, out);
    std::ranges::fill(out.subspan(count), u8{0});
    if (part.file != nullptr && count < out.size())
        m_faults->add(offset + count, offset + out.size(), "its file is cut off");
}

std::size_t layered_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= m_size) return 0;
    out = out.first(std::min<u64>(out.size(), m_size - offset));
    for (std::size_t done = 0; done < out.size();) {
        const piece row = find_row(offset + done, out.size() - done);
        read_piece(offset + done, row, out.subspan(done, row.bytes));
        done += row.bytes;
    }
    return out.size();
}

std::span<const u8> layered_source::view(u64 offset, std::size_t length) const
{
    if (offset >= m_size || length > m_size - offset) return {};
    const piece row = find_row(offset, length);
    if (row.file == nullptr || row.bytes < length) return {};
    return row.file->view(row.place, length);
}

u64 layered_source::next_data(u64 offset) const
{
    while (offset < m_size) {
        const piece part = find_piece(offset, m_size - offset);
        if (part.packed != nullptr) return offset;
        if (part.file != nullptr) {
            const u64 next = part.file->next_data(part.place);
            if (next < part.place || next - part.place < part.bytes)
                return offset + (std::max(next, part.place) - part.place);
        }
        offset += part.bytes;
    }
    return m_size;
}

u64 layered_source::stored_size() const
{
    u64 bytes = 0;
    for (const byte_source_ptr &file : m_files) bytes += file->stored_size();
    return m_packed ? most_stored_bytes(bytes, m_size) : bytes;
}

u64 layered_source::unreadable() const
{
    u64 bytes = m_faults->bytes();
    for (const byte_source_ptr &file : m_files) bytes += file->unreadable();
    return bytes;
}

unread_parts layered_source::unreadable_in(u64 offset, u64 length) const
{
    if (offset >= m_size || unreadable() == 0) return {};
    length = std::min(length, m_size - offset);
    unread_parts parts = m_faults->within(offset, length);
    for (u64 done = 0; done < length;) {
        const piece row = find_row(offset + done, length - done);
        if (row.file != nullptr)
            add_unread(parts, *row.file, row.place, row.bytes, offset + done);
        done += row.bytes;
    }
    join_unread(parts);
    return parts;
}

} // namespace hv

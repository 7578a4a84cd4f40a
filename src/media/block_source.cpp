#include "media/block_source.h"

#include <algorithm>

namespace hv {

std::size_t block_source::read(u64 offset, std::span<u8> out) const
{
    if (offset >= m_form.size) return 0;
    out = out.first(std::min<u64>(out.size(), m_form.size - offset));
    for (std::size_t done = 0; done < out.size();) {
        const u64 position = offset + done;
        const u64 in_block = position % m_form.block_bytes;
        std::span<u8> rest = out.subspan(done);
        const bool ends_with_disk = position + rest.size() == m_form.size;
        const u64 whole = ends_with_disk
                              ? rest.size()
                              : rest.size() - rest.size() % m_form.block_bytes;
        if (in_block == 0 && whole != 0) {
            read_whole(position, rest.first(whole));
            done += whole;
            continue;
        }
        const std::vector<u8> &block = block_at(position - in_block);
        const u64 count = std::min<u64>(rest.size(), block.size() - in_block);
        std::copy_n(block.begin() + static_cast<std::ptrdiff_t>(in_block), count,
                    rest.begin());
        done += count;
    }
    return out.size();
}

// Whole blocks at once or, if that fails, each alone, so that damage costs only the
// block that it is in.
void block_source::read_whole(u64 offset, std::span<u8> out) const
{
    if (m_read(offset, out)) return;
    while (!out.empty()) {
        const std::span<u8> block =
            out.first(std::min<u64>(out.size(), m_form.block_bytes));
        if (!m_read(offset, block)) {
            std::ranges::fill(block, u8{0});
            m_faults->add(offset, offset + block.size(), "can't be read or decoded");
        }
        offset += block.size();
        out = out.subspan(block.size());
    }
}

const std::vector<u8> &block_source::block_at(u64 offset) const
{
    kept_block &kept = m_kept[offset / m_form.block_bytes % m_kept.size()];
    if (kept.offset == offset) return kept.bytes;
    kept.offset = ~u64{0};
    kept.bytes.resize(std::min<u64>(m_form.block_bytes, m_form.size - offset));
    read_whole(offset, kept.bytes);
    kept.offset = offset;
    return kept.bytes;
}

u64 block_source::next_data(u64 offset) const
{
    if (!m_next_data || offset >= m_form.size) return std::min(offset, m_form.size);
    return m_next_data(offset);
}

u64 block_source::unreadable() const
{
    u64 bytes = m_faults->bytes();
    for (const byte_source_ptr &file : m_form.files) bytes += file->unreadable();
    return bytes;
}

unread_parts block_source::unreadable_in(u64 offset, u64 length) const
{
    unread_parts parts = m_faults->within(offset, length);
    if (!m_form.encrypted) return parts;
    add_unread(parts, *m_form.encrypted, offset, length, offset);
    join_unread(parts);
    return parts;
}

} // namespace hv

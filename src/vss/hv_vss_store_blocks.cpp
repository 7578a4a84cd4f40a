#include "vss/hv_vss_store_blocks.h"

#include "ntfs/ntfs.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

// A chain ends at a block of which the medium holds less than this.
constexpr u64 min_on_medium = 4096;

bool is_list_end(const fixed_view<vss_descriptor::size> &fields)
{
    return fields.get<vss_descriptor::original_offset>() == 0 &&
           fields.get<vss_descriptor::relative_offset>() == 0 &&
           fields.get<vss_descriptor::store_offset>() == 0;
}

} // namespace

vss_descriptor_kind vss_block_descriptor::kind() const
{
    if (flags == 0) return vss_descriptor_kind::plain;
    if (flags == vss_descriptor::flag_8) return vss_descriptor_kind::flag_8;
    if (has(vss_descriptor::overlay)) return vss_descriptor_kind::overlay;
    return has(vss_descriptor::forwarder) ? vss_descriptor_kind::forwarder
                                          : vss_descriptor_kind::other;
}

u32 vss_block_descriptor::held_sectors() const
{
    if (has(vss_descriptor::overlay)) return sectors;
    return has(vss_descriptor::forwarder) || sectors == 0 ? vss_descriptor::all_sectors
                                                          : sectors;
}

bool parse_descriptor_block(std::vector<vss_block_descriptor> &out_list,
                            vss_block_hdr &out_header, byte_view block, u64 offset,
                            u64 block_index)
{
    if (!parse_block_header(out_header, block, vss_block_type::descriptors, offset))
        return false;
    byte_view rest = block.clip(vss_block::header_size,
                                vss_descriptor::max_in_block * vss_descriptor::size);
    fixed_view<vss_descriptor::size> fields;
    for (u64 slot = 0; rest.fixed(0, fields) && !is_list_end(fields); ++slot) {
        out_list.push_back(
            {.original_offset = fields.get<vss_descriptor::original_offset>(),
             .relative_offset = fields.get<vss_descriptor::relative_offset>(),
             .store_offset = fields.get<vss_descriptor::store_offset>(),
             .flags = fields.get<vss_descriptor::flags>(),
             .sectors = fields.get<vss_descriptor::allocation_bitmap>(),
             .position = block_index * vss_descriptor::max_in_block + slot});
        rest = rest.from(vss_descriptor::size);
    }
    return true;
}

bool parse_range_block(std::vector<vss_block_range> &out_ranges,
                       vss_block_hdr &out_header, byte_view block, u64 offset)
{
    if (block.size() < vss_range::min_block ||
        !parse_block_header(out_header, block, vss_block_type::block_ranges, offset))
        return false;
    byte_view rest = block.from(vss_block::header_size);
    fixed_view<vss_range::size> fields;
    while (rest.fixed(0, fields) && fields.get<vss_range::range_size>() != 0) {
        out_ranges.push_back(
            {.offset = fields.get<vss_range::offset>(),
             .relative_offset = fields.get<vss_range::relative_offset>(),
             .size = fields.get<vss_range::range_size>()});
        rest = rest.from(vss_range::size);
    }
    return true;
}

bool parse_bitmap_block(byte_view &out_bits, vss_block_hdr &out_header, byte_view block,
                        u64 offset)
{
    if (block.size() <= vss_bitmap::bits ||
        !parse_block_header(out_header, block, vss_block_type::bitmap, offset))
        return false;
    out_bits = block.clip(vss_bitmap::bits, vss_bitmap::bytes);
    return true;
}

std::string vss_descriptor_flag_names(u32 flags)
{
    static constexpr std::array<std::string_view, 8> names = {
        "forwarder; ", "overlay; ", "not used; ", "unk1; ",
        "unk2; ",      "unk3; ",    "unk4; ",     "unk5; "};
    std::string text;
    for (std::size_t bit = 0; bit < names.size(); ++bit)
        if ((flags >> bit & 1) != 0) text += names[bit];
    return text;
}

vss_block_source::vss_block_source(const CNtfs &from)
    : volume(&from),
      blocks_left(from.get_disk()->get_stored_size() / vss_block::block_size + 1)
{
}

bool vss_block_source::read(u8 *buffer, u32 &length, u64 offset) const
{
    u64 position = 0;
    return volume != nullptr &&
           !__builtin_add_overflow(offset, volume->get_volume_offset(), &position) &&
           volume->get_disk()->read_checked(buffer, length, position) && length != 0;
}

u64 vss_block_source::bytes_after(u64 offset) const
{
    u64 position = 0;
    if (volume == nullptr ||
        __builtin_add_overflow(offset, volume->get_volume_offset(), &position))
        return 0;
    const u64 size = volume->get_disk()->get_size();
    return position < size ? size - position : 0;
}

bool vss_block_chain::next(byte_view &out_block, vss_block_hdr &out_header,
                           vss_block_source &source)
{
    if (m_state != state::open) return false;
    const u64 offset = m_next;
    if (offset == 0) {
        m_state = state::complete;
        return false;
    }
    m_state = state::damaged;
    if (source.bytes_after(offset) < min_on_medium || source.blocks_left == 0 ||
        !m_visited.insert(offset).second)
        return false;
    m_buffer.resize(vss_block::block_size);
    u32 length = vss_block::block_size;
    if (!source.read(m_buffer.data(), length, offset)) {
        m_state = state::unreadable;
        return false;
    }
    out_block = byte_view{m_buffer}.clip(0, length);
    if (!parse_block_header(out_header, out_block, m_type, offset)) return false;
    --source.blocks_left;
    m_next = out_header.next_offset;
    m_state = state::open;
    return true;
}

bool vss_store_blocks::load(const vss_store &store, vss_block_source &source)
{
    *this = {};
    m_own.chain.emplace(store.bitmap_offset, vss_block_type::bitmap);
    m_previous.chain.emplace(store.previous_bitmap, vss_block_type::bitmap);
    // A store whose data are on another volume has no block list on this one.
    m_is_complete = store.block_list_offset != 0 &&
                    load_descriptors(store.block_list_offset, source);
    load_ranges(store.range_list_offset, source);
    return m_is_complete;
}

bool vss_store_blocks::load_descriptors(u64 offset, vss_block_source &source)
{
    vss_block_chain chain(offset, vss_block_type::descriptors);
    byte_view block;
    vss_block_hdr header;
    for (u64 index = 0; chain.next(block, header, source); ++index) {
        parse_descriptor_block(m_descriptors, header, block, header.position, index);
        m_headers.push_back(header);
    }
    if (chain.ended() == vss_block_chain::state::unreadable) {
        m_descriptors.clear();
        m_headers.clear();
    }
    return chain.ended() == vss_block_chain::state::complete;
}

void vss_store_blocks::load_ranges(u64 offset, vss_block_source &source)
{
    vss_block_chain chain(offset, vss_block_type::block_ranges);
    byte_view block;
    vss_block_hdr header;
    while (chain.next(block, header, source) &&
           parse_range_block(m_ranges, header, block, header.position))
        m_headers.push_back(header);
}

bool vss_store_blocks::bitmap_segment(byte_view &out_bits, vss_bitmap_kind kind,
                                      u64 segment, vss_block_source &source)
{
    bitmap_segments &known = kind == vss_bitmap_kind::own ? m_own : m_previous;
    byte_view block;
    byte_view bits;
    vss_block_hdr header;
    // The chain is read no further than needed, and not past the end of the medium.
    while (known.blocks.size() <= segment && known.chain &&
           source.bytes_after(known.blocks.size() * vss_bitmap::covered) != 0) {
        // The segment after one that fails must not take its place.
        if (!known.chain->next(block, header, source) ||
            !parse_bitmap_block(bits, header, block, header.position))
            known.chain.reset();
        else
            known.blocks.emplace_back(bits.bytes().begin(), bits.bytes().end());
    }
    if (segment >= known.blocks.size()) return false;
    out_bits = byte_view{known.blocks[segment]};
    return true;
}

} // namespace hv

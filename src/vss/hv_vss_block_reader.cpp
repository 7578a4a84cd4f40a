#include "vss/hv_vss_block_reader.h"

#include "base/hv_string.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <set>
#include <tuple>

namespace hv {

namespace {

constexpr u32 block_size = vss_block::block_size;
constexpr u32 sector_size = 512;
constexpr u32 all_sectors = vss_descriptor::all_sectors;

// Copies the sectors whose bits are set.
void copy_sectors(u8 *to, const u8 *from, u32 sectors)
{
    for (; sectors != 0; sectors &= sectors - 1) {
        const std::size_t place = std::size_t(std::countr_zero(sectors)) * sector_size;
        std::memcpy(to + place, from + place, sector_size);
    }
}

// The first references, those of one store.
vss_descriptor_span leading_store(vss_descriptor_span refs)
{
    const auto end = std::ranges::find_if_not(refs, [&](const vss_descriptor_ref &ref) {
        return ref.store == refs.front().store;
    });
    return vss_descriptor_span(refs.begin(), end);
}

} // namespace

void vss_block_reader::reset(const CNtfs *volume)
{
    m_source = volume == nullptr ? vss_block_source() : vss_block_source(*volume);
    m_stores.clear();
    m_index.clear();
}

bool vss_block_reader::load_blocks(std::span<const vss_store *const> stores)
{
    bool complete = true;
    set_store_count(stores.size());
    for (std::size_t i = 0; i < stores.size(); ++i)
        complete &= m_stores[i].load(*stores[i], m_source);
    m_index.build(m_stores);
    return complete;
}

bool vss_block_reader::holds_store(u64 store_number) const
{
    return store_number != 0 && store_number <= store_count();
}

const vss_store_blocks *vss_block_reader::store_blocks(u64 store_number) const
{
    return holds_store(store_number) ? &m_stores[store_number - 1] : nullptr;
}

bool vss_block_reader::is_complete(u64 snapshot) const
{
    if (snapshot == 0) return true;
    return holds_store(snapshot) &&
           std::ranges::all_of(std::span(m_stores).subspan(snapshot - 1),
                               &vss_store_blocks::is_complete);
}

const vss_block_descriptor &
vss_block_reader::descriptor_of(const vss_descriptor_ref &ref) const
{
    return m_stores[ref.store - 1].descriptors()[ref.ordinal];
}

bool vss_block_reader::pull_descriptors_at_vol_offset(vss_descriptor_set &out_set,
                                                      u64 offset, u64 store_number,
                                                      vss_search search,
                                                      vss_forwarders forwarders)
{
    out_set.clear();
    const auto pull = [&](u64 at) {
        std::ranges::copy_if(m_index.find(at), std::back_inserter(out_set),
                             [&](const vss_descriptor_ref &ref) {
                                 return ref.store == store_number ||
                                        (search == vss_search::later_stores_too &&
                                         ref.store > store_number);
                             });
    };
    pull(offset);
    if (forwarders == vss_forwarders::listed) return !out_set.empty();
    std::set<u64> seen = {offset};
    for (std::size_t i = 0; i < out_set.size(); ++i) {
        const vss_block_descriptor &descriptor = descriptor_of(out_set[i]);
        if (descriptor.has(vss_descriptor::forwarder) &&
            seen.insert(descriptor.relative_offset).second)
            pull(descriptor.relative_offset);
    }
    std::ranges::sort(out_set, {}, [](const vss_descriptor_ref &ref) {
        return std::tuple(ref.store, ref.ordinal);
    });
    return !out_set.empty();
}

bool vss_block_reader::is_block_in_bitmap(bool &out_flag, u64 store_number,
                                          u64 volume_offset, vss_bitmap_kind kind)
{
    byte_view bits;
    u8 byte = 0;
    const u64 in_segment = volume_offset % vss_bitmap::covered;
    if (!holds_store(store_number) ||
        !m_stores[store_number - 1].bitmap_segment(
            bits, kind, volume_offset / vss_bitmap::covered, m_source) ||
        !bits.read(in_segment >> vss_bitmap::byte_shift, byte))
        return false;
    const bool is_set = (byte >> (in_segment >> vss_bitmap::bit_shift & 7) & 1) != 0;
    out_flag = is_set != inverted_bitmap;
    return true;
}

// A block was free for the whole life of a snapshot only if both of its bitmaps say so:
// the one from its beginning, and the one in which it crossed out what it kept.
bool vss_block_reader::is_free(u64 store_number, u64 volume_offset)
{
    bool now = false;
    bool before = false;
    return is_block_in_bitmap(now, store_number, volume_offset) && now &&
           is_block_in_bitmap(before, store_number, volume_offset,
                              vss_bitmap_kind::previous) &&
           before;
}

bool vss_block_reader::read_at(u8 *buffer, u32 &length, u64 offset,
                               std::string_view label)
{
    if (dump != nullptr)
        *dump << "offset [image" << label << "]: " << number_text(offset, true, 8)
              << '\n';
    return m_source.read(buffer, length, offset);
}

bool vss_block_reader::read_block(std::vector<u8> &buffer, u32 &out_length,
                                  u32 &out_position,
                                  const vss_block_descriptor &descriptor)
{
    if (buffer.size() < block_size) buffer.resize(block_size);
    const bool forwards = descriptor.has(vss_descriptor::forwarder);
    const bool overlays = descriptor.has(vss_descriptor::overlay);
    const u64 offset = forwards ? descriptor.relative_offset : descriptor.store_offset;
    out_position = 0;
    out_length = block_size;
    // A truncated block can't be told from one that ends in zeros, so it doesn't count.
    if (!read_at(buffer.data(), out_length, offset,
                 forwards   ? "/forwarder"
                 : overlays ? "/overlay"
                            : "/vss") ||
        out_length != block_size)
        return false;
    if (!overlays) return true;
    const u32 sectors = descriptor.sectors;
    for (std::size_t i = 0; i < 32; ++i)
        if ((sectors >> i & 1) == 0)
            std::memset(buffer.data() + i * sector_size, 0, sector_size);
    out_position = static_cast<u32>(std::countr_zero(sectors)) * sector_size;
    out_length = static_cast<u32>(std::popcount(sectors)) * sector_size;
    return true;
}

// Descriptors of a block that the store doesn't track are left over from before, unless
// the block was kept whole.
bool vss_block_reader::is_ruled_out(vss_descriptor_span descriptors,
                                    const vss_read_request &request)
{
    bool is_untracked = true;
    if (is_block_in_bitmap(is_untracked, request.store_number, request.volume_offset) &&
        !is_untracked)
        return false;
    return std::ranges::none_of(descriptors, [&](const vss_descriptor_ref &ref) {
        const vss_descriptor_kind kind = descriptor_of(ref).kind();
        return kind == vss_descriptor_kind::plain ||
               (kind == vss_descriptor_kind::flag_8 &&
                request.flag_8 == vss_flag_8::included);
    });
}

// Reads the wanted sectors of one descriptor.
bool vss_block_reader::apply_descriptor(std::vector<u8> &buffer,
                                        vss_read_request &request,
                                        const vss_block_descriptor &descriptor)
{
    const u32 sectors = descriptor.held_sectors() & request.wanted;
    if (sectors == 0) return true;
    u32 length = 0;
    u32 position = 0;
    std::vector<u8> &target = sectors == all_sectors ? buffer : m_scratch;
    if (!read_block(target, length, position, descriptor)) return false;
    if (sectors != all_sectors) copy_sectors(buffer.data(), target.data(), sectors);
    request.wanted &= ~sectors;
    return true;
}

// Reads the wanted sectors that one store has. Overlays win over blocks that were kept
// whole: real lists have them before and after these. Of two overlays with the same
// sector the first one has the older bytes. Of two whole blocks the last one holds.
bool vss_block_reader::apply_store(std::vector<u8> &buffer, vss_read_request &request,
                                   vss_descriptor_span descriptors)
{
    for (const vss_descriptor_ref &ref : descriptors) {
        const vss_block_descriptor &overlay = descriptor_of(ref);
        if (overlay.kind() == vss_descriptor_kind::overlay &&
            !apply_descriptor(buffer, request, overlay))
            return false;
    }
    for (auto ref = descriptors.rbegin(); ref != descriptors.rend(); ++ref) {
        const vss_block_descriptor &whole = descriptor_of(*ref);
        const vss_descriptor_kind kind = whole.kind();
        const bool is_read = kind == vss_descriptor_kind::plain ||
                             kind == vss_descriptor_kind::other ||
                             (kind == vss_descriptor_kind::flag_8 &&
                              request.flag_8 == vss_flag_8::included);
        if (is_read && !apply_descriptor(buffer, request, whole)) return false;
    }
    return true;
}

// The last move of a block: its only forwarder in the index. Null if it wasn't moved.
const vss_block_descriptor *
vss_block_reader::find_forwarder(vss_descriptor_span descriptors) const
{
    const auto found = std::ranges::find(
        descriptors, vss_descriptor_kind::forwarder,
        [&](const vss_descriptor_ref &ref) { return descriptor_of(ref).kind(); });
    return found == descriptors.end() ? nullptr : &descriptor_of(*found);
}

bool vss_block_reader::pull_block(std::vector<u8> &buffer, u32 &out_length,
                                  vss_read_request request)
{
    if (!holds_store(request.store_number) || request.candidates == nullptr)
        return false;
    if (buffer.size() < block_size) buffer.resize(block_size);
    if (request.first_level) std::memset(buffer.data(), 0, block_size);
    out_length = block_size;
    const u64 first_store = request.first_level ? request.store_number : 0;
    m_block_refs.clear();
    std::ranges::copy_if(*request.candidates, std::back_inserter(m_block_refs),
                         [&](const vss_descriptor_ref &ref) {
                             return ref.store >= request.store_number &&
                                    ref.offset == request.volume_offset;
                         });
    vss_descriptor_span rest = m_block_refs;
    // Each turn goes on to a later store.
    while (request.wanted != 0) {
        if (rest.empty()) return fill_rest(buffer, out_length, request);
        request.store_number = rest.front().store;
        const vss_descriptor_span of_store = leading_store(rest);
        rest = rest.subspan(of_store.size());
        if (request.store_number == first_store && is_ruled_out(of_store, request))
            continue;
        if (!apply_store(buffer, request, of_store)) return false;
        const vss_block_descriptor *const forwarder = find_forwarder(of_store);
        if (forwarder == nullptr || request.wanted == 0) continue;
        // Later stores know the block by its new place.
        request.volume_offset = forwarder->relative_offset;
        request.bitmap_store = ++request.store_number;
        pull_descriptors_at_vol_offset(m_block_refs, request.volume_offset,
                                       request.store_number,
                                       vss_search::later_stores_too);
        rest = m_block_refs;
    }
    return true;
}

// Zeros if the block was free, else what the volume has now.
bool vss_block_reader::fill_rest(std::vector<u8> &buffer, u32 &out_length,
                                 const vss_read_request &request)
{
    const u64 on_medium = m_source.bytes_after(request.volume_offset);
    const bool is_whole = request.wanted == all_sectors;
    if (on_medium == 0) return false;
    std::vector<u8> &target = is_whole ? buffer : m_scratch;
    if (target.size() < block_size) target.resize(block_size);
    u32 length = static_cast<u32>(std::min<u64>(on_medium, block_size));
    std::memset(target.data() + length, 0, block_size - length);
    if (is_free(request.bitmap_store, request.volume_offset))
        std::memset(target.data(), 0, length);
    else if (!read_at(target.data(), length, request.volume_offset, ""))
        return false;
    if (is_whole)
        out_length = length;
    else
        copy_sectors(buffer.data(), m_scratch.data(), request.wanted);
    return true;
}

} // namespace hv

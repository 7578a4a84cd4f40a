#include "vss/hv_vss_block_reader.h"

#include "base/hv_string.h"
#include "ntfs/ntfs.h"

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

// The sectors of a descriptor, and where its store has them.
vss_piece kept_piece(const vss_block_descriptor &descriptor, u32 sectors)
{
    if (descriptor.has(vss_descriptor::forwarder))
        return {sectors, descriptor.relative_offset, vss_origin::moved};
    return {sectors, descriptor.store_offset,
            descriptor.has(vss_descriptor::overlay) ? vss_origin::overlay
                                                    : vss_origin::plain};
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

vss_overlays vss_block_reader::overlays_by_rules() const
{
    const bool own_only =
        m_source.volume != nullptr && m_source.volume->rules().own_overlays_only;
    return own_only ? vss_overlays::own_store : vss_overlays::all_stores;
}

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

// The whole block that a piece of a store is in. A truncated block can't be told from
// one that ends in zeros, so it doesn't count.
bool vss_block_reader::read_kept(u8 *buffer, const vss_piece &piece)
{
    const std::string_view label = piece.origin == vss_origin::moved     ? "/forwarder"
                                   : piece.origin == vss_origin::overlay ? "/overlay"
                                                                         : "/vss";
    u32 length = block_size;
    return read_at(buffer, length, piece.offset, label) && length == block_size;
}

bool vss_block_reader::read_block(std::vector<u8> &buffer, u32 &out_length,
                                  u32 &out_position,
                                  const vss_block_descriptor &descriptor)
{
    if (buffer.size() < block_size) buffer.resize(block_size);
    out_position = 0;
    out_length = block_size;
    if (!read_kept(buffer.data(), kept_piece(descriptor, all_sectors))) return false;
    if (!descriptor.has(vss_descriptor::overlay)) return true;
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

// Plans the wanted sectors that one store has. Overlays win over blocks that were kept
// whole: real lists have them before and after these. Of two overlays with the same
// sector the first one has the older bytes. Of two whole blocks the last one holds.
void vss_block_reader::plan_store(std::vector<vss_piece> &pieces,
                                  vss_read_request &request,
                                  vss_descriptor_span descriptors, bool is_own) const
{
    const auto take = [&](const vss_block_descriptor &descriptor) {
        const u32 sectors = descriptor.held_sectors() & request.wanted;
        if (sectors != 0) pieces.push_back(kept_piece(descriptor, sectors));
        request.wanted &= ~sectors;
    };
    if (request.overlays == vss_overlays::all_stores || is_own)
        for (const vss_descriptor_ref &ref : descriptors)
            if (descriptor_of(ref).kind() == vss_descriptor_kind::overlay)
                take(descriptor_of(ref));
    for (auto ref = descriptors.rbegin(); ref != descriptors.rend(); ++ref) {
        const vss_descriptor_kind kind = descriptor_of(*ref).kind();
        if (kind == vss_descriptor_kind::plain || kind == vss_descriptor_kind::other ||
            (kind == vss_descriptor_kind::flag_8 &&
             request.flag_8 == vss_flag_8::included))
            take(descriptor_of(*ref));
    }
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

bool vss_block_reader::plan_block(std::vector<vss_piece> &out_pieces,
                                  vss_read_request request)
{
    out_pieces.clear();
    if (!holds_store(request.store_number) || request.candidates == nullptr)
        return false;
    const u64 own_store = request.store_number;
    m_block_refs.clear();
    std::ranges::copy_if(*request.candidates, std::back_inserter(m_block_refs),
                         [&](const vss_descriptor_ref &ref) {
                             return ref.store >= own_store &&
                                    ref.offset == request.volume_offset;
                         });
    vss_descriptor_span rest = m_block_refs;
    // Each turn goes on to a later store.
    while (request.wanted != 0 && !rest.empty()) {
        request.store_number = rest.front().store;
        const vss_descriptor_span of_store = leading_store(rest);
        rest = rest.subspan(of_store.size());
        const bool is_own = request.store_number == own_store;
        if (is_own && request.first_level && is_ruled_out(of_store, request)) continue;
        plan_store(out_pieces, request, of_store, is_own);
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
    if (request.wanted != 0) out_pieces.push_back(rest_piece(request));
    return true;
}

// The wanted sectors that no store has: zeros if the block was free, else what the
// volume has now.
vss_piece vss_block_reader::rest_piece(const vss_read_request &request)
{
    return {request.wanted, request.volume_offset,
            is_free(request.bitmap_store, request.volume_offset) ? vss_origin::free
                                                                 : vss_origin::live};
}

bool vss_block_reader::pull_block(std::vector<u8> &buffer, u32 &out_length,
                                  vss_read_request request)
{
    if (!plan_block(m_pieces, request)) return false;
    if (buffer.size() < block_size) buffer.resize(block_size);
    if (request.first_level) std::memset(buffer.data(), 0, block_size);
    out_length = block_size;
    for (const vss_piece &piece : m_pieces)
        if (!read_piece(buffer, out_length, piece)) return false;
    return true;
}

bool vss_block_reader::read_piece(std::vector<u8> &buffer, u32 &out_length,
                                  const vss_piece &piece)
{
    const bool is_whole = piece.sectors == all_sectors;
    std::vector<u8> &target = is_whole ? buffer : m_scratch;
    if (target.size() < block_size) target.resize(block_size);
    u32 length = block_size;
    const bool is_rest =
        piece.origin == vss_origin::free || piece.origin == vss_origin::live;
    if (is_rest ? !read_rest(target.data(), length, piece)
                : !read_kept(target.data(), piece))
        return false;
    if (is_whole)
        out_length = length;
    else
        copy_sectors(buffer.data(), target.data(), piece.sectors);
    return true;
}

// A block that no store has, up to the end of the medium.
bool vss_block_reader::read_rest(u8 *buffer, u32 &out_length, const vss_piece &piece)
{
    const u64 on_medium = m_source.bytes_after(piece.offset);
    if (on_medium == 0) return false;
    out_length = static_cast<u32>(std::min<u64>(on_medium, block_size));
    std::memset(buffer + out_length, 0, block_size - out_length);
    if (piece.origin == vss_origin::free) {
        std::memset(buffer, 0, out_length);
        return true;
    }
    return read_at(buffer, out_length, piece.offset, "");
}

} // namespace hv

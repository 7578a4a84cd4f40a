#include "vss/hv_vss_block_index.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace hv {

namespace {

// Follows blocks that are moved while a store fills its list. Each descriptor holds
// bytes of one block only. So all reads of a store together cost no more than its list
// is long, however its forwarders lead on to each other.
class moved_blocks {
public:
    explicit moved_blocks(std::span<const vss_block_descriptor> list);

    // The offset of the block that a descriptor belongs to. To be called in the order
    // of the list. False for a forwarder that moves nothing: its block was moved or
    // kept whole before.
    bool find_block(u64 &out_block, const vss_block_descriptor &descriptor);

private:
    enum class presence { here, moved_on, kept };

    // An offset that a forwarder names.
    struct place {
        u64 offset = 0;
        u64 block = 0;                   ///< whose bytes are here
        presence state = presence::here; ///< of these bytes
        u64 destination = 0;             ///< of the block that was here at first
    };

    place *find(u64 offset);
    void move(place &from, u64 destination);
    void keep(place &kept);

    std::vector<place> m_places; ///< by offset
};

moved_blocks::moved_blocks(std::span<const vss_block_descriptor> list)
{
    for (const vss_block_descriptor &descriptor : list)
        if (descriptor.kind() == vss_descriptor_kind::forwarder)
            for (const u64 offset :
                 {descriptor.original_offset, descriptor.relative_offset})
                m_places.push_back(
                    {.offset = offset, .block = offset, .destination = offset});
    std::ranges::sort(m_places, {}, &place::offset);
    const auto is_same = [](const place &left, const place &right) {
        return left.offset == right.offset;
    };
    m_places.erase(std::unique(m_places.begin(), m_places.end(), is_same),
                   m_places.end());
}

moved_blocks::place *moved_blocks::find(u64 offset)
{
    const auto found = std::ranges::lower_bound(m_places, offset, {}, &place::offset);
    return found != m_places.end() && found->offset == offset ? &*found : nullptr;
}

bool moved_blocks::find_block(u64 &out_block, const vss_block_descriptor &descriptor)
{
    out_block = descriptor.original_offset;
    place *const here = find(descriptor.original_offset);
    if (here == nullptr) return true;
    out_block = here->block;
    switch (descriptor.kind()) {
    case vss_descriptor_kind::forwarder:
        if (here->state != presence::here) return false;
        move(*here, descriptor.relative_offset);
        break;
    case vss_descriptor_kind::plain:
    case vss_descriptor_kind::other:
        if (descriptor.held_sectors() == vss_descriptor::all_sectors) keep(*here);
        break;
    case vss_descriptor_kind::overlay:
    case vss_descriptor_kind::flag_8: break;
    }
    return true;
}

void moved_blocks::move(place &from, u64 destination)
{
    const u64 block = from.block;
    from.state = presence::moved_on;
    find(block)->destination = destination;
    place &to = *find(destination);
    to.block = block;
    to.state = presence::here;
}

// A block that is kept at an offset that it had left isn't looked for at its
// destination: what is kept there from now on is of the destination itself.
void moved_blocks::keep(place &kept)
{
    if (kept.state == presence::moved_on) {
        place &destination = *find(find(kept.block)->destination);
        if (destination.block == kept.block) {
            destination.block = destination.offset;
            destination.state = presence::here;
        }
    }
    kept.state = presence::kept;
}

// Knows which descriptors no read can need: those that add no sector to the ones of
// their kind, store and block that were asked about before. So a list that names one
// block a million times costs a read no more than one that doesn't.
class redundant_descriptors {
public:
    bool operator()(const vss_descriptor_ref &ref,
                    const vss_block_descriptor &descriptor)
    {
        if (ref.offset != m_offset || ref.store != m_store) m_covered = {};
        m_offset = ref.offset;
        m_store = ref.store;
        u32 &covered = m_covered[static_cast<std::size_t>(descriptor.kind())];
        const u32 sectors = descriptor.held_sectors();
        const bool adds_nothing = (sectors & ~covered) == 0;
        covered |= sectors;
        return adds_nothing;
    }

private:
    u64 m_offset = 0;
    u32 m_store = 0;
    std::array<u32, vss_descriptor_kinds> m_covered{};
};

} // namespace

void vss_block_index::clear()
{
    m_refs.clear();
    m_cursor = 0;
}

void vss_block_index::add_store(const vss_store_blocks &blocks, u32 number)
{
    const auto &list = blocks.descriptors();
    moved_blocks moved(list);
    u64 block = 0;
    for (std::size_t i = 0; i < list.size(); ++i)
        if (!list[i].has(vss_descriptor::not_used) && moved.find_block(block, list[i]))
            m_refs.push_back(
                {.offset = block, .store = number, .ordinal = static_cast<u32>(i)});
}

void vss_block_index::build(std::span<const vss_store_blocks> stores)
{
    clear();
    for (std::size_t i = 0; i < stores.size(); ++i)
        add_store(stores[i], static_cast<u32>(i + 1));
    std::ranges::sort(m_refs, {}, [](const vss_descriptor_ref &ref) {
        return std::tuple(ref.offset, ref.store, ref.ordinal);
    });
    redundant_descriptors is_redundant;
    const auto drop = [&](const vss_descriptor_ref &ref, bool overlays) {
        const auto &descriptor = stores[ref.store - 1].descriptors()[ref.ordinal];
        return (descriptor.kind() == vss_descriptor_kind::overlay) == overlays &&
               is_redundant(ref, descriptor);
    };
    // Of overlays the first holds, of all others the last.
    std::erase_if(m_refs, [&](const auto &ref) { return drop(ref, true); });
    is_redundant = {};
    const auto dropped =
        std::remove_if(m_refs.rbegin(), m_refs.rend(),
                       [&](const auto &ref) { return drop(ref, false); });
    m_refs.erase(m_refs.begin(), dropped.base());
    m_refs.shrink_to_fit();
}

// Reads mostly go forward, so the descriptors after those found last are tried first.
vss_descriptor_span vss_block_index::find(u64 offset)
{
    std::size_t begin = m_cursor;
    const bool is_next = (begin == 0 || m_refs[begin - 1].offset < offset) &&
                         (begin == m_refs.size() || m_refs[begin].offset >= offset);
    if (!is_next)
        begin = static_cast<std::size_t>(
            std::ranges::lower_bound(m_refs, offset, {}, &vss_descriptor_ref::offset) -
            m_refs.begin());
    m_cursor = begin;
    while (m_cursor < m_refs.size() && m_refs[m_cursor].offset == offset) ++m_cursor;
    return vss_descriptor_span(m_refs).subspan(begin, m_cursor - begin);
}

} // namespace hv

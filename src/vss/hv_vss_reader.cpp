#include "vss/hv_vss_reader.h"

#include "base/hv_string.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/hv_path_lookup.h"
#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <new>
#include <set>
#include <tuple>

namespace hv {

namespace {

constexpr u32 block_size = vss_block::block_size;
constexpr u32 sector_size = 512;
constexpr u32 all_sectors = ~u32{0};

constexpr u64 block_start(u64 offset)
{
    return offset - offset % block_size;
}

// Copies the sectors whose bits are set.
void copy_sectors(u8 *to, const u8 *from, u32 sectors)
{
    for (; sectors != 0; sectors &= sectors - 1) {
        const std::size_t place = std::size_t(std::countr_zero(sectors)) * sector_size;
        std::memcpy(to + place, from + place, sector_size);
    }
}

// The sectors that a descriptor can give; a bitmap of zero stands for all.
u32 sectors_of(const vss_block_descriptor &descriptor)
{
    if (descriptor.has(vss_descriptor::overlay)) return descriptor.sectors;
    if (descriptor.has(vss_descriptor::forwarder) || descriptor.sectors == 0)
        return all_sectors;
    return descriptor.sectors;
}

// Kinds of descriptors that reads tell apart.
std::size_t kind_of(const vss_block_descriptor &descriptor)
{
    if (descriptor.flags == 0) return 0;
    if (descriptor.flags == vss_descriptor::flag_8) return 1;
    return descriptor.has(vss_descriptor::overlay) ? 2 : 3;
}

// Knows what no read can need: of one store's descriptors for one offset, those that
// add no sector to the ones of their kind ahead of them. So a list that names one block
// a million times costs a read no more than one that doesn't.
class superfluous_filter {
public:
    bool operator()(const vss_descriptor_ref &ref,
                    const vss_block_descriptor &descriptor)
    {
        if (ref.offset != m_offset || ref.store != m_store) m_covered = {};
        m_offset = ref.offset;
        m_store = ref.store;
        u32 &covered = m_covered[kind_of(descriptor)];
        const u32 sectors = sectors_of(descriptor);
        const bool adds_nothing = (sectors & ~covered) == 0;
        covered |= sectors;
        return adds_nothing;
    }

private:
    u64 m_offset = 0;
    u32 m_store = 0;
    std::array<u32, 4> m_covered{};
};

// The runs of a record's unnamed $DATA, as far as the record itself lists them.
bool data_runs_of(std::vector<disk_run> &out_runs, std::span<u8> record,
                  u32 bytes_per_sector)
{
    data_run_list runs;
    if (!apply_fixup(record, bytes_per_sector)) return false;
    for_each_attribute(byte_view{record}, [&](attribute_ref one) {
        if (!one.is(attribute_type::data) || one.has_name()) return true;
        if (one.non_resident()) decode_attribute_runs(one.bytes(), runs);
        return false;
    });
    runs_to_cluster_runs(runs, out_runs);
    return !out_runs.empty();
}

} // namespace

vss_container::vss_container() = default;
vss_container::~vss_container() = default;

bool vss_container::init(std::string_view image_path, u64 volume_offset,
                         bool load_blocks)
{
    clear();
    auto opened = std::make_unique<CNtfs>(image_path, volume_offset, volume_kind::path);
    if (!opened->validate_volume()) return false;
    const bool complete = init(*opened, load_blocks);
    m_opened = std::move(opened);
    return complete;
}

void vss_container::clear()
{
    m_volume = nullptr;
    m_stores.clear();
    m_snapshots.clear();
    m_index.clear();
    m_cursor = 0;
    m_files.clear();
    m_attached = nullptr;
}

bool vss_container::init(const CNtfs &volume, bool load_blocks)
try {
    clear();
    if (!volume.is_validated()) return false;
    m_volume = &volume;
    m_source = vss_block_source(volume);
    attach_file(0, 0, volume.get_mft_runs());
    m_attached = &m_files[0];
    std::array<u8, vss_block::header_size> header{};
    if (!load_stores(header, m_stores, volume, {})) return false;
    number_stores();
    attach_own_files();
    return !load_blocks || load_all_blocks();
} catch (const std::bad_alloc &) {
    clear();
    return false;
}

// Numbers in catalogs needn't begin with 1: old snapshots get deleted. Their order is
// what counts.
void vss_container::number_stores()
{
    std::vector<const vss_store *> ordered;
    for (const auto &[text, store] : m_stores)
        if (store.entry_of(2).seen) ordered.push_back(&store);
    std::ranges::stable_sort(ordered, {}, &vss_store::store_number);
    m_snapshots.resize(ordered.size());
    for (std::size_t i = 0; i < ordered.size(); ++i) m_snapshots[i].store = ordered[i];
}

void vss_container::attach_own_files()
{
    u64 folder = 0;
    u64 catalog = 0;
    if (!find_catalog(folder, catalog, *m_volume)) return;
    const std::string name = "{" + std::string(vss_identifier_text) + "}";
    attach_by_name(folder, name, 0);
    for (u64 number = 1; number <= store_count(); ++number)
        attach_by_name(
            folder, "{" + vss_guid_text(store(number)->store_id) + "}" + name, number);
}

void vss_container::attach_by_name(u64 folder, std::string_view name, u64 store_number)
{
    u64 entry = 0;
    mft_entry file;
    const mft_entries_ctx entries(*m_volume);
    if (!find_child_by_name(folder, name, entry, *m_volume) ||
        !entries.analyze_entry(file, entry))
        return;
    for (const auto &[key, view] : file.attributes) {
        if (view.info.type != static_cast<u32>(attribute_type::data) ||
            !view.info.stream_name.empty())
            continue;
        const u64 reference = u64{file.sequence} << 48 | entry;
        attach_file(reference, store_number, view.info.cluster_runs);
        return;
    }
}

bool vss_container::load_all_blocks()
{
    bool complete = true;
    for (snapshot_state &one : m_snapshots)
        complete &= one.blocks.load(*one.store, m_source);
    build_index();
    for (u64 number = 1; number <= store_count(); ++number) locate_mft(number);
    return complete;
}

void vss_container::build_index()
{
    m_cursor = 0;
    u32 number = 0;
    for (const snapshot_state &one : m_snapshots) {
        ++number;
        const auto &descriptors = one.blocks.descriptors();
        for (std::size_t i = 0; i < descriptors.size(); ++i)
            if (!descriptors[i].has(vss_descriptor::not_used))
                m_index.push_back({.offset = descriptors[i].original_offset,
                                   .store = number,
                                   .ordinal = static_cast<u32>(i)});
    }
    std::ranges::sort(m_index, {}, [](const vss_descriptor_ref &ref) {
        return std::tuple(ref.offset, ref.store, ref.ordinal);
    });
    superfluous_filter is_superfluous;
    std::erase_if(m_index, [&](const vss_descriptor_ref &ref) {
        return is_superfluous(ref, at(ref));
    });
    m_index.shrink_to_fit();
}

// Where a snapshot's $MFT begins is told by its own boot sector.
void vss_container::locate_mft(u64 store_number)
{
    attached_file &file = m_files[store_number];
    file = {.store_number = store_number, .runs = m_files[0].runs};
    u64 &result = m_snapshots[store_number - 1].mft_offset;
    const u64 cluster = m_volume->get_cluster_size();
    vss_descriptor_set set;
    if (__builtin_mul_overflow(m_volume->get_mft_start_lcn(), cluster, &result) ||
        !pull_descriptors_at_vol_offset(set, block_start(result), store_number, true,
                                        false))
        return;
    std::vector<u8> block;
    u32 length = 0;
    pull_descriptors_at_vol_offset(set, 0, store_number, true, false);
    if (!pull_block(
            block, length,
            {.store_number = store_number, .candidates = &set, .owner = store_number}))
        return;
    const u64 lcn = byte_view{block}.read_padded<u64>(ntfs_boot::mft_start_lcn.offset);
    u64 own = 0;
    if (lcn == 0 || __builtin_mul_overflow(lcn, cluster, &own)) return;
    std::vector<disk_run> runs;
    if (read_mft_runs(runs, store_number, own)) file.runs = runs;
    result = own;
    pull_descriptors_at_vol_offset(set, block_start(own), store_number, true, false);
    for (const vss_descriptor_ref &ref : set) {
        const vss_block_descriptor &one = at(ref);
        // Only the byte of the first eight sectors has always been looked at.
        if (one.has(vss_descriptor::overlay) && (one.sectors & 0xFF) != 0) {
            result = one.store_offset;
            return;
        }
        if (!one.has(vss_descriptor::forwarder)) result = one.relative_offset;
    }
}

bool vss_container::read_mft_runs(std::vector<disk_run> &out_runs, u64 store_number,
                                  u64 offset)
{
    std::vector<u8> block;
    u32 length = 0;
    vss_read_request request{.store_number = store_number, .volume_offset = offset};
    if (!read_snapshot_block(block, length, request)) return false;
    const u32 size = std::min(length, m_volume->get_mft_record_size());
    return data_runs_of(out_runs, std::span(block).first(size),
                        m_volume->get_bytes_per_sector());
}

bool vss_container::holds_store(u64 store_number) const
{
    return store_number != 0 && store_number <= store_count();
}

const vss_store *vss_container::store(u64 store_number) const
{
    return holds_store(store_number) ? m_snapshots[store_number - 1].store : nullptr;
}

const vss_store_blocks *vss_container::store_blocks(u64 store_number) const
{
    return holds_store(store_number) ? &m_snapshots[store_number - 1].blocks : nullptr;
}

u64 vss_container::mft_offset(u64 store_number) const
{
    return holds_store(store_number) ? m_snapshots[store_number - 1].mft_offset : 0;
}

const vss_block_descriptor &vss_container::at(const vss_descriptor_ref &ref) const
{
    return m_snapshots[ref.store - 1].blocks.descriptors()[ref.ordinal];
}

// Reads mostly go forward, so the entries behind those found last are tried first.
vss_container::level vss_container::find_offset(u64 offset)
{
    std::size_t begin = m_cursor;
    const bool is_here = (begin == 0 || m_index[begin - 1].offset < offset) &&
                         (begin == m_index.size() || m_index[begin].offset >= offset);
    if (!is_here)
        begin = static_cast<std::size_t>(
            std::ranges::lower_bound(m_index, offset, {}, &vss_descriptor_ref::offset) -
            m_index.begin());
    m_cursor = begin;
    while (m_cursor < m_index.size() && m_index[m_cursor].offset == offset) ++m_cursor;
    return level(m_index).subspan(begin, m_cursor - begin);
}

bool vss_container::pull_descriptors_at_vol_offset(vss_descriptor_set &out_set,
                                                   u64 offset, u64 store_number,
                                                   bool later_stores, bool follow)
{
    out_set.clear();
    const auto is_wanted = [&](const vss_descriptor_ref &ref) {
        return later_stores ? ref.store >= store_number : ref.store == store_number;
    };
    const level first = find_offset(offset);
    std::ranges::copy_if(first, std::back_inserter(out_set), is_wanted);
    if (!follow) return !out_set.empty();
    std::set<u64> seen = {offset};
    for (std::size_t i = 0; i < out_set.size(); ++i) {
        const vss_block_descriptor &one = at(out_set[i]);
        if (one.has(vss_descriptor::forwarder) &&
            seen.insert(one.relative_offset).second)
            std::ranges::copy_if(find_offset(one.relative_offset),
                                 std::back_inserter(out_set), is_wanted);
    }
    std::ranges::sort(out_set, {}, [](const vss_descriptor_ref &ref) {
        return std::tuple(ref.store, ref.ordinal);
    });
    return !out_set.empty();
}

bool vss_container::is_block_in_bitmap(bool &out_flag, u64 store_number,
                                       u64 volume_offset, vss_bitmap_kind kind)
{
    byte_view bits;
    u8 byte = 0;
    const u64 in_segment = volume_offset % vss_bitmap::covered;
    if (!holds_store(store_number) ||
        !m_snapshots[store_number - 1].blocks.bitmap_segment(
            bits, kind, volume_offset / vss_bitmap::covered, m_source) ||
        !bits.read(in_segment >> vss_bitmap::byte_shift, byte))
        return false;
    const bool is_set = (byte >> (in_segment >> vss_bitmap::bit_shift & 7) & 1) != 0;
    out_flag = is_set != inverted_bitmap;
    return true;
}

// A block was free for the whole life of a snapshot only if both of its bitmaps say so:
// the one from its beginning, and the one in which it crossed out what it kept.
bool vss_container::is_free(u64 store_number, u64 volume_offset)
{
    bool now = false;
    bool before = false;
    return is_block_in_bitmap(now, store_number, volume_offset) && now &&
           is_block_in_bitmap(before, store_number, volume_offset,
                              vss_bitmap_kind::previous) &&
           before;
}

bool vss_container::read_at(u8 *buffer, u32 &length, u64 offset, std::string_view label)
{
    if (dump != nullptr)
        *dump << "offset [image" << label << "]: " << number_text(offset, true, 8)
              << '\n';
    return m_source.read(buffer, length, offset);
}

bool vss_container::read_block(std::vector<u8> &buffer, u32 &out_length,
                               u32 &out_position,
                               const vss_block_descriptor &descriptor)
{
    if (buffer.size() < block_size) buffer.resize(block_size);
    const bool forwards = descriptor.has(vss_descriptor::forwarder);
    const bool overlays = descriptor.has(vss_descriptor::overlay);
    const u64 offset = forwards ? descriptor.relative_offset : descriptor.store_offset;
    out_position = 0;
    out_length = block_size;
    // A block that is cut short can't be told from one of zeros, so it doesn't count.
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

bool vss_container::merge(std::vector<u8> &buffer,
                          const vss_block_descriptor &descriptor, u32 sectors)
{
    u32 length = 0;
    u32 position = 0;
    if (sectors == all_sectors) return read_block(buffer, length, position, descriptor);
    if (!read_block(m_scratch, length, position, descriptor)) return false;
    copy_sectors(buffer.data(), m_scratch.data(), sectors);
    return true;
}

// Descriptors of a store that doesn't look after the block are left over from before;
// but a block that was kept whole is good in any case.
bool vss_container::adds_to_first_level(level one, const vss_read_request &request)
{
    bool passed_over = false;
    if (is_block_in_bitmap(passed_over, request.store_number, request.volume_offset) &&
        !passed_over)
        return true;
    return std::ranges::any_of(one, [&](const vss_descriptor_ref &ref) {
        const u32 flags = at(ref).flags;
        return flags == 0 ||
               (request.include_flag_8 && flags == vss_descriptor::flag_8);
    });
}

// Takes the wanted sectors that one store has. Overlays win over a block that was kept
// whole: real lists have them on either side of it. Of two with the same sector the
// earlier one has the older bytes. A forwarder hands on what is left.
bool vss_container::take_level(std::vector<u8> &buffer, vss_read_request &request,
                               level one, const vss_block_descriptor *&out_forwarder)
{
    for (const bool overlays : {true, false}) {
        for (const vss_descriptor_ref &ref : one) {
            const vss_block_descriptor &descriptor = at(ref);
            if (descriptor.has(vss_descriptor::overlay) != overlays ||
                (descriptor.flags == vss_descriptor::flag_8 && !request.include_flag_8))
                continue;
            const u32 sectors = sectors_of(descriptor) & request.wanted;
            if (sectors == 0) continue;
            if (!overlays && descriptor.has(vss_descriptor::forwarder)) {
                out_forwarder = &descriptor;
                return true;
            }
            if (!merge(buffer, descriptor, sectors)) return false;
            request.wanted &= ~sectors;
        }
    }
    return true;
}

bool vss_container::pull_block(std::vector<u8> &buffer, u32 &out_length,
                               vss_read_request request)
{
    if (!holds_store(request.store_number) || request.candidates == nullptr)
        return false;
    if (buffer.size() < block_size) buffer.resize(block_size);
    if (request.first_level) std::memset(buffer.data(), 0, block_size);
    out_length = block_size;
    const u64 first_store = request.store_number;
    vss_descriptor_set::const_iterator next = request.candidates->begin();
    // Each turn goes on to a later store, a forwarder's as well.
    while (request.wanted != 0) {
        const auto is_candidate = [&](const vss_descriptor_ref &ref) {
            return ref.store >= request.store_number &&
                   ref.offset == request.volume_offset;
        };
        next = std::find_if(next, request.candidates->end(), is_candidate);
        if (next == request.candidates->end())
            return fill_rest(buffer, out_length, request);
        const auto begin = next;
        while (next != request.candidates->end() && next->store == begin->store &&
               next->offset == begin->offset)
            ++next;
        const level one(begin, next);
        request.store_number = begin->store;
        const bool is_first = request.first_level && begin->store == first_store;
        request.first_level = false;
        if (is_first && !adds_to_first_level(one, request)) continue;
        const vss_block_descriptor *forwarder = nullptr;
        if (!take_level(buffer, request, one, forwarder)) return false;
        if (forwarder == nullptr) continue;
        request.volume_offset = forwarder->relative_offset;
        request.owner = ++request.store_number;
        pull_descriptors_at_vol_offset(m_forwarded, request.volume_offset,
                                       request.store_number, true, false);
        request.candidates = &m_forwarded;
        next = m_forwarded.begin();
    }
    return true;
}

// The sectors that no store has: zeros if the block was free, else what the volume has
// there now.
bool vss_container::fill_rest(std::vector<u8> &buffer, u32 &out_length,
                              const vss_read_request &request)
{
    const u64 there = m_source.bytes_behind(request.volume_offset);
    const bool whole = request.wanted == all_sectors;
    if (there == 0) return false;
    std::vector<u8> &target = whole ? buffer : m_scratch;
    if (target.size() < block_size) target.resize(block_size);
    u32 length = static_cast<u32>(std::min<u64>(there, block_size));
    std::memset(target.data() + length, 0, block_size - length);
    if (is_free(request.owner, request.volume_offset))
        std::memset(target.data(), 0, length);
    else if (!read_at(target.data(), length, request.volume_offset, ""))
        return false;
    if (whole)
        out_length = length;
    else
        copy_sectors(buffer.data(), m_scratch.data(), request.wanted);
    return true;
}

// From the wanted byte to the end of its block, without a report.
bool vss_container::read_snapshot_block(std::vector<u8> &buffer, u32 &out_length,
                                        const vss_read_request &request)
{
    vss_read_request whole = request;
    whole.volume_offset = block_start(request.volume_offset);
    whole.owner = request.store_number;
    whole.candidates = &m_candidates;
    const bool is_pulled =
        request.store_number != 0 &&
        pull_descriptors_at_vol_offset(m_candidates, whole.volume_offset,
                                       request.store_number, true, false);
    if (!is_pulled && report_live_reads)
        std::puts("vss_container::read_data_raw - "
                  "!snap || !pull_descriptors_at_vol_offset");
    u32 length = 0;
    if (!(is_pulled ? pull_block(buffer, length, whole)
                    : fill_rest(buffer, length, whole)))
        return false;
    const u32 delta = static_cast<u32>(request.volume_offset - whole.volume_offset);
    out_length = length > delta ? length - delta : 0;
    if (delta != 0) std::memmove(buffer.data(), buffer.data() + delta, out_length);
    return out_length != 0;
}

bool vss_container::read_data_raw(std::vector<u8> &buffer, u32 &out_length,
                                  u64 snapshot, u64 volume_offset, bool include_flag_8)
{
    out_length = 0;
    if (m_volume == nullptr || snapshot > store_count()) return false;
    if (buffer.size() < block_size) buffer.resize(block_size);
    return read_snapshot_block(buffer, out_length,
                               {.store_number = snapshot,
                                .volume_offset = volume_offset,
                                .include_flag_8 = include_flag_8});
}

void vss_container::attach_file(u64 reference, u64 store_number,
                                const std::vector<disk_run> &runs)
{
    m_files[reference] = {.store_number = store_number, .runs = run_index(runs)};
}

bool vss_container::read_snapshot_file(std::vector<u8> &buffer, u32 &out_length,
                                       u64 reference, u64 offset, u32 length)
{
    out_length = 0;
    const auto found = m_files.find(reference);
    if (m_volume == nullptr || (reference != 0 && found == m_files.end())) return false;
    if (reference != 0) m_attached = &found->second;
    // The buffer grows with what arrives, whatever length is asked for.
    u64 position = 0;
    while (out_length < length &&
           !__builtin_add_overflow(offset, out_length, &position)) {
        const u32 share = std::min(length - out_length, block_size);
        if (buffer.size() < out_length + share) buffer.resize(out_length + share);
        u8 *const target = buffer.data() + out_length;
        const u32 got = reference == 0
                            ? read_live(target, share, *m_attached, position)
                            : read_clusters(target, share, *m_attached, position);
        if (got == 0) break;
        out_length += got;
    }
    return out_length != 0;
}

// Up to `bytes` bytes of a file as it is on the volume now. Returns how many.
u32 vss_container::read_live(u8 *out, u32 bytes, const attached_file &file,
                             u64 position) const
{
    u64 status = 0;
    return read_stream_range(*m_volume, file.runs, position, out, bytes, status) ? bytes
                                                                                 : 0;
}

// Up to `bytes` bytes at a position of a file, no further than one run or one block
// goes. Returns how many.
u32 vss_container::read_clusters(u8 *out, u64 bytes, const attached_file &file,
                                 u64 position)
{
    const u32 cluster = m_volume->get_cluster_size();
    const u64 vcn = position / cluster;
    const std::size_t index = file.runs.find(vcn);
    if (index == file.runs.pieces().size()) return 0;
    const disk_piece &piece = file.runs.pieces()[index];
    u64 in_run = 0;
    const u64 clusters_left = piece.clusters - (vcn - piece.vcn);
    if (!__builtin_mul_overflow(clusters_left, cluster, &in_run))
        bytes = std::min(bytes, in_run - position % cluster);
    if (piece.is_sparse) {
        std::memset(out, 0, bytes);
        return static_cast<u32>(bytes);
    }
    u64 on_volume = 0;
    u32 length = 0;
    if (!cluster_position(piece, vcn - piece.vcn, cluster, 0, on_volume) ||
        __builtin_add_overflow(on_volume, position % cluster, &on_volume) ||
        !read_data_raw(m_file_block, length, file.store_number, on_volume))
        return 0;
    const u32 taken = static_cast<u32>(std::min<u64>(bytes, length));
    std::memcpy(out, m_file_block.data(), taken);
    return taken;
}

} // namespace hv

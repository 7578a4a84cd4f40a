#include "vss/hv_vss_reader.h"

#include "base/hv_checked_math.h"
#include "base/hv_string.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/hv_path_lookup.h"
#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <span>
#include <string>

namespace hv {

namespace {

constexpr u32 block_size = vss_block::block_size;

// The start of the block that holds an offset.
constexpr u64 block_start(u64 offset)
{
    return offset - offset % block_size;
}

// Those runs of a file's unnamed $DATA that its base record lists. False for none.
bool data_runs_of(std::vector<disk_run> &out_runs, std::span<u8> record,
                  u32 bytes_per_sector)
{
    data_run_list runs;
    if (!apply_fixup(record, bytes_per_sector)) return false;
    for_each_attribute(byte_view{record}, [&](attribute_ref attribute) {
        if (!attribute.is(attribute_type::data) || attribute.has_name()) return true;
        if (attribute.non_resident()) decode_attribute_runs(attribute.bytes(), runs);
        return false;
    });
    runs_to_cluster_runs(runs, out_runs);
    return !out_runs.empty();
}

} // namespace

vss_container::vss_container() = default;
vss_container::~vss_container() = default;

bool vss_container::init(std::string_view image_path, u64 volume_offset, vss_load load)
{
    clear();
    auto opened = std::make_unique<CNtfs>(image_path, volume_offset, volume_kind::path);
    if (!opened->validate_volume()) return false;
    const bool complete = init(*opened, load);
    m_opened = std::move(opened);
    return complete;
}

void vss_container::clear()
{
    reset(nullptr);
    m_volume = nullptr;
    m_catalog.clear();
    m_snapshots.clear();
    m_files.clear();
    m_attached = nullptr;
}

bool vss_container::init(const CNtfs &volume, vss_load load)
try {
    clear();
    if (!volume.is_validated()) return false;
    m_volume = &volume;
    reset(m_volume);
    attach_file(0, 0, volume.get_mft_runs());
    m_attached = &m_files[0];
    std::array<u8, vss_block::header_size> header{};
    if (!load_stores(header, m_catalog, volume, {})) return false;
    number_stores();
    attach_own_files();
    return load == vss_load::catalog_only || load_all_blocks();
} catch (const std::bad_alloc &) {
    clear();
    return false;
}

// Numbers in catalogs needn't start with 1: old snapshots get deleted. Their order is
// what counts.
void vss_container::number_stores()
{
    std::vector<const vss_store *> ordered;
    for (const auto &[text, store] : m_catalog)
        if (store.entry_of(2).seen) ordered.push_back(&store);
    std::ranges::stable_sort(ordered, {}, &vss_store::store_number);
    set_store_count(ordered.size());
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
        if (!view.info.is(attribute_type::data) || !view.info.stream_name.empty())
            continue;
        const u64 reference = u64{file.sequence} << 48 | entry;
        attach_file(reference, store_number, view.info.cluster_runs);
        return;
    }
}

bool vss_container::load_all_blocks()
{
    std::vector<const vss_store *> stores;
    for (const snapshot_state &snapshot : m_snapshots) stores.push_back(snapshot.store);
    const bool complete = load_blocks(stores);
    for (u64 number = 1; number <= store_count(); ++number) locate_mft(number);
    return complete;
}

// A snapshot's own boot sector says where its $MFT starts.
void vss_container::locate_mft(u64 store_number)
{
    attached_file &file = m_files[store_number];
    file = {.store_number = store_number, .runs = m_files[0].runs};
    u64 &result = m_snapshots[store_number - 1].mft_offset;
    const u64 cluster = m_volume->get_cluster_size();
    u64 lcn = 0;
    u64 own = 0;
    if (!checked_position(m_volume->get_mft_start_lcn(), cluster, 0, result) ||
        !pull_descriptors_at_vol_offset(m_candidates, block_start(result), store_number,
                                        vss_search::later_stores_too) ||
        !read_mft_lcn(lcn, store_number) || lcn == 0 ||
        !checked_position(lcn, cluster, 0, own))
        return;
    std::vector<disk_run> runs;
    if (read_mft_runs(runs, store_number, own)) file.runs = run_index(runs);
    result = kept_mft_offset(store_number, own);
}

bool vss_container::read_mft_lcn(u64 &out_lcn, u64 store_number)
{
    u32 length = 0;
    pull_descriptors_at_vol_offset(m_candidates, 0, store_number,
                                   vss_search::later_stores_too);
    if (!pull_block(m_file_block, length,
                    {.store_number = store_number,
                     .candidates = &m_candidates,
                     .overlays = overlays_by_rules(),
                     .bitmap_store = store_number}))
        return false;
    out_lcn = byte_view{m_file_block}.read_padded<u64>(ntfs_boot::mft_start_lcn.offset);
    return true;
}

bool vss_container::read_mft_runs(std::vector<disk_run> &out_runs, u64 store_number,
                                  u64 offset)
{
    u32 length = 0;
    if (!read_data_raw(m_file_block, length, store_number, offset)) return false;
    const u32 size = std::min(length, m_volume->get_mft_record_size());
    return data_runs_of(out_runs, std::span(m_file_block).first(size),
                        m_volume->get_bytes_per_sector());
}

// Where the stores have the $MFT that the snapshot has at `offset`.
u64 vss_container::kept_mft_offset(u64 store_number, u64 offset)
{
    u64 result = offset;
    pull_descriptors_at_vol_offset(m_candidates, block_start(offset), store_number,
                                   vss_search::later_stores_too);
    for (const vss_descriptor_ref &ref : m_candidates) {
        const vss_block_descriptor &descriptor = descriptor_of(ref);
        // Only the bits of the first eight sectors count.
        if (descriptor.has(vss_descriptor::overlay) && (descriptor.sectors & 0xFF) != 0)
            return descriptor.store_offset;
        if (!descriptor.has(vss_descriptor::forwarder))
            result = descriptor.relative_offset;
    }
    return result;
}

const vss_store *vss_container::store(u64 store_number) const
{
    return holds_store(store_number) ? m_snapshots[store_number - 1].store : nullptr;
}

u64 vss_container::mft_offset(u64 store_number) const
{
    return holds_store(store_number) ? m_snapshots[store_number - 1].mft_offset : 0;
}

bool vss_container::read_data_raw(std::vector<u8> &buffer, u32 &out_length,
                                  u64 snapshot, u64 volume_offset, vss_flag_8 flag_8)
{
    out_length = 0;
    if (m_volume == nullptr || snapshot > store_count()) return false;
    if (buffer.size() < block_size) buffer.resize(block_size);
    const u64 start = block_start(volume_offset);
    const vss_read_request request{.store_number = snapshot,
                                   .volume_offset = start,
                                   .candidates = &m_candidates,
                                   .flag_8 = flag_8,
                                   .overlays = overlays_by_rules(),
                                   .bitmap_store = snapshot};
    const bool is_pulled =
        snapshot != 0 && pull_descriptors_at_vol_offset(m_candidates, start, snapshot,
                                                        vss_search::later_stores_too);
    if (!is_pulled && report_live_reads)
        std::puts("vss_container::read_data_raw - "
                  "!snap || !pull_descriptors_at_vol_offset");
    u32 length = 0;
    if (!(is_pulled ? pull_block(buffer, length, request)
                    : read_piece(buffer, length, rest_piece(request))))
        return false;
    const u32 delta = static_cast<u32>(volume_offset - start);
    out_length = length > delta ? length - delta : 0;
    if (delta != 0) std::memmove(buffer.data(), buffer.data() + delta, out_length);
    return out_length != 0;
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
        const u32 delivered = reference == 0
                                  ? read_live(target, share, *m_attached, position)
                                  : read_clusters(target, share, *m_attached, position);
        if (delivered == 0) break;
        out_length += delivered;
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

// Up to `bytes` bytes at a position of a file, not past the end of one run or one
// block. Returns how many.
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

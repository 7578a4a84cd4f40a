#include "ntfs/ntfs.h"

#include "base/hv_checked_math.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_data_run.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <utility>

namespace hv {

namespace {

constexpr u8 max_sectors_per_cluster = 128;
constexpr u32 max_exponent = 31;

// Clusters of up to 2 MiB are real; a boot sector that says more is damaged.
constexpr u64 max_cluster = u64{2} << 20;

// No record is larger. A boot sector that says more costs no more memory than this.
constexpr u32 max_record = 65536;

constexpr std::string_view boot_signature = "NTFS    ";

// The size of a record that entry 0 states, if it can be one.
bool is_record_size(u32 size)
{
    return size >= 512 && size <= max_record && std::has_single_bit(size);
}

// Calls `visit` with the rest of an attribute list from each of its entries on. The
// walk ends where fewer than 27 bytes are left, one more than an entry without a name
// has: such an entry at the very end of a list isn't followed.
template <class Visit> void for_each_inner_entry(byte_view list, Visit visit)
{
    while (list.size() > list_entry::size) {
        const u16 length = list.read_padded<u16>(list_entry::length);
        if (length == 0 || length > list.size()) return;
        visit(list);
        list = list.from(length);
    }
}

// Appends the decoded runs of a non-resident attribute. An attribute that was never
// initialised has to hold its run list; then there is nothing to decode, which is fine.
bool append_runs(data_run_list &runs, attribute_ref attribute)
{
    const byte_view list = attribute.run_list();
    if (list.empty() && attribute.valid_size() == 0) return true;
    return decode_run_list(list, runs, attribute.type(), false);
}

// The pseudo-run that stands for resident content.
data_run resident_run(attribute_ref attribute)
{
    data_run run;
    const auto content = attribute.content().bytes();
    run.resident = true;
    run.content_length = static_cast<u32>(content.size());
    run.attribute_type = attribute.type();
    run.tail.assign(content.begin(), content.end());
    return run;
}

bool add_stream(data_run_list &runs, u64 &size, attribute_ref attribute)
{
    if (attribute.non_resident()) {
        if (!append_runs(runs, attribute)) return false;
        if (size == 0) size = attribute.real_size();
    } else if (!attribute.content().empty()) {
        runs.push_back(resident_run(attribute));
        if (size == 0) size = attribute.content().size();
    }
    return true;
}

bool add_index(INODE_STATS &stats, attribute_ref attribute)
{
    if (!attribute.non_resident()) return true;
    stats.index_runs.emplace_back();
    stats.index_names.push_back(attribute.name());
    return append_runs(stats.index_runs.back(), attribute);
}

// The name isn't taken from the content here; callers use its fixed part.
void add_file_name(INODE_STATS &stats, attribute_ref attribute)
{
    if (attribute.has_name()) {
        stats.name = attribute.name();
        return;
    }
    const byte_view content = attribute.content();
    if (content.empty()) return;
    const auto fixed = content.clip(0, file_name::fixed_size).bytes();
    stats.file_name.fill(0);
    std::ranges::copy(fixed, stats.file_name.begin());
    stats.data_size = content.read_padded<u64>(file_name::real_size);
}

// Counts the VCNs of the runs from 0 on and maps each of them to its run.
void assign_vcns(INODE_STATS &stats)
{
    u64 vcn = 0;
    stats.run_map.clear();
    for (std::size_t i = 0; i < stats.data_runs.size(); ++i) {
        stats.data_runs[i].vcn = vcn;
        stats.run_map.emplace(vcn, i);
        vcn += stats.data_runs[i].clusters;
    }
}

std::vector<cluster_run> cluster_runs_of(const data_run_list &runs)
{
    std::vector<cluster_run> result;
    u64 vcn = 0;
    for (const data_run &run : runs) {
        if (run.resident) continue;
        const bool sparse = run.lcn == sparse_lcn;
        result.push_back({sparse ? 0 : run.lcn, vcn, sparse, run.clusters});
        vcn += run.clusters;
    }
    return result;
}

} // namespace

bool NTFS_BOOT::has_signature() const
{
    const auto stored =
        byte_view{bytes}.clip(ntfs_boot::signature, boot_signature.size()).bytes();
    return std::ranges::equal(stored, boot_signature);
}

CNtfs::CNtfs(std::string_view path, u64 offset, volume_kind kind)
    : m_volume_offset(offset)
{
    const bool is_of_path = kind == volume_kind::letter_path ||
                            kind == volume_kind::path || kind == volume_kind::image;
    if (is_of_path && !path.empty()) m_disk = std::make_unique<RAW_DISK_IO>(path);
}

CNtfs::CNtfs(u32 drive_number, u64 offset)
    : m_disk(std::make_unique<RAW_DISK_IO>(drive_number)),
      m_volume_offset(offset)
{
}

CNtfs::CNtfs(const std::vector<std::string> &paths, u64 offset)
    : m_disk(std::make_unique<RAW_DISK_IO>(paths)),
      m_volume_offset(offset)
{
    if (m_volume_offset == 0) m_volume_offset = m_disk->first_volume_offset();
    m_disk->set_volume_offset(m_volume_offset);
}

CNtfs::CNtfs(byte_source_ptr source, u64 offset, const parse_rules &rules)
    : m_disk(std::make_unique<RAW_DISK_IO>(std::move(source))),
      m_rules(rules),
      m_volume_offset(offset)
{
}

CNtfs::~CNtfs() = default;

const NTFS_BOOT &CNtfs::get_boot_sector() const
{
    assert(m_Validated);
    return m_boot;
}

const INODE_STATS &CNtfs::get_mft_inode_stats() const
{
    assert(m_Validated);
    return m_mft_stats;
}

const data_run_list &CNtfs::get_bitmap_inode_runlist() const
{
    assert(m_Validated);
    return m_bitmap_runs;
}

const data_run_list &CNtfs::get_mft_inode_bitmap_runlist() const
{
    assert(m_Validated);
    return m_mft_stats.bitmap_runs;
}

RAW_DISK_IO *CNtfs::get_disk() const
{
    return m_disk && m_disk->is_open() ? m_disk.get() : nullptr;
}

bool CNtfs::read_bytes(u64 position, u8 *buffer, u32 &length) const
{
    u64 on_disk = 0;
    if (!m_disk || __builtin_add_overflow(position, m_volume_offset, &on_disk))
        return false;
    return m_disk->read(buffer, length, on_disk) && length > 0;
}

bool CNtfs::read_boot_sector()
{
    u32 length = ntfs_boot::size;
    return read_bytes(0, m_boot.bytes.data(), length) && length == ntfs_boot::size &&
           m_boot.has_signature();
}

void CNtfs::compute_geometry()
{
    const u8 sectors = m_boot.get(ntfs_boot::sectors_per_cluster);
    const u32 exponent = std::min<u32>(256u - sectors, max_exponent);
    m_sectors_per_cluster =
        sectors > max_sectors_per_cluster ? 1u << exponent : sectors;
    const u64 cluster = u64{get_bytes_per_sector()} * m_sectors_per_cluster;
    m_cluster_size = cluster <= max_cluster ? static_cast<u32>(cluster) : 0;
    if (m_cluster_size == 0) return;

    // A signed byte: a negative count is an exponent.
    const u8 per_record = m_boot.get(ntfs_boot::clusters_per_record);
    const u64 record = per_record >= 128 ? u64{1} << (256u - per_record) % 32
                                         : u64{m_cluster_size} * per_record;
    m_mft_record_size = static_cast<u32>(std::min<u64>(record, max_record));
    m_total_clusters = m_boot.get(ntfs_boot::total_sectors) / m_sectors_per_cluster;
    m_mft_file_pos = saturating_product(m_cluster_size, get_mft_start_lcn());
}

bool CNtfs::read_first_entry()
{
    // Read again if the record says that it is larger than the boot sector does.
    for (int tries = 0; tries < 2; ++tries) {
        m_first_entry.assign(m_mft_record_size, 0);
        u32 length = m_mft_record_size;
        if (!read_bytes(m_mft_file_pos, m_first_entry.data(), length)) return false;
        m_first_entry.resize(length);
        if (!apply_fixup(m_first_entry, get_bytes_per_sector(), m_rules)) return false;
        const byte_view record{m_first_entry};
        if (!passes_record_test(record, m_rules)) return false;
        const u32 count = record.read_padded<u16>(file_record::fixup_count.offset);
        if (count * 512 <= m_mft_record_size + 512) break;
        m_mft_record_size = count * 512 - 512;
    }
    m_allocated_record_size =
        byte_view{m_first_entry}.read_padded<u32>(file_record::bytes_allocated.offset);
    if (!is_record_size(m_allocated_record_size))
        m_allocated_record_size = m_mft_record_size;
    return m_allocated_record_size != 0;
}

// Collects the $MFT's own runs. Its attribute list leads to records that are in the
// runs known so far, so the runs of each record are added before the next one is read.
void CNtfs::count_entries()
{
    const byte_view record{m_first_entry};
    std::vector<u8> outside;
    byte_view list;
    m_mft_stats = {};
    for_each_attribute(record, [&](attribute_ref found) {
        if (found.is(attribute_type::attribute_list)) {
            outside = read_attribute_clusters(found, max_list_bytes);
            list = found.non_resident() ? byte_view{outside} : found.content();
        }
        return parse_attribute(m_mft_stats, found);
    });
    m_mft_runs = cluster_runs_of(m_mft_stats.data_runs);
    for_each_inner_entry(list, [&](byte_view listed) {
        follow_list(m_mft_stats,
                    listed.clip(0, listed.read_padded<u16>(list_entry::length)),
                    mft_entry_number, record);
        if (m_mft_stats.data_runs.size() != m_mft_runs.size())
            m_mft_runs = cluster_runs_of(m_mft_stats.data_runs);
    });
    assign_vcns(m_mft_stats);
    const bool resident =
        !m_mft_stats.data_runs.empty() && m_mft_stats.data_runs[0].resident;
    u64 clusters = resident ? 1 : 0;
    for (const cluster_run &run : m_mft_runs) clusters += run.clusters;
    // Runs that claim more bytes than 64 bits can count are all believed to be wrong.
    u64 bytes = 0;
    m_entry_count = checked_position(clusters, m_cluster_size, 0, bytes)
                        ? bytes / m_allocated_record_size
                        : 0;
}

bool CNtfs::validate_volume()
{
    if (!m_disk) m_Validated = false;
    if (!m_disk || m_Validated) return m_Validated;
    if (!read_boot_sector()) return false;
    compute_geometry();
    if (m_cluster_size == 0 || !read_first_entry()) return false;
    count_entries();
    m_Validated = true;

    // Without $Bitmap the volume can be used; only its free clusters are unknown.
    std::vector<u8> record;
    INODE_STATS stats;
    if (read_filerecord(bitmap_entry_number, record) &&
        collect_inode_stats(byte_view{record}, stats, bitmap_entry_number))
        m_bitmap_runs = stats.data_runs;
    return true;
}

bool CNtfs::get_lcn_for_inode(u64 entry, u64 &lcn, u32 &offset_in_cluster) const
{
    u64 offset = 0;
    std::size_t index = 0;
    if (m_cluster_size == 0 ||
        __builtin_mul_overflow(entry, m_allocated_record_size, &offset))
        return false;
    offset_in_cluster = static_cast<u32>(offset % m_cluster_size);
    return find_vcn(m_mft_runs, offset / m_cluster_size, index, lcn) &&
           !m_mft_runs[index].is_sparse;
}

u64 CNtfs::get_entry_position(u64 entry) const
{
    u64 lcn = 0;
    u64 position = 0;
    u32 offset = 0;
    return get_lcn_for_inode(entry, lcn, offset) &&
                   checked_position(lcn, m_cluster_size, offset, position)
               ? position
               : 0;
}

u64 CNtfs::get_last_allocated_indo_per_mftbitmap() const
{
    constexpr std::size_t min_bitmap = 512;
    if (!m_disk || m_cluster_size < min_bitmap) return 0;
    const std::vector<u8> bitmap =
        read_runs(m_mft_stats.bitmap_runs, m_disk->get_size());
    if (bitmap.size() < min_bitmap) return 0;
    for (u64 i = bitmap.size(); i-- > 0;)
        if (bitmap[i] != 0)
            return i * 8 + static_cast<u64>(std::bit_width(bitmap[i])) - 1;
    return 0;
}

bool CNtfs::read_clusters(u64 lcn, u8 *buffer, u32 &length) const
{
    u64 position = 0;
    if (m_cluster_size == 0 || length % m_cluster_size != 0) return false;
    return checked_position(lcn, m_cluster_size, 0, position) &&
           read_bytes(position, buffer, length);
}

bool CNtfs::read_record(u64 entry, std::vector<u8> &record) const
{
    const u64 position = get_entry_position(entry);
    u32 length = get_mft_record_size();
    record.assign(length, 0);
    if (position == 0 || !read_bytes(position, record.data(), length)) return false;
    record.resize(length);
    return true;
}

bool CNtfs::read_filerecord(u64 entry, std::vector<u8> &record) const
{
    return read_record(entry, record) &&
           apply_fixup(record, get_bytes_per_sector(), m_rules);
}

bool CNtfs::read_record_checked(u64 entry, std::vector<u8> &record,
                                block_type &type) const
{
    type = block_type::unknown;
    if (!read_record(entry, record)) return false;
    type = apply_fixup_typed(record, get_bytes_per_sector(), m_rules);
    return type != block_type::unknown;
}

std::vector<u8> CNtfs::read_runs(const data_run_list &runs, u64 max_bytes) const
{
    std::vector<u8> bytes;
    for (const data_run &run : runs) {
        for (u32 i = 0; i < run.clusters; ++i) {
            const std::size_t had = bytes.size();
            if (had + m_cluster_size > std::max<u64>(max_bytes, m_cluster_size))
                return bytes;
            bytes.resize(had + m_cluster_size);
            u32 length = m_cluster_size;
            const bool good = run.lcn != sparse_lcn &&
                              read_clusters(run.lcn + i, bytes.data() + had, length);
            bytes.resize(had + (good ? length : 0));
            if (!good) return bytes;
        }
    }
    return bytes;
}

std::vector<u8> CNtfs::read_attribute_clusters(attribute_ref attribute,
                                               u64 max_bytes) const
{
    data_run_list runs;
    if (m_cluster_size == 0 || !attribute.non_resident() ||
        !decode_run_list(attribute.run_list(), runs, attribute.type(), true))
        return {};
    return read_runs(runs, max_bytes);
}

bool CNtfs::parse_attribute(INODE_STATS &stats, attribute_ref attribute) const
{
    switch (static_cast<attribute_type>(attribute.type())) {
    case attribute_type::standard_information: add_owner(stats, attribute); return true;
    case attribute_type::file_name: add_file_name(stats, attribute); return true;
    case attribute_type::index_allocation: return add_index(stats, attribute);
    case attribute_type::data:
        if (attribute.has_name()) return true;
        return add_stream(stats.data_runs, stats.data_size, attribute);
    case attribute_type::bitmap:
        return add_stream(stats.bitmap_runs, stats.bitmap_size, attribute);
    default: return true;
    }
}

void CNtfs::add_owner(INODE_STATS &stats, attribute_ref attribute) const
{
    const u32 id =
        attribute.content().read_padded<u32>(standard_information::security_id);
    // The lookup reads files of the volume, which needs the runs of the $MFT.
    if (id != 0 && m_owner_lookup && m_Validated && m_mft_stats.data_size != 0)
        m_owner_lookup(stats.owner, id);
}

void CNtfs::follow_list(INODE_STATS &stats, byte_view entry_bytes, u64 entry,
                        byte_view base) const
{
    const u64 reference = entry_bytes.read_padded<u64>(list_entry::reference);
    if (reference_entry(reference) == entry) return;
    std::vector<u8> bytes;
    block_type type = block_type::unknown;
    if (!read_record_checked(reference_entry(reference), bytes, type)) return;
    const byte_view record{bytes};
    const bool belongs =
        type == block_type::file &&
        record.read_padded<u16>(file_record::first_attribute.offset) != 0 &&
        record.read_padded<u16>(file_record::sequence.offset) ==
            reference_sequence(reference) &&
        is_extension_of(record, entry, base);
    attribute_ref found;
    const auto is_named = [entry_bytes](attribute_ref attribute) {
        return attribute.type() == entry_bytes.read_padded<u32>(list_entry::type) &&
               attribute.id() == entry_bytes.read_padded<u16>(list_entry::id);
    };
    if (belongs && find_attribute(record, is_named, found))
        parse_attribute(stats, found);
}

bool CNtfs::collect_inode_stats(byte_view record, INODE_STATS &stats, u64 entry) const
{
    std::vector<u8> outside;
    byte_view list;
    bool good = true;
    stats = {};
    for_each_attribute(record, [&](attribute_ref found) {
        if (found.is(attribute_type::attribute_list)) {
            outside = read_attribute_clusters(found, max_list_bytes);
            list = found.non_resident() ? byte_view{outside} : found.content();
        }
        good = parse_attribute(stats, found);
        return good;
    });
    for_each_inner_entry(
        list, [&](byte_view listed) { follow_list(stats, listed, entry, record); });
    assign_vcns(stats);
    return good;
}

namespace {

std::unique_ptr<CNtfs> validated(std::unique_ptr<CNtfs> volume)
{
    if (!volume->validate_volume()) volume.reset();
    return volume;
}

bool is_drive_letter(std::string_view path)
{
    return (path.size() == 2 && path[1] == ':') ||
           (path.size() == 3 && path.substr(1) == ":\\");
}

} // namespace

std::unique_ptr<CNtfs> open_volume(std::string_view path, u64 offset)
{
    volume_kind kind = volume_kind::path;
    if (path.starts_with("\\\\"))
        kind = volume_kind::image;
    else if (is_drive_letter(path))
        kind = volume_kind::letter_path;
    return validated(std::make_unique<CNtfs>(path, offset, kind));
}

std::unique_ptr<CNtfs> open_volume(byte_source_ptr source, u64 offset,
                                   const parse_rules &rules)
{
    return validated(std::make_unique<CNtfs>(std::move(source), offset, rules));
}

std::unique_ptr<CNtfs> open_device_volume(std::string_view path, u64 offset)
{
    if (!path.starts_with("\\\\.\\")) return nullptr;
    return validated(std::make_unique<CNtfs>(path, offset, volume_kind::image));
}

std::unique_ptr<CNtfs> open_drive_volume(u32 drive_number, u64 offset)
{
    return validated(std::make_unique<CNtfs>(drive_number, offset));
}

std::unique_ptr<CNtfs> open_vmdk_volume(const std::vector<std::string> &paths,
                                        u64 offset)
{
    return validated(std::make_unique<CNtfs>(paths, offset));
}

bool test_bitmap_bit(byte_view bitmap, u64 bit)
{
    return (bitmap.read_padded<u8>(bit / 8) >> (bit % 8) & 1) != 0;
}

} // namespace hv

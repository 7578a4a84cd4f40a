#include "ntfs/hv_data_run.h"

#include "base/hv_checked_math.h"
#include "ntfs/hv_ntfs_layout.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 no_number = ~u64{0};

// The low half of an entry's header byte is the count of length bytes, the high half
// that of offset bytes.
constexpr unsigned offset_count_shift = 4;
constexpr u8 length_count_mask = 0x0F;
constexpr u8 max_header_without_offset = 0x0F;
constexpr std::size_t max_number = sizeof(u64);

struct run_entry {
    byte_view bytes; ///< all of it, its header byte first
    byte_view length;
    byte_view offset;
};

// The first entry of a list. False at the end of the list, or for an entry that is cut.
bool next_entry(byte_view list, run_entry &entry)
{
    u8 header = 0;
    if (!list.read(0, header) || header == 0) return false;
    const std::size_t length = header & length_count_mask;
    const std::size_t offset = header >> offset_count_shift;
    return list.sub(0, 1 + length + offset, entry.bytes) &&
           list.sub(1, length, entry.length) &&
           list.sub(1 + length, offset, entry.offset);
}

// What becomes of the bytes of a length after the fourth: the list form adds them to
// the low ones, the other forms drop them. Lengths count modulo 2^32.
enum class long_length { fold, cut };

u32 run_length(byte_view bytes, long_length excess)
{
    u32 length = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (excess == long_length::cut && i >= sizeof(u32)) break;
        length += u32{bytes.bytes()[i]} << (8 * i % 32);
    }
    return length;
}

struct run_offset {
    u64 magnitude = 0;
    bool negative = false;

    // Hostile offsets may wrap around. The result isn't on any medium, and reads of it
    // fail.
    u64 applied_to(u64 lcn) const
    {
        return negative ? lcn - magnitude : lcn + magnitude;
    }
};

// The signed offset of an entry. A field of more than 8 bytes counts by its first 8.
run_offset read_offset(byte_view field)
{
    const byte_view bytes = field.clip(0, max_number);
    if (bytes.empty()) return {};
    const u64 value = bytes.read_padded<u64>(0);
    const std::size_t bits = 8 * bytes.size();
    if ((value >> (bits - 1) & 1) == 0) return {value, false};
    const u64 mask = bits == 64 ? no_number : (u64{1} << bits) - 1;
    return {(0 - value) & mask, true};
}

// Walks over the entries of a list and counts VCNs from `vcn` on. The walk ends where
// they would pass 64 bits. Each step takes an entry from `list`.
template <class Visit>
void for_each_entry(byte_view list, u64 vcn, long_length excess, Visit visit)
{
    run_entry entry;
    while (next_entry(list, entry)) {
        const u32 clusters = run_length(entry.length, excess);
        visit(entry, clusters, vcn);
        if (__builtin_add_overflow(vcn, clusters, &vcn)) return;
        list = list.from(entry.bytes.size());
    }
}

// The run list of a non-resident attribute, cut at the attribute's own length.
byte_view run_list_of(byte_view record, u16 &offset)
{
    const byte_view own = record.clip(0, record.read_padded<u32>(attribute::length));
    offset = own.read_padded<u16>(attribute::runs_offset);
    return own.from(offset);
}

bool is_sparse_run(const data_run &run, std::size_t index)
{
    // The list form marks a sparse run by its cluster alone.
    if (run.delta == no_number) return run.lcn == sparse_lcn;
    if (run.delta != 0) return false;
    // The first run may really begin at cluster 0; only the header byte shows it.
    const bool has_offset =
        !run.raw.empty() && run.raw.front() > max_header_without_offset;
    return index != 0 || !has_offset;
}

} // namespace

bool decode_run_list(byte_view list, data_run_list &out_runs, u32 attribute_type,
                     bool clear)
{
    if (clear) out_runs.clear();
    if (list.read_padded<u8>(0) == 0) return false;
    u64 lcn = 0;
    for_each_entry(
        list, 0, long_length::fold, [&](const run_entry &entry, u32 clusters, u64 vcn) {
            data_run run;
            const run_offset offset = read_offset(entry.offset);
            lcn = offset.applied_to(lcn);
            run.lcn = entry.offset.empty() ? sparse_lcn : lcn;
            run.delta = no_number;
            run.clusters = clusters;
            run.vcn = vcn;
            run.negative = offset.negative;
            run.attribute_type = attribute_type;
            run.position =
                static_cast<u64>(entry.bytes.bytes().data() - list.bytes().data());
            run.raw.assign(entry.bytes.bytes().begin(), entry.bytes.bytes().end());
            out_runs.push_back(std::move(run));
        });
    return true;
}

void decode_attribute_runs(byte_view attribute, data_run_list &out_runs)
{
    u16 list_offset = 0;
    const byte_view list = run_list_of(attribute, list_offset);
    const u64 first_vcn = attribute.read_padded<u64>(attribute::first_vcn);
    const u32 type = attribute.read_padded<u32>(attribute::type);
    u64 lcn = 0;
    u64 position = list_offset;
    for_each_entry(list, first_vcn, long_length::cut,
                   [&](const run_entry &entry, u32 clusters, u64 vcn) {
                       data_run run;
                       const run_offset offset = read_offset(entry.offset);
                       lcn = offset.applied_to(lcn);
                       run.lcn = lcn;
                       run.delta = offset.magnitude;
                       run.clusters = clusters;
                       run.vcn = vcn;
                       run.negative = offset.negative;
                       run.attribute_type = type;
                       run.position = position;
                       run.raw.assign(entry.bytes.bytes().begin(),
                                      entry.bytes.bytes().end());
                       position += entry.bytes.size();
                       out_runs.push_back(std::move(run));
                   });
}

bool decode_flat_runs(byte_view attribute, std::vector<flat_run> &out_runs)
{
    if (attribute.read_padded<u32>(attribute::length) == 0) return false;
    u16 list_offset = 0;
    const byte_view list = run_list_of(attribute, list_offset);
    u64 lcn = 0;
    for_each_entry(
        list, attribute.read_padded<u64>(attribute::first_vcn), long_length::cut,
        [&](const run_entry &entry, u32 clusters, u64 vcn) {
            const run_offset offset = read_offset(entry.offset);
            lcn = offset.applied_to(lcn);
            out_runs.push_back({lcn, offset.magnitude, clusters, vcn, offset.negative});
        });
    return true;
}

void runs_to_cluster_runs(const data_run_list &runs, std::vector<cluster_run> &out)
{
    out.clear();
    out.reserve(runs.size());
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const bool sparse = is_sparse_run(runs[i], i);
        out.push_back(
            {sparse ? 0 : runs[i].lcn, runs[i].vcn, sparse, runs[i].clusters});
    }
}

void flat_to_cluster_runs(const std::vector<flat_run> &runs,
                          std::vector<cluster_run> &out)
{
    out.clear();
    out.reserve(runs.size());
    for (const flat_run &run : runs) {
        const bool sparse = run.delta == 0;
        out.push_back({sparse ? 0 : run.lcn, run.vcn, sparse, run.clusters});
    }
}

void compact_runs(std::vector<cluster_run> &runs)
{
    std::erase_if(runs, [](const cluster_run &run) { return run.is_sparse; });
    std::ranges::stable_sort(runs, {}, &cluster_run::vcn);
    const auto same_vcn = [](const cluster_run &a, const cluster_run &b) {
        return a.vcn == b.vcn;
    };
    runs.erase(std::unique(runs.begin(), runs.end(), same_vcn), runs.end());
    u64 vcn = 0;
    for (cluster_run &run : runs) {
        run.vcn = vcn;
        vcn += run.clusters;
    }
}

u64 runs_total_bytes(const std::vector<cluster_run> &runs, u32 cluster_size,
                     bool skip_sparse)
{
    u64 total = 0;
    for (const cluster_run &run : runs) {
        if (run.is_sparse && skip_sparse) continue;
        // A product of two numbers of 32 bits fits.
        total = saturating_sum(total, u64{run.clusters} * cluster_size);
    }
    return total;
}

bool find_vcn(const std::vector<cluster_run> &runs, u64 vcn, std::size_t &out_index,
              u64 &out_lcn)
{
    const auto found = std::ranges::find_if(runs, [vcn](const cluster_run &run) {
        return vcn >= run.vcn && vcn - run.vcn < run.clusters;
    });
    if (found == runs.end()) return false;
    out_index = static_cast<std::size_t>(found - runs.begin());
    out_lcn = found->is_sparse ? 0 : saturating_sum(found->lcn, vcn - found->vcn);
    return true;
}

} // namespace hv

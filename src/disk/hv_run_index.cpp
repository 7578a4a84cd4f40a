#include "disk/hv_run_index.h"

#include "base/hv_checked_math.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>

namespace hv {

namespace {

constexpr u64 no_number = ~u64{0};
constexpr u64 clusters_per_unit = 16;
constexpr u64 unit_start_mask = 0xFFFF;

u64 end_of(const disk_run &run)
{
    return saturating_sum(run.vcn, run.clusters);
}

bool ascends(const std::vector<disk_run> &runs)
{
    u64 end = 0;
    return std::ranges::all_of(runs, [&end](const disk_run &run) {
        if (run.clusters == 0) return true;
        if (run.vcn < end) return false;
        end = end_of(run);
        return true;
    });
}

// True if the clusters of `next` follow those of `before` in the file and on the
// volume.
bool continues(const disk_piece &before, const disk_piece &next)
{
    return before.vcn + before.clusters == next.vcn &&
           before.is_sparse == next.is_sparse &&
           (next.is_sparse ||
            (next.lcn != no_number &&
             saturating_sum(before.lcn, before.clusters) == next.lcn));
}

} // namespace

run_index::run_index(const std::vector<disk_run> &runs) : m_has_runs(!runs.empty())
{
    if (!ascends(runs)) {
        resolve_overlaps(runs);
        return;
    }
    m_pieces.reserve(runs.size());
    for (const disk_run &run : runs) append(run, run.vcn, end_of(run));
}

void run_index::append(const disk_run &run, u64 vcn, u64 end)
{
    if (vcn >= end) return;
    disk_piece piece{.vcn = vcn, .clusters = end - vcn, .is_sparse = run.is_sparse};
    if (!run.is_sparse) piece.lcn = saturating_sum(run.lcn, vcn - run.vcn);
    if (!m_pieces.empty() && continues(m_pieces.back(), piece))
        m_pieces.back().clusters += piece.clusters;
    else
        m_pieces.push_back(piece);
}

// Sweeps over the clusters; of the runs that hold the present one, the first in the
// list is on top of the heap. Each step takes a run from the order or from the heap.
void run_index::resolve_overlaps(const std::vector<disk_run> &runs)
{
    std::vector<std::size_t> order(runs.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(order, {}, [&runs](std::size_t i) { return runs[i].vcn; });
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> open;
    std::size_t next = 0;
    u64 vcn = 0;
    while (next < order.size() || !open.empty()) {
        if (open.empty()) vcn = std::max(vcn, runs[order[next]].vcn);
        while (next < order.size() && runs[order[next]].vcn <= vcn)
            open.push(order[next++]);
        const disk_run &first = runs[open.top()];
        u64 end = end_of(first);
        if (end <= vcn) {
            open.pop();
            continue;
        }
        if (next < order.size()) end = std::min(end, runs[order[next]].vcn);
        append(first, vcn, end);
        vcn = end;
    }
}

std::size_t run_index::find(u64 vcn) const
{
    const std::size_t i = find_from(vcn);
    return i < m_pieces.size() && m_pieces[i].vcn <= vcn ? i : m_pieces.size();
}

std::size_t run_index::find_from(u64 vcn) const
{
    const auto after = std::ranges::upper_bound(m_pieces, vcn, {}, &disk_piece::vcn);
    const auto i = static_cast<std::size_t>(after - m_pieces.begin());
    const bool holds_vcn =
        i != 0 && vcn - m_pieces[i - 1].vcn < m_pieces[i - 1].clusters;
    return holds_vcn ? i - 1 : i;
}

cluster_plan::share cluster_plan::share_of(u64 first, u64 count) const
{
    const u64 begin = first == 0 ? head : 0;
    const bool is_cut = clusters > 1 && first + count == clusters && tail != 0;
    const u64 end = count * cluster_size - (is_cut ? cluster_size - tail : 0);
    return {begin, end - begin};
}

cluster_plan plan_range(const run_index &runs, u32 cluster_size, u64 offset, u32 length,
                        bool leave_out_sparse)
{
    cluster_plan plan;
    plan.cluster_size = cluster_size;
    plan.status = mapped_status::was_read;
    const u64 first = offset / cluster_size;
    if ((first & unit_start_mask) == 0) plan.status |= mapped_status::starts_at_unit;
    u64 end = 0;
    if (__builtin_add_overflow(offset, length, &end)) return plan;
    const u64 last = end / cluster_size;
    plan.head = offset % cluster_size;
    plan.tail = end % cluster_size;
    if ((first & unit_start_mask) == 0 && last - first == clusters_per_unit)
        plan.status |= mapped_status::whole_unit;

    u64 vcn = first;
    for (std::size_t i = runs.find(first); i < runs.pieces().size(); ++i) {
        disk_piece piece = runs.pieces()[i];
        if (piece.vcn > vcn) break;
        const u64 skipped = vcn - piece.vcn;
        piece.clusters = std::min(piece.clusters - skipped, last - vcn + 1);
        piece.vcn = vcn;
        if (!piece.is_sparse) piece.lcn = saturating_sum(piece.lcn, skipped);
        const bool ends_here = piece.clusters > last - vcn;
        if (piece.is_sparse && leave_out_sparse) {
            if (vcn == first) plan.head = 0;
            if (ends_here) plan.tail = 0;
        } else {
            plan.clusters += piece.clusters;
            plan.pieces.push_back(piece);
        }
        if (ends_here) return plan;
        vcn += piece.clusters;
    }
    // The runs end before the range: their last cluster is wanted whole.
    plan.tail = 0;
    return plan;
}

clusters_present clusters_on_medium(const disk_piece &piece, u32 cluster_size,
                                    u64 volume_offset, u64 medium_size)
{
    if (piece.is_sparse || volume_offset >= medium_size) return {};
    const u64 room = medium_size - volume_offset;
    const auto before = [&piece](u64 end) {
        return piece.lcn < end ? std::min(piece.clusters, end - piece.lcn) : 0;
    };
    const u64 whole = room / cluster_size;
    return {before(whole), before(room % cluster_size != 0 ? whole + 1 : whole)};
}

bool cluster_position(const disk_piece &piece, u64 index, u32 cluster_size,
                      u64 volume_offset, u64 &position)
{
    u64 lcn = 0;
    return !__builtin_add_overflow(piece.lcn, index, &lcn) &&
           checked_position(lcn, cluster_size, volume_offset, position);
}

} // namespace hv

// Run lists in all their forms, the lookup of clusters in them, and the expansion of a
// compression unit. The first byte is the length of the list; the unit comes after it.

#include "ntfs/hv_data_run.h"
#include "ntfs/hv_lznt1.h"

#include <algorithm>
#include <cstdlib>

namespace {

// The index must find the same run as a walk of the list.
void check_index(const std::vector<hv::cluster_run> &runs, hv::u64 vcn)
{
    const hv::run_index index(runs);
    const std::size_t found = index.find(vcn);
    std::size_t run = 0;
    hv::u64 lcn = 0;
    const bool is_held = hv::find_vcn(runs, vcn, run, lcn);
    if ((found < index.pieces().size()) != is_held) std::abort();
    if (!is_held) return;
    const hv::disk_piece &piece = index.pieces()[found];
    hv::u64 place = 0;
    if (piece.is_sparse != runs[run].is_sparse) std::abort();
    if (!piece.is_sparse && hv::cluster_position(piece, vcn - piece.vcn, 1, 0, place) &&
        place != lcn)
        std::abort();
}

void check_unit(hv::byte_view unit, bool found_sparse)
{
    std::vector<hv::u8> out(3 * hv::lznt1_block + 1);
    std::size_t count = 0;
    if (hv::expand_unit(out, count, unit, found_sparse) && count > out.size())
        std::abort();
    // A smaller buffer gets the start of the same bytes, unless the unit isn't
    // compressed.
    std::vector<hv::u8> front(hv::lznt1_block / 2);
    std::size_t front_count = 0;
    if (hv::expand_unit(front, front_count, unit, found_sparse) &&
        (front_count != std::min(count, front.size()) ||
         !std::equal(front.begin(),
                     front.begin() + static_cast<std::ptrdiff_t>(front_count),
                     out.begin())))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view input{{data, size}};
    const hv::byte_view list = input.clip(1, input.read_padded<hv::u8>(0));
    check_unit(input.from(1 + list.size()), (size & 1) != 0);

    // The attribute's header: type, length, first cluster, offset of the list.
    std::vector<hv::u8> attribute(64);
    attribute[0] = 128;
    attribute[4] = static_cast<hv::u8>((64 + list.size()) & 0xFF);
    attribute[5] = static_cast<hv::u8>((64 + list.size()) >> 8);
    attribute[32] = 64;
    attribute.insert(attribute.end(), list.bytes().begin(), list.bytes().end());

    hv::data_run_list full;
    hv::data_run_list listed;
    std::vector<hv::flat_run> flat;
    hv::decode_attribute_runs(hv::byte_view{attribute}, full);
    hv::decode_flat_runs(hv::byte_view{attribute}, flat);
    hv::decode_run_list(list, listed, 128, true);
    // A run costs at least its header byte, and the forms agree on the positions.
    if (full.size() > list.size() || flat.size() != full.size() ||
        listed.size() > list.size())
        std::abort();
    for (std::size_t i = 0; i < full.size(); ++i)
        if (full[i].lcn != flat[i].lcn || full[i].clusters != flat[i].clusters ||
            full[i].vcn != flat[i].vcn || full[i].delta != flat[i].delta)
            std::abort();

    std::vector<hv::cluster_run> runs;
    hv::runs_to_cluster_runs(full, runs);
    // Lists on a volume ascend; another order makes them overlap.
    for (std::size_t i = 0; i + 1 < runs.size(); i += 2)
        runs[i].vcn = runs[i + 1].vcn / 2;
    for (const hv::cluster_run &run : runs) {
        check_index(runs, run.vcn);
        check_index(runs, run.vcn + run.clusters);
        check_index(runs, run.vcn + run.clusters / 2);
    }
    hv::compact_runs(runs);
    if (hv::runs_total_bytes(runs, 1, false) != hv::runs_total_bytes(runs, 1, true))
        std::abort();
    return 0;
}

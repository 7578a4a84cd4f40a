// The search for the volumes of a medium, and what opens them.

#include "evidence/describe_medium.h"
#include "fuzz/input_source.h"

#include <algorithm>
#include <cstdlib>

namespace {

using namespace hv;
using fuzz::input_source;

void require(bool good)
{
    if (!good) std::abort();
}

// Every byte of the medium is in a volume or in one gap.
void check_regions(const medium_layout &layout, u64 size)
{
    std::vector<byte_range> regions = layout.gaps;
    for (const found_volume &volume : layout.volumes) {
        require(volume.size != 0 && volume.offset < size &&
                volume.size <= size - volume.offset);
        regions.push_back({volume.offset, volume.size});
        for (const byte_range gap : layout.gaps)
            require(gap.offset + gap.length <= volume.offset ||
                    volume.offset + volume.size <= gap.offset);
    }
    std::ranges::sort(regions);
    u64 end = 0;
    for (const byte_range region : regions) {
        require(region.offset <= end);
        end = std::max(end, region.offset + region.length);
    }
    require(end == size);
}

// With its patches, a volume has a boot sector and, if one was promised, an entry 0.
void check_volume(const found_volume &volume, const byte_source_ptr &medium)
{
    const byte_source_ptr patched = patch_source(medium, volume.patches);
    ntfs_geometry geometry;
    require(
        read_geometry(geometry, byte_view{read_bytes(*patched, volume.offset, 512)}));
    require(geometry == volume.geometry);
    require(volume.rebuilt_records <= volume.size / geometry.record_size);
    if (volume.mft == mft_state::missing) return;
    const mft_head head =
        find_mft_head(*patched, volume.offset, geometry, record_search::none);
    require(head.state == mft_state::whole);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size)
{
    // Media end with a sector, or near to it: of all cuts, these are enough.
    if (size % 64 != 0) return 0;
    const auto medium = std::make_shared<input_source>(std::span(data, size));
    for (const volume_search search :
         {volume_search::usual_places, volume_search::every_sector}) {
        const medium_layout layout = find_volumes(*medium, search);
        require(
            std::ranges::is_sorted(layout.volumes, std::less(), &found_volume::offset));
        check_regions(layout, size);
        for (const found_volume &volume : layout.volumes) check_volume(volume, medium);
    }
    const medium_description description = describe_medium(*medium);
    require(description.volumes.empty() != description.refusal.empty());
    return 0;
}

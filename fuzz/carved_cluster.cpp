// The carver, on a cluster of a small volume. The first byte chooses the cluster size.

#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "samples/ntfs_volume_builder.h"
#include "scan/carve.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace {

std::unique_ptr<hv::CNtfs> volume_with_clusters_of(hv::u32 size)
{
    const test_support::byte_vector image =
        test_support::ntfs_volume_builder().cluster_size(size).build();
    const int file = memfd_create("volume", 0);
    if (write(file, image.data(), image.size()) != std::ssize(image)) std::abort();
    return hv::open_volume("/proc/self/fd/" + std::to_string(file), 0);
}

const hv::CNtfs &volume_for(hv::u8 choice)
{
    static std::array<std::unique_ptr<hv::CNtfs>, 8> volumes;
    const unsigned shift = choice % volumes.size();
    if (!volumes[shift])
        volumes[shift] = volume_with_clusters_of(hv::u32{512} << shift);
    if (!volumes[shift]) std::abort();
    return *volumes[shift];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    if (size == 0) return 0;
    const hv::run_options options;
    hv::_trash_inodes collection;
    hv::trash_options context(options, collection);
    hv::scan_item item;
    item.volume = &volume_for(data[0]);
    item.context = &context;
    item.data = {data + 1, size - 1};
    item.offset = 4096;
    hv::carve_cluster(item);
    // At most one list, which ends with the item, and one record for each 1024 bytes.
    if (collection.carved_entries.size() > 1) std::abort();
    if (collection.records.size() > size / 1024) std::abort();
    for (const hv::trash_entry &entry : collection.carved_entries)
        if (entry.source_offset - item.offset + entry.raw_data.size() != size - 1 ||
            (entry.source_offset - item.offset) % item.volume->get_cluster_size() != 0)
            std::abort();
    return 0;
}

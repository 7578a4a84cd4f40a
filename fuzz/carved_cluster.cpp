// The carver on bytes that nothing leads to. The first byte chooses the cluster size.

#include "records/trash_options.h"
#include "scan/carve.h"

#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    if (size == 0) return 0;
    std::ostringstream out;
    hv::trash_options options;
    options.results_stream = &out;
    options.cluster_size = hv::u32{512} << (data[0] % 8);
    hv::scan_item item;
    item.context = &options;
    item.data = {data + 1, size - 1};
    item.offset = 4096;
    hv::carve_cluster(item);
    // One list at most, and it ends where the item ends.
    if (options.carved_entries.size() > 1) std::abort();
    for (const hv::trash_entry &entry : options.carved_entries)
        if (entry.source_offset - item.offset + entry.raw_data.size() != size - 1 ||
            (entry.source_offset - item.offset) % options.cluster_size != 0)
            std::abort();
    return 0;
}

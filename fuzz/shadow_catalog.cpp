// The catalog of shadow copies and the header of a store.

#include "vss/hv_vss_catalog.h"

#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    hv::vss_block_map blocks;
    hv::vss_store_map stores;
    hv::parse_catalog(blocks, stores, {data, size});
    // Each entry costs 128 bytes, and so does each block header.
    if (stores.size() + blocks.size() > size / 128) std::abort();
    hv::vss_store store;
    hv::parse_store_header(store, {data, size});
    if (store.operating_machine.size() + store.service_machine.size() > 3 * size)
        std::abort();
    std::ostringstream out;
    hv::dump_store(out, store);
    if (out.str().empty()) std::abort();
    return 0;
}

// The structures of shadow copies: catalog, store header, descriptors, ranges, bitmap.
// The first byte chooses which of them the rest of the input is parsed as.

#include "vss/hv_vss_catalog.h"
#include "vss/hv_vss_store_blocks.h"

#include <cstdlib>

namespace {

using namespace hv;

void check_catalog(byte_view input)
{
    vss_block_map blocks;
    vss_store_map stores;
    if (!parse_catalog(blocks, stores, input) && !stores.empty()) std::abort();
    if (blocks.size() + stores.size() > input.size() / vss_catalog_entry::size)
        std::abort();
}

void check_store_header(byte_view input)
{
    vss_store store;
    if (!parse_store_header(store, input) && store.header_seen) std::abort();
    // A UTF-16 unit becomes at most three bytes.
    if (store.operating_machine.size() > 2 * input.size()) std::abort();
}

void check_blocks(byte_view input)
{
    vss_block_hdr header;
    std::vector<vss_block_descriptor> list;
    const bool is_list = parse_descriptor_block(list, header, input, 0, 3);
    if (list.size() > input.size() / vss_descriptor::size ||
        (!is_list && !list.empty()))
        std::abort();
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].position != 3 * vss_descriptor::max_in_block + i) std::abort();

    std::vector<vss_block_range> ranges;
    const bool has_ranges = parse_range_block(ranges, header, input, 0);
    for (const vss_block_range &range : ranges)
        if (range.size == 0) std::abort();

    byte_view bits;
    const bool is_bitmap = parse_bitmap_block(bits, header, input, 0);
    if (bits.size() > vss_bitmap::bytes || is_bitmap == bits.empty()) std::abort();
    // A block has one type.
    if (int{is_list} + int{has_ranges} + int{is_bitmap} > 1) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const byte_view input{data, size};
    const byte_view rest = input.from(1);
    switch (input.read_padded<u8>(0) % 3) {
    case 0: check_catalog(rest); break;
    case 1: check_store_header(rest); break;
    default: check_blocks(rest); break;
    }
    return 0;
}

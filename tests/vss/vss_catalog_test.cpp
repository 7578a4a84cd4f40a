#include "vss/hv_vss_catalog.h"

#include "samples/shadow_structures.h"

#include <gtest/gtest.h>

#include <tuple>

namespace hv {
namespace {

using namespace test_support;

TEST(Catalog, TakesItsEntriesInAnyOrder)
{
    byte_vector catalog = shadow_catalog(
        {{.id = 1, .number = 7, .header = 0x4000, .reference = 0x2500000024}});
    // A second block, with an unused slot that names a store of its own.
    put_bytes(catalog, shadow_block_size, shadow_block(2, 0x4000, 0, {1}));
    put_bytes(catalog, shadow_block_size + 128 + 16, shadow_guid(9));
    vss_block_map blocks;
    vss_store_map stores;
    ASSERT_TRUE(parse_catalog(blocks, stores, byte_view{catalog}));
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks.at(shadow_block_size).offset, 0x4000u);
    ASSERT_EQ(stores.size(), 2u);
    const vss_store &full = stores.at("01010101-0101-0101-0101-010101010101");
    EXPECT_EQ(std::tuple(full.entry_of(1).seen, full.entry_of(2).position,
                         full.store_number, full.created, full.store_header_offset,
                         full.file_reference),
              std::tuple(false, 256u, 7u, sample_filetime, 0x4000u, 0x2500000024u));
    const vss_store &unused = stores.at("09090909-0909-0909-0909-090909090909");
    EXPECT_EQ(std::tuple(unused.entry_of(1).seen, unused.entry_of(1).block,
                         unused.entry_of(3).seen, unused.store_header_offset),
              std::tuple(true, shadow_block_size, false, 0u));
}

TEST(Catalog, IsRefusedOrCut)
{
    const byte_vector catalog = shadow_catalog({shadow_store{}});
    vss_block_map blocks;
    vss_store_map stores;
    for (const std::size_t size : {0u, 127u, 1023u, 1024u}) {
        const byte_view cut = byte_view{catalog}.clip(0, size);
        EXPECT_EQ(parse_catalog(blocks, stores, cut), size == 1024) << size;
    }
    // The entry of type 3 comes first; the one of type 2 ends at 384.
    for (std::size_t at = 0; at < 384; ++at) {
        byte_vector damaged = catalog;
        damaged[at] ^= 0xFF;
        const bool is_good = at >= 24 || (at >= 16 && at < 20);
        EXPECT_EQ(parse_catalog(blocks, stores, byte_view{damaged}), is_good) << at;
    }
    stores.clear();
    EXPECT_TRUE(parse_catalog(blocks, stores, byte_view{shadow_catalog({})}));
    EXPECT_TRUE(stores.empty());
}

TEST(StoreHeader, NamesItsMachines)
{
    const byte_vector block = shadow_store_header({}, u"infinity", u"\u00fc");
    byte_vector too_long = block, cut = block, of_no_store = block;
    put_number(too_long, 192, 16384 - 193, 2); // by one byte
    cut.resize(196);                           // inside the first text
    of_no_store[20] = 3;
    const std::tuple<byte_vector, bool, const char *> cases[] = {
        {block, true, "infinity,\u00fc"},
        {shadow_store_header({}, u"", u"b"), true, ",b"},
        {too_long, true, ","},
        {cut, true, ","},
        {of_no_store, false, ","}};
    for (const auto &[bytes, seen, machines] : cases) {
        vss_store store;
        EXPECT_EQ(parse_store_header(store, byte_view{bytes}), seen);
        EXPECT_EQ(store.header_seen, seen);
        EXPECT_EQ(store.operating_machine + "," + store.service_machine, machines);
    }
}

} // namespace
} // namespace hv

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
    const auto &[first, second, third] = full.entries;
    EXPECT_EQ(std::tuple(first.seen, second.seen, third.seen, second.position),
              std::tuple(false, true, true, 256u));
    EXPECT_EQ(std::tuple(full.store_number, full.created, full.store_header_offset,
                         full.file_reference),
              std::tuple(7u, sample_filetime, 0x4000u, 0x2500000024u));
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
        stores.clear();
        const bool is_good = at >= 24 || (at >= 16 && at < 20);
        EXPECT_EQ(parse_catalog(blocks, stores, byte_view{damaged}), is_good) << at;
        EXPECT_LE(stores.size(), 2u) << at;
    }
    stores.clear();
    EXPECT_TRUE(parse_catalog(blocks, stores, byte_view{shadow_catalog({})}));
    EXPECT_TRUE(stores.empty());
}

TEST(StoreHeader, NamesItsMachines)
{
    const auto machines = [](const byte_vector &block) {
        vss_store store;
        parse_store_header(store, byte_view{block});
        return store.operating_machine + "," + store.service_machine;
    };
    const shadow_store one{.header = 0x4000};
    EXPECT_EQ(machines(shadow_store_header(one, u"infinity", u"\u00fc")),
              "infinity,\u00fc");
    EXPECT_EQ(machines(shadow_store_header(one, u"", u"b")), ",b");
    byte_vector block = shadow_store_header(one, u"infinity", u"b");
    put_number(block, 192, 16384 - 193, 2); // one byte too long
    EXPECT_EQ(machines(block), ",");
    block = shadow_store_header(one, u"infinity", u"b");
    block.resize(196); // cut inside the first text
    EXPECT_EQ(machines(block), ",");
    block[20] = 3;
    vss_store store;
    EXPECT_FALSE(parse_store_header(store, byte_view{block}));
    EXPECT_FALSE(store.header_seen);
}

} // namespace
} // namespace hv

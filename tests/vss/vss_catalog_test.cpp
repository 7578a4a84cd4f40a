#include "vss/hv_vss_catalog.h"

#include "samples/shadow_structures.h"

#include <gtest/gtest.h>

#include <sstream>

namespace hv {
namespace {

using namespace test_support;

const std::string guid_of_ones = "01010101-0101-0101-0101-010101010101";
const std::string guid_of_nines = "09090909-0909-0909-0909-090909090909";

bool parse(vss_store_map &stores, const byte_vector &catalog)
{
    vss_block_map blocks;
    stores.clear();
    return parse_catalog(blocks, stores, byte_view{catalog});
}

TEST(Catalog, TakesItsEntriesInAnyOrder)
{
    const shadow_store one{
        .id = 1, .number = 7, .header = 0x4000, .reference = 0x2500000024};
    byte_vector catalog = shadow_catalog({one});
    // A second block, with an unused slot that names a store of its own.
    put_bytes(catalog, shadow_block_size, shadow_block(2, 0x4000, 0, {1}));
    put_bytes(catalog, shadow_block_size + 128 + 16, shadow_guid(9));
    vss_block_map blocks;
    vss_store_map stores;
    ASSERT_TRUE(parse_catalog(blocks, stores, byte_view{catalog}));
    EXPECT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks.at(shadow_block_size).offset, 0x4000u);
    ASSERT_EQ(stores.size(), 2u);
    const vss_store &full = stores.at(guid_of_ones);
    EXPECT_TRUE(full.entry_of(2).seen && full.entry_of(3).seen &&
                !full.entry_of(1).seen);
    EXPECT_EQ(full.entry_of(2).position, 256u);
    EXPECT_EQ(full.store_number, 7u);
    EXPECT_EQ(full.created, sample_filetime);
    EXPECT_EQ(full.store_header_offset, 0x4000u);
    EXPECT_EQ(full.file_reference, 0x2500000024u);
    const vss_store &unused = stores.at(guid_of_nines);
    EXPECT_TRUE(unused.entry_of(1).seen && !unused.entry_of(3).seen);
    EXPECT_EQ(unused.entry_of(1).block, shadow_block_size);
    EXPECT_EQ(unused.store_header_offset, 0u);
}

TEST(Catalog, IsRefusedOrCut)
{
    const byte_vector catalog = shadow_catalog({shadow_store{}});
    vss_store_map stores;
    // The entry of type 3 comes first; the one of type 2 ends at 384.
    for (std::size_t size = 0; size < 2048; size += 64) {
        byte_vector cut = catalog;
        cut.resize(size);
        EXPECT_EQ(parse(stores, cut), size >= 1024) << size;
    }
    EXPECT_FALSE(parse(stores, byte_vector(catalog.begin(), catalog.begin() + 1023)));
    for (std::size_t at = 0; at < 384; ++at) {
        byte_vector damaged = catalog;
        damaged[at] ^= 0xFF;
        const bool good = at >= 24 || (at >= 16 && at < 20);
        EXPECT_EQ(parse(stores, damaged), good) << at;
        EXPECT_LE(stores.size(), 2u) << at;
    }
    EXPECT_TRUE(parse(stores, shadow_catalog({})));
    EXPECT_TRUE(stores.empty());
}

TEST(StoreHeader, GivesItsMachines)
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

TEST(StoreDump, LabelsEveryValue)
{
    vss_store store;
    store.store_index = 1;
    store.volume_size = 0x40000000;
    store.created = sample_filetime;
    store.file_reference = 0x5000000000024;
    store.type = 29;
    store.attribute_flags = 0x20000000 | 0x5;
    std::ostringstream out;
    dump_store(out, store);
    const std::string text = out.str();
    for (const char *line :
         {"VSS index [guess]:       2\n", "Volume Size:             0x40000000\n",
          "Create Time [UTC]:       2015-04-04 17:24:09.614\n",
          "MFT & sequence#:         0x5000000000024 [inode: 0x00000024, seq: "
          "0x00000005]\n",
          "Type:                    0x0000001d client_accessible\n",
          "Attribute Flags:         0x20000005 persistent; client accessible; txf "
          "recovery; \n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
}

} // namespace
} // namespace hv

#include "security/hv_security_descriptor.h"
#include "security/hv_security_map.h"

#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/security_structures.h"
#include "support/fixtures.h"

#include <gtest/gtest.h>

#include <sstream>

namespace hv {
namespace {

using namespace test_support;
const byte_vector system_sid = sid(5, {18});
// Owner at 20, group at 48, SACL at 64, DACL at 92, its ACEs at 100, 124 and 144.
const byte_vector full = descriptor(
    {sid(5, {21, 1, 2, 3, 500}), sid(5, {32, 545}),
     acl({ace(2, 0xC0, 0x40000, sid(1, {0}))}),
     acl({ace(1, 0, 0x10000, sid(5, {32, 544})), ace(0, 3, 0x1F01FF, system_sid),
          ace(0, 0x10, 0x10000000, system_sid)})});

std::string report(const byte_vector &bytes)
{
    std::ostringstream out;
    report_descriptor(out, byte_view{bytes}, "  ");
    return out.str();
}

// "text name" of a SID; "false" before it if there is no text.
std::string text_and_name(byte_view bytes)
{
    std::string text = "old", name;
    const bool has_text = sid_to_text(text, bytes);
    sid_to_name(name, bytes);
    return (has_text ? "" : "false ") + text + " " + name;
}

TEST(Sid, TextAndName)
{
    const std::pair<byte_vector, const char *> cases[] = {
        {sid(3, {3}), "S-1-3-3 Group Server"},
        {sid(3, {4}), "S-1-3-4 unk"},
        {sid(16, {4096}), "S-1-16-4096 unk"},
        {{255, 0, 0, 0, 0, 0, 1, 5, 0, 0, 0, 0}, "S-255-5 unk"},
        {sid(9, {7, 500}), "S-1-9-7-500 User Admin"},
        {sid(5, {21, 4294967295, 561}),
         "S-1-5-21-4294967295-561 Terminal Server License Servers"}};
    for (const auto &[bytes, expected] : cases) {
        EXPECT_EQ(text_and_name(byte_view{bytes}), expected);
        const byte_view cut = byte_view{bytes}.clip(0, bytes.size() - 1);
        EXPECT_EQ(text_and_name(cut), "false  unk") << expected;
    }
}

TEST(Descriptor, Report)
{
    EXPECT_EQ(report(full), R"(  Security Identifiers
  owner sid [S-1-5-21-1-2-3-500]
  group sid [S-1-5-32-545]

  System Access Control List
  system audit    World           WRITE_DAC

  Discretionary Access Control List
  access allowed  Local System    DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | SYNCHRONIZE | GENERIC_ALL
  access denied   Admins          DELETE
)");
    // No owner, an ACL without ACEs, one with an object ACE and an unknown type.
    const byte_vector odd =
        acl({ace(5, 0, 0x1FF, system_sid), ace(9, 0, 0, sid(5, {1}))});
    EXPECT_EQ(
        report(descriptor({{}, system_sid, acl({}), odd})),
        "  Security Identifiers\n  group sid [S-1-5-18]\n\n"
        "  Discretionary Access Control List\n"
        "  access allowed  Local System    \n  unknown         Dialup          \n");
    // The owner's bytes count once: 48 - 28 aren't enough for the same SID again.
    byte_vector shared = descriptor({sid(5, {21, 1, 2, 3, 500})});
    put_number(shared, 8, 20, 4);
    EXPECT_TRUE(report(shared).ends_with("-500]\n  group sid []\n"));
    // Cut inside the SID of the first ACE.
    EXPECT_TRUE(report({full.begin(), full.begin() + 123})
                    .ends_with("List\n  access denied   unk             DELETE\n"));
}

TEST(Descriptor, DumpAndKeys)
{
    std::ostringstream dump, keys;
    dump_acl(dump, byte_view{acl({ace(1, 0xC0, 0x80010001, sid(5, {32, 533}))})});
    EXPECT_EQ(dump.str(), R"(- ACL -
rev:                0x02
pad:                0x00
size:               0x0020
count:              0x0001
unk:                0x0000
- ACE -
type:               0x01 ACCESS_DENIED_ACE_TYPE
flags:              0xc0 ( FAILED_ACCESS_ACE_FLAG | SUCCESSFUL_ACCESS_ACE_FLAG )
size:               0x0018
access_mask:        0x80010001 ( GENERIC_READ | DELETE )
sid [S-1-5-32-533]
SID rev:            0x01
subauthority count: 0x02
ident authority:    0x000000000005 NT Authority
subauthority:       0x00000020
subauthority:       0x00000215
)");
    const byte_vector bytes =
        descriptor({system_sid, {}, acl({ace(2, 0, 0x10000, sid(5, {32, 533}))})});
    write_descriptor_keys(keys, byte_view{bytes});
    EXPECT_EQ(keys.str(),
              "<owner_sid>S-1-5-18</owner_sid>\n<sacl>system audit S-1-5-32-533 "
              "[Domain RAS &amp; IAS Servers] DELETE</sacl>\n");
    dump_descriptor(dump, byte_view{bytes});
    EXPECT_NE(
        dump.str().find("0x8014 [ SE_DACL_PRESENT | SE_SACL_PRESENT | "
                        "SE_SELF_RELATIVE |  ] \nowner:              0x00000014\n"),
        std::string::npos);
}

TEST(Descriptor, RepeatedAcesAreBounded)
{
    byte_vector bytes = descriptor({acl({ace(0, 0, 0x10000, system_sid)})});
    ace_map aces;
    bytes[30] = 0;                // the next ACE is this one again
    bytes[24] = bytes[25] = 0xFF; // 65535 bytes of ACEs, of 20 bytes each
    EXPECT_TRUE(collect_acl(aces, byte_view{bytes}, 20));
    ASSERT_EQ(aces.size(), 1u);
    EXPECT_EQ(aces.begin()->second.masks.size(), 3276u * 6 + 3275 * 3);
    EXPECT_FALSE(collect_acl(aces, byte_view{bytes}, 41)) << "7 bytes of an ACL";
    EXPECT_TRUE(aces.empty());
}

// "entry owner" for each of these entries that has an owner.
std::string owners_of(security_map &map, const std::vector<u64> &entries)
{
    std::string all, owner = "old";
    for (const u64 entry : entries)
        if (map.owner_of_entry(owner, entry))
            all += std::to_string(entry) + " " + owner + "\n";
        else
            EXPECT_EQ(owner, "") << entry;
    return all;
}

TEST(SecurityMap, FindsOwnersThroughDamage)
{
    constexpr std::size_t mirror = 0x40000, each = 64;
    byte_vector sds, bytes;
    for (u32 id = 256; id < 262; ++id)
        sds = joined({sds, sds_of(id, sds.size(), descriptor({sid(5, {32, id})}))});
    sds.resize(mirror, 'T');
    // 262 has no owner.
    sds = joined({sds, sds, sds_of(262, 2 * mirror, descriptor({}))});
    put_number(sds, each + 52, 9, 4);               // 257: another owner, wrong hash
    put_number(sds, 2 * each + 16, 0, 4);           // 258: no length
    put_number(sds, 3 * each + 16, ~u64{0} - 9, 4); // 259: too long for the block
    for (const std::size_t copy : {std::size_t{0}, mirror}) {
        put_number(sds, copy + 4 * each, 1, 4);     // 260: both hashes are wrong
        put_number(sds, copy + 5 * each + 8, 1, 8); // 261: of another place
    }
    ntfs_volume_builder builder;
    builder.stream({.entry = 9,
                    .name = "$SDS",
                    .data = sds,
                    .stored = {.non_resident = true, .fragments = 3}});
    for (u32 i = 0; i < 9; ++i)
        builder.file({.entry = 64 + i,
                      .name = std::to_string(i),
                      .security_id = i < 8 ? 256 + i : 0});
    builder.stream({.entry = 71, .data = full, .type = 0x50});
    builder.stream(
        {.entry = 72, .data = full, .stored = {.non_resident = true}, .type = 0x50});
    const temp_dir dir;
    const auto volume = open_volume(dir.write_file("v", text(builder.build())), 0);
    security_map map(*volume);
    EXPECT_EQ(owners_of(map, {64, 65, 66, 67, 68, 69, 70, 71, 72, 1 << 20}),
              "64 S-1-5-32-256\n65 S-1-5-32-257\n66 S-1-5-32-258\n67 S-1-5-32-259\n"
              "68 S-1-5-32-260\n71 S-1-5-21-1-2-3-500\n72 S-1-5-21-1-2-3-500\n");
    EXPECT_EQ(map.size(), 6u);
    EXPECT_TRUE(map.read_entry_descriptor(bytes, 72));
    EXPECT_EQ(bytes, full);
    EXPECT_TRUE(map.read_descriptor(bytes, 257));
    EXPECT_EQ(bytes, descriptor({sid(5, {32, 257})}));
    INODE_STATS stats;
    attach_owners(*volume);
    for (const auto &[entry, expected] : {std::pair{65, "S-1-5-32-257"}, {72, ""}}) {
        EXPECT_TRUE(volume->read_filerecord(entry, bytes));
        EXPECT_TRUE(volume->collect_inode_stats(byte_view{bytes}, stats, entry));
        EXPECT_EQ(stats.owner, expected) << entry;
    }
}

// Read from the bytes by hand: entry 41 has the id 266, at 1648 of "$SDS", entry 38 the
// id 263, at 832; entry 5 has a descriptor of its own.
TEST(SecurityMap, RealVolume)
{
    const auto volume =
        open_volume(fixture_or_skip("ntfs/ntfs-lastaccess.raw.gz"), 65536);
    ASSERT_NE(volume, nullptr);
    security_map map(*volume);
    EXPECT_EQ(owners_of(map, {41, 38, 5}),
              "41 S-1-5-21-2341207468-2645333676-3461800803-1001\n"
              "38 S-1-5-18\n5 S-1-5-18\n");
}

} // namespace
} // namespace hv

#include "security/hv_security_descriptor.h"
#include "security/hv_security_map.h"

#include "ntfs/ntfs.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/security_structures.h"
#include "support/mkntfs_volume.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <sys/xattr.h>

// clang-format off
namespace hv {
namespace {

using namespace test_support;
const byte_vector system_sid = sid(5, {18});
// Owner at 20, group at 48, SACL at 64, DACL at 92, its ACEs at 100, 124 and 144.
const byte_vector full = descriptor(
    {sid(5, {21, 1, 2, 3, 500}), sid(5, {32, 545}), acl({ace(2, 0xC0, 0x40000, sid(1, {0}))}),
     acl({ace(1, 0, 0x10000, sid(5, {32, 544})), ace(0, 3, 0x1F01FF, system_sid), ace(0, 0x10, 0x10000000, system_sid)})});

template <class... Arguments>
std::string written(void (*write)(std::ostream &, byte_view, Arguments...), const byte_vector &bytes, Arguments... more)
{
    std::ostringstream out;
    write(out, byte_view{bytes}, more...);
    return out.str();
}

std::string report(const byte_vector &bytes) { return written<std::string_view>(report_descriptor, bytes, "  "); }

TEST(Sid, TextAndName)
{
    const struct { byte_vector bytes; const char *text, *name; } cases[] = {
        {sid(0, {0}), "S-1-0-0", "null"}, {sid(1, {0}), "S-1-1-0", "World"}, {sid(2, {9}), "S-1-2-9", "Local"},
        {sid(3, {3}), "S-1-3-3", "Group Server"}, {sid(3, {4}), "S-1-3-4", "unk"}, {sid(4, {1}), "S-1-4-1", "unk"},
        {sid(5, {18}), "S-1-5-18", "Local System"}, {sid(5, {0}), "S-1-5-0", "unk"}, {sid(5, {14}), "S-1-5-14", "unk"},
        {sid(5, {32}), "S-1-5-32", "Builtin Domain"}, {sid(5, {33}), "S-1-5-33", "unk"}, {sid(16, {4096}), "S-1-16-4096", "unk"},
        {sid(5, {32, 544}), "S-1-5-32-544", "Admins"}, {sid(9, {7, 500}), "S-1-9-7-500", "User Admin"},
        {sid(5, {21, 1, 2, 3, 1001}), "S-1-5-21-1-2-3-1001", "unk"}, {sid(5, {32, 561}), "S-1-5-32-561", "Terminal Server License Servers"},
        {sid(5, {21, 4294967295, 520}), "S-1-5-21-4294967295-520", "Domain Policy Creater/Owner"}};
    std::string text, name;
    for (const auto &one : cases) {
        EXPECT_TRUE(sid_to_text(text, byte_view{one.bytes}));
        sid_to_name(name, byte_view{one.bytes});
        EXPECT_EQ(text + " " + name, std::string(one.text) + " " + one.name);
        const byte_view cut{one.bytes.data(), one.bytes.size() - 1};
        EXPECT_FALSE(sid_to_text(text, cut)) << one.text;
        sid_to_name(name, cut);
        EXPECT_EQ(text + name, "unk") << one.text;
    }
    const byte_vector none = {255, 0, 0, 0, 0, 0, 1, 5, 0, 0, 0, 0};
    EXPECT_TRUE(sid_to_text(text, byte_view{none}) && text == "S-255-5") << text;
    EXPECT_FALSE(sid_to_text(text, byte_view{none}.clip(0, 11)) || !text.empty());
}

TEST(Descriptor, Report)
{
    EXPECT_EQ(report(full),
              "  Security Identifiers\n  owner sid [S-1-5-21-1-2-3-500]\n  group sid [S-1-5-32-545]\n"
              "\n  System Access Control List\n  system audit    World           WRITE_DAC\n\n  Discretionary Access Control List\n"
              "  access allowed  Local System    DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | SYNCHRONIZE | GENERIC_ALL\n"
              "  access denied   Admins          DELETE\n");
    // No owner, an ACL without ACEs, one with an object ACE and an unknown type.
    EXPECT_EQ(report(descriptor({{}, system_sid, acl({}), acl({ace(5, 0, 0x1FF, sid(5, {18})), ace(9, 0, 0, sid(5, {1}))})})),
              "  Security Identifiers\n  group sid [S-1-5-18]\n\n  Discretionary Access Control List\n"
              "  access allowed  Local System    \n  unknown         Dialup          \n");
    // The owner's bytes count once: 48 - 28 aren't enough for the same SID again.
    byte_vector shared = descriptor({sid(5, {21, 1, 2, 3, 500})});
    put_number(shared, 8, 20, 4);
    EXPECT_EQ(report(shared), "  Security Identifiers\n  owner sid [S-1-5-21-1-2-3-500]\n  group sid []\n");
    // Cut inside the header of the second ACE, and inside the SID of the first.
    EXPECT_TRUE(report({full.begin(), full.begin() + 131}).ends_with("List\n  access denied   Admins          DELETE\n"));
    EXPECT_TRUE(report({full.begin(), full.begin() + 123}).ends_with("List\n  access denied   unk             DELETE\n"));
}

TEST(Descriptor, DumpAndKeys)
{
    EXPECT_EQ(written(dump_descriptor, full),
              "- Security Descriptor -\nrev:                0x01\npad:                0x00\n"
              "control:            0x8014 [ SE_DACL_PRESENT | SE_SACL_PRESENT | SE_SELF_RELATIVE |  ] \n"
              "owner:              0x00000014\ngroup:              0x00000030\nsacl:               0x00000040\ndacl:               0x0000005c\n");
    EXPECT_EQ(written(dump_acl, {full.begin() + 64, full.begin() + 92}),
              "- ACL -\nrev:                0x02\npad:                0x00\nsize:               0x001c\ncount:              0x0001\n"
              "unk:                0x0000\n- ACE -\ntype:               0x02 SYSTEM_AUDIT_ACE_TYPE\n"
              "flags:              0xc0 ( FAILED_ACCESS_ACE_FLAG | SUCCESSFUL_ACCESS_ACE_FLAG )\nsize:               0x0014\n"
              "sid [S-1-1-0]\nSID rev:            0x01\nsubauthority count: 0x01\n"
              "ident authority:    0x000000000001 World Authority\nsubauthority:       0x00000000\n");
    EXPECT_TRUE(written(dump_ace, ace(1, 0, 0x80010001, system_sid))
                    .starts_with("- ACE -\ntype:               0x01 ACCESS_DENIED_ACE_TYPE\nflags:              0x00 (  )\n"
                                 "size:               0x0014\naccess_mask:        0x80010001 ( GENERIC_READ | DELETE )\nsid [S-1-5-18]\n"));
    EXPECT_EQ(written<std::string_view>(write_descriptor_keys, descriptor({system_sid, {}, acl({ace(2, 0, 0x10000, sid(5, {21, 533}))})}), ""),
              "<owner_sid>S-1-5-18</owner_sid>\n<sacl>system audit S-1-5-21-533 [Domain RAS &amp; IAS Servers] DELETE</sacl>\n");
}

TEST(Descriptor, RepeatedAcesAreBounded)
{
    byte_vector bytes = descriptor({acl({ace(0, 0, 0x10000, system_sid)})});
    ace_map aces;
    bytes[30] = 0; // the ACE that comes next is this one again
    const auto masks = [&](u8 count) {
        bytes[24] = bytes[25] = count; // 0x0202, 0xFFFF
        return collect_acl(aces, byte_view{bytes}, 20) && aces.size() == 1 ? aces.begin()->second.masks : "";
    };
    EXPECT_EQ(masks(2).size(), 514u * 6 + 513u * 3);
    EXPECT_EQ(masks(0xFF).size(), 3276u * 6 + 3275u * 3) << "65535 bytes of ACEs of 20 bytes each";
    EXPECT_FALSE(collect_acl(aces, byte_view{bytes}, 41) || !aces.empty()) << "7 bytes of an ACL";
}

TEST(Descriptor, DamageGivesABoundedReport)
{
    for (std::size_t at = 0; at < 5 * full.size(); ++at) {
        byte_vector damaged = full;
        damaged[at / 5] = std::array<u8, 5>{0, 1, 0x7F, 0xFF, 0x5C}[at % 5];
        if (at % 5 == 0) damaged.resize(at / 5); // of its own size: a read behind the end is noticed
        EXPECT_LT(report(damaged).size(), 200 + 2 * 20 * max_acl_bytes) << "20 characters of each byte of an ACE";
        written(dump_descriptor, damaged);
        if (damaged.size() > 92) written(dump_acl, {damaged.begin() + 92, damaged.end()});
    }
}

// "entry owner" for each of the entries of a volume that has an owner.
std::string owners_of(const std::string &image, u64 offset, const std::vector<u64> &entries)
{
    const auto volume = open_volume(image, offset);
    if (volume == nullptr) return "no volume";
    security_map map(*volume);
    std::string all, owner = "old";
    for (const u64 entry : entries)
        if (map.owner_of_entry(owner, entry) == owner.empty()) ADD_FAILURE() << entry;
        else if (!owner.empty()) all += std::to_string(entry) + " " + owner + "\n";
    return all;
}

TEST(SecurityMap, FindsOwnersThroughDamage)
{
    constexpr std::size_t mirror = 0x40000, each = 64;
    byte_vector sds, bytes;
    for (u32 id = 256; id < 262; ++id) sds = joined({sds, sds_of(id, sds.size(), descriptor({sid(5, {32, id})}))});
    sds.resize(mirror, 'T');
    sds = joined({sds, sds, sds_of(262, 2 * mirror, descriptor({}))}); // 262 is without an owner
    put_number(sds, each + 52, 9, 4);              // 257: another owner; the hash tells
    put_number(sds, 2 * each + 16, 0, 4);          // 258: no length
    put_number(sds, 3 * each + 16, 0xFFFFFFF0, 4); // 259: a length that leaves the block
    for (const std::size_t copy : {std::size_t{0}, mirror}) {
        put_number(sds, copy + 4 * each, 1, 4);     // 260: no hash holds
        put_number(sds, copy + 5 * each + 8, 1, 8); // 261: of another place
    }
    ntfs_volume_builder builder;
    builder.stream({.entry = 9, .name = "$SDS", .data = sds, .stored = {.non_resident = true, .fragments = 3}});
    for (u32 i = 0; i < 9; ++i) builder.file({.entry = 64 + i, .name = std::to_string(i), .security_id = i < 8 ? 256 + i : 0});
    builder.stream({.entry = 71, .data = full, .type = 0x50});
    builder.stream({.entry = 72, .data = full, .stored = {.non_resident = true}, .type = 0x50});
    const temp_dir dir;
    const std::string image = dir.write_file("v", text(builder.build()));
    EXPECT_EQ(owners_of(image, 0, {64, 65, 66, 67, 68, 69, 70, 71, 72, 1 << 20}),
              "64 S-1-5-32-256\n65 S-1-5-32-257\n66 S-1-5-32-258\n67 S-1-5-32-259\n68 S-1-5-32-260\n"
              "71 S-1-5-21-1-2-3-500\n72 S-1-5-21-1-2-3-500\n");
    const auto volume = open_volume(image, 0);
    security_map map(*volume);
    for (const u64 entry : {71, 72}) EXPECT_TRUE(map.read_entry_descriptor(bytes, entry) && bytes == full) << entry;
    EXPECT_TRUE(map.read_descriptor(bytes, 257) && bytes == descriptor({sid(5, {32, 257})}));
    std::string owner;
    INODE_STATS stats;
    attach_owners(*volume);
    for (const auto &[entry, expected] : {std::pair{65, "S-1-5-32-257"}, {70, ""}, {72, ""}})
        EXPECT_TRUE(volume->read_filerecord(entry, bytes) && volume->collect_inode_stats(byte_view{bytes}, stats, entry) && stats.owner == expected) << entry;
    EXPECT_TRUE(map.owner_of_id(owner, 262) && owner.empty() && !map.owner_of_id(owner, 0) && map.size() == 6);
}

TEST(SecurityMap, FindsWhatAnotherDriverWrote)
{
    if (!mkntfs_volume::available()) GTEST_SKIP() << "mkntfs or ntfs-3g doesn't work here";
    mkntfs_volume made;
    const std::string file = made / "file";
    std::ofstream(file) << "x";
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status) | setxattr(file.c_str(), "system.ntfs_acl", full.data(), full.size(), 0), 0);
    ASSERT_TRUE(made.unmount());
    EXPECT_TRUE(owners_of(made.image(), 0, {status.st_ino}).ends_with(" S-1-5-21-1-2-3-500\n"));
    byte_vector bytes;
    const auto volume = open_volume(made.image(), 0);
    EXPECT_TRUE(security_map(*volume).read_entry_descriptor(bytes, status.st_ino) && bytes == full);
}

// What a plain reading of the bytes gives: entry 41 has the id 266, at 1648 of "$SDS",
// entry 38 the id 263, at 832; entry 5 has a descriptor of its own.
TEST(SecurityMap, RealVolume)
{
    const char *folder = std::getenv("VESKIT_FIXTURES");
    if (folder == nullptr) GTEST_SKIP() << "VESKIT_FIXTURES names no folder";
    const temp_dir dir;
    ASSERT_EQ(std::system(("gzip -dc '" + std::string(folder) + "/ntfs/ntfs-lastaccess.raw.gz' > " + (dir / "v")).c_str()), 0);
    EXPECT_EQ(owners_of(dir / "v", 65536, {41, 38, 5}), "41 S-1-5-21-2341207468-2645333676-3461800803-1001\n38 S-1-5-18\n5 S-1-5-18\n");
}

} // namespace
} // namespace hv

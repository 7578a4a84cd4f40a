#include "partitions/hv_partition_types.h"

#include "base/hv_string.h"
#include "partitions/hv_disk_structs.h"

#include <algorithm>
#include <iterator>

namespace hv {

namespace {

// clang-format off

constexpr u8 known_types[] = {
    0x01, 0x04, 0x05, 0x06, 0x07, 0x08, 0x0B, 0x0C, 0x0E, 0x0F, 0x11, 0x12, 0x14, 0x15,
    0x16, 0x1B, 0x1C, 0x1E, 0x1F, 0x24, 0x27, 0x41, 0x42, 0x43, 0x56, 0x64, 0x66, 0x74,
    0x76, 0x79, 0x7A, 0x7B, 0x7C, 0x7D, 0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87,
    0x88, 0x8B, 0x8C, 0x8E, 0x90, 0x91, 0x92, 0x93, 0x97, 0x98, 0x9A, 0xA8, 0xAB, 0xAC,
    0xAF, 0xB6, 0xB7, 0xBB, 0xBC, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xCB, 0xCC, 0xCD,
    0xCE, 0xCF, 0xD4, 0xD5, 0xD6, 0xD8, 0xDE, 0xE4, 0xE5, 0xE6, 0xE8, 0xEF, 0xF0, 0xF2,
    0xF4, 0xF6, 0xF9, 0xFB, 0xFC, 0xFD, 0xFE};
static_assert(std::size(known_types) == 91 && std::ranges::is_sorted(known_types));

struct type_name {
    u8 type;
    const char *name;
};
constexpr type_name type_names[] = {
    {  0, "empty"}, {1, "fat12"}, {141, "fat12"}, {2, "xenix root"}, {3, "xenix /usr"},
    {  4, "fat16"}, {5, "exten"}, {15, "exten"}, {6, "fat"}, {7, "ntfs or exfat"},
    {  8, "aix boot"}, {9, "aix data"}, {10, "os/2 boot"}, {11, "fat32"}, {12, "fat32"},
    { 14, "fat16 LBA mapped"},
    { 17, "hidden fat16"}, {20, "hidden fat16"}, {22, "hidden fat16"}, {30, "hidden fat16"},
    {144, "hidden fat16"}, {145, "hidden fat16"}, {146, "hidden fat16"},
    { 23, "hidden ntfs"}, {39, "hidden ntfs"},
    { 27, "hidden fat32"}, {28, "hidden fat32"}, {151, "hidden fat32"}, {152, "hidden fat32"},
    {130, "linux swap"}, {131, "linux"}, {134, "fat16 volume set"}, {135, "ntfs volume set"},
    {136, "linux partition table"}, {142, "linux Logical Volume Mgr"}, {147, "hidden linux"},
    {139, "fat32 fault tolerant"}, {140, "fat32 fault tolerant"},
    {160, "hibernation partition"}, {161, "hibernation partition"},
    {166, "openbsd"}, {175, "hfs"}, {238, "gpt"},
};

struct guid_name {
    std::string_view guid; ///< as `guid_text` writes it
    std::string_view name;
};
constexpr guid_name guid_names[] = {
    {"024dee41-33e7-11d3-9d69-0008c781f39f", "MBR partition scheme"},
    {"c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "EFI system"},
    {"21686148-6449-6e6f-744e-656564454649", "BIOS boot"},
    {"d3bfe2de-3daf-11df-ba40-e3a556d89593", "Intel Fast Flash"},
    {"f4019732-066e-4e12-8273-346c5641494f", "Sony boot"},
    {"bfbfafe7-a34f-448a-9a5b-6213eb736c22", "Lenovo boot"},
    {"e3c9e316-0b5c-4db8-817d-f92df00215ae", "Microsoft reserved"},
    {"4967d63b-2e29-4ad8-8399-f6a339e3d001", ""}, // no published list names it
    {"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "Microsoft basic data"},
    {"796badd3-6bbf-4d9f-b631-466eb71a4965", ""}, // nor this one
    {"5808c8aa-7e8f-42e0-85d2-e1e90434cfb3", "Microsoft LDM metadata"},
    {"af9b60a0-1431-4f62-bc68-3311714a69ad", "Microsoft LDM data"},
    {"de94bba4-06d1-4d40-a16a-bfd50179d6ac", "Windows recovery environment"},
    {"37affc90-ef7d-4e96-91c3-2d7ae055b174", "IBM GPFS"},
    {"e75caf8f-f680-4cee-afa3-b001e56efc2d", "Microsoft Storage Spaces"},
    {"558d43c5-a1ac-43c0-aac8-d1472b2923d1", "Microsoft Storage Replica"},
    {"75894c1e-3aeb-11d3-b7c1-7b03a0000000", "HP-UX data"},
    {"e2a1e728-32e3-11d6-a682-7b03a0000000", "HP-UX service"},
    {"0fc63daf-8483-4772-8e79-3d69d8477de4", "Linux filesystem"},
    {"a19d880f-05fc-4d3b-a006-743f0f84911e", "Linux RAID"},
    {"44479540-f297-41b2-9af7-d131d5f0458a", "Linux root (x86)"},
    {"4f68bce3-e8cd-4db1-96e7-fbcaf984b709", "Linux root (x86-64)"},
    {"69dad710-2ce4-4e3c-b16c-21a1d49abed3", "Linux root (ARM)"},
    {"b921b045-1df0-41c3-af44-4c6f280d3fae", "Linux root (ARM64)"},
    {"bc13c2ff-59e6-4262-a352-b275fd6f7172", "Linux extended boot"},
    {"0657fd6d-a4ab-43c4-84e5-0933c84b4f4f", "Linux swap"},
    {"e6d6d379-f507-44c2-a23c-238f2a3df928", "Linux LVM"},
    {"933ac7e1-2eb4-4f13-b844-0e14e2aef915", "Linux /home"},
    {"3b8f8425-20e0-4f3b-907f-1a25a76f98e8", "Linux /srv"},
    {"7ffec5c9-2d00-49b7-8941-3ea10a5586b7", "Linux dm-crypt"},
    {"ca7d7ccb-63ed-4c53-861c-1742536059cc", "Linux LUKS"},
    {"8da63339-0007-60c0-c436-083ac8230908", "Linux reserved"},
    {"48465300-0000-11aa-aa11-00306543ecac", "Apple HFS/HFS+"},
    {"7c3457ef-0000-11aa-aa11-00306543ecac", "Apple APFS"},
    {"55465300-0000-11aa-aa11-00306543ecac", "Apple UFS"},
    {"6a898cc3-1dd2-11b2-99a6-080020736631", "Solaris /usr or Apple ZFS"},
    {"52414944-0000-11aa-aa11-00306543ecac", "Apple RAID"},
    {"52414944-5f4f-11aa-aa11-00306543ecac", "Apple RAID offline"},
    {"426f6f74-0000-11aa-aa11-00306543ecac", "Apple boot"},
    {"4c616265-6c00-11aa-aa11-00306543ecac", "Apple label"},
    {"5265636f-7665-11aa-aa11-00306543ecac", "Apple TV recovery"},
    {"53746f72-6167-11aa-aa11-00306543ecac", "Apple Core Storage"},
    {"69646961-6700-11aa-aa11-00306543ecac", "Apple APFS preboot"},
    {"52637672-7900-11aa-aa11-00306543ecac", "Apple APFS recovery"},
};

// clang-format on

} // namespace

bool is_known_partition_type(u8 type)
{
    return std::ranges::binary_search(known_types, type);
}

std::string partition_type_name(u16 type)
{
    const u16 plain = type & static_cast<u16>(~partition_entry::guessed_type);
    const auto *const found = std::ranges::find(
        type_names, plain, [](const type_name &known) -> u16 { return known.type; });
    std::string name = found == std::end(type_names) ? "unk" : found->name;
    if (plain != type) name += " [guess]";
    return name;
}

std::string_view gpt_type_name(byte_view guid)
{
    std::string text;
    if (!guid_text(text, guid)) return {};
    const auto *const known = std::ranges::find(guid_names, text, &guid_name::guid);
    return known == std::end(guid_names) ? std::string_view{} : known->name;
}

} // namespace hv

#include "evidence/volume_content.h"

#include "evidence/source_bytes.h"
#include "media/signature.h"

namespace hv {

namespace {

using namespace std::string_view_literals;

// Enough for all but the superblock of btrfs and the descriptor of a CD.
constexpr std::size_t head_size = 8192;
constexpr std::size_t long_head_size = 0x10080;

// Encrypted sticks begin like FAT, but for the identifier of the encryption.
constexpr std::string_view to_go_id =
    "\x3B\xD6\x67\x49\x29\x2E\xD8\x4A\x83\x99\xF6\xA3\x39\xE3\xD0\x01"sv;

// The order matters: the names of the file systems that FAT would also fit come first.
constexpr auto volume_signatures = std::to_array<signature<volume_content>>({
    {3, "NTFS    "sv, volume_content::ntfs},
    {3, "-FVE-FS-"sv, volume_content::bitlocker},
    {424, to_go_id, volume_content::bitlocker},
    {3, "ReFS\0\0\0\0"sv, volume_content::refs},
    {3, "EXFAT   "sv, volume_content::exfat},
    {54, "FAT"sv, volume_content::fat},
    {82, "FAT32"sv, volume_content::fat},
    {0, "LUKS\xBA\xBE"sv, volume_content::luks},
    {0, "XFSB"sv, volume_content::xfs},
    {32, "NXSB"sv, volume_content::apfs},
    {512, "LABELONE"sv, volume_content::lvm},
    {1024, "H+\0"sv, volume_content::hfs},
    {1024, "HX\0"sv, volume_content::hfs},
    {4096, "SPACEDB "sv, volume_content::storage_pool},
    {4086, "SWAPSPACE2"sv, volume_content::swap},
    {0x8001, "CD001"sv, volume_content::iso9660},
    {0x10040, "_BHRfS_M"sv, volume_content::btrfs},
});

bool is_zero(byte_view bytes)
{
    return std::ranges::all_of(bytes.bytes(), [](u8 byte) { return byte == 0; });
}

} // namespace

volume_content read_volume_content(const byte_source &medium, u64 offset)
{
    std::vector<u8> head = read_bytes(medium, offset, head_size);
    volume_content content =
        find_signature(volume_signatures, byte_view{head}, volume_content::unknown);
    if (content != volume_content::unknown) return content;
    if (begins_with_ext(byte_view{head})) return volume_content::ext;
    head = read_bytes(medium, offset, long_head_size);
    content = find_signature(volume_signatures, byte_view{head}, content);
    if (content == volume_content::unknown && is_zero(byte_view{head}))
        content = volume_content::empty;
    return content;
}

} // namespace hv

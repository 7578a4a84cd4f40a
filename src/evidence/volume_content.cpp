#include "evidence/volume_content.h"

#include "evidence/source_bytes.h"
#include "partitions/hv_partition_buffer.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

using namespace std::string_view_literals;

// Bytes that tell a content or a container.
template <class Kind> struct signature {
    u64 offset = 0;
    std::string_view text;
    Kind kind{};
};

template <class Kind, std::size_t count>
Kind find_signature(const std::array<signature<Kind>, count> &table, byte_view bytes,
                    Kind otherwise)
{
    const auto found = std::ranges::find_if(table, [&](const signature<Kind> &row) {
        return holds_text(bytes, row.offset, row.text);
    });
    return found == table.end() ? otherwise : found->kind;
}

// Enough for all but the superblock of btrfs and the descriptor of a CD.
constexpr std::size_t head_size = 8192;
constexpr std::size_t long_head_size = 0x10080;
constexpr std::size_t sector_size = 512;

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

constexpr auto container_signatures = std::to_array<signature<container_kind>>({
    {0, "EVF\x09\x0D\x0A\xFF\0"sv, container_kind::ewf},
    {0, "EVF2\x0D\x0A\x81\0"sv, container_kind::ewf_2},
    {0, "LVF\x09\x0D\x0A\xFF\0"sv, container_kind::ewf_logical},
    {0, "LEF2\x0D\x0A\x81\0"sv, container_kind::ewf_logical},
    {0, "KDMV"sv, container_kind::vmdk},
    {0, "COWD"sv, container_kind::vmdk},
    {0, "# Disk DescriptorFile"sv, container_kind::vmdk_descriptor},
    {0, "conectix"sv, container_kind::vhd},
    {0, "vhdxfile"sv, container_kind::vhdx},
    {0, "QFI\xFB"sv, container_kind::qcow},
    {64, "\x7F\x10\xDA\xBE"sv, container_kind::vdi},
    {0, "AFF10\r\n\0"sv, container_kind::aff},
    {0, "WithoutFreeSpace"sv, container_kind::parallels},
    {0, "WithouFreSpacExt"sv, container_kind::parallels},
    {0, "\x1F\x8B\x08"sv, container_kind::gzip},
    {0, "PK\x03\x04"sv, container_kind::zip},
    {0, "PK\x05\x06"sv, container_kind::zip},
    {0, "7z\xBC\xAF\x27\x1C"sv, container_kind::seven_zip},
    {0,
     "\xFD"
     "7zXZ\0"sv,
     container_kind::xz},
    {0, "BZh"sv, container_kind::bzip2},
    {0, "\x28\xB5\x2F\xFD"sv, container_kind::zstd},
    {0, "Rar!\x1A\x07"sv, container_kind::rar},
    {0, "FILE0\0"sv, container_kind::mft},
    {0, "FILE*\0"sv, container_kind::mft},
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

container_kind read_container_kind(const byte_source &medium)
{
    const std::vector<u8> head = read_bytes(medium, 0, sector_size);
    const container_kind kind =
        find_signature(container_signatures, byte_view{head}, container_kind::none);
    if (kind != container_kind::none || medium.size() < sector_size) return kind;
    const std::vector<u8> tail =
        read_bytes(medium, medium.size() - sector_size, sector_size);
    constexpr std::size_t disk_type = 60; // of a virtual disk's footer, u32 big endian
    constexpr u8 fixed_size = 2;
    if (holds_text(byte_view{tail}, 0, "koly")) return container_kind::dmg;
    if (holds_text(byte_view{tail}, 0, "conectix") && tail[disk_type + 3] != fixed_size)
        return container_kind::vhd;
    return kind;
}

} // namespace hv

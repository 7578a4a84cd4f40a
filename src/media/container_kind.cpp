#include "media/container_kind.h"

#include "disk/hv_source_bytes.h"
#include "media/signature.h"

namespace hv {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t sector_size = 512;

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
    {0, "QED\0"sv, container_kind::qed},
    {0, "#!/bin/sh\n#V2.0 Format"sv, container_kind::cloop},
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

constexpr std::string_view mount_image =
    "mount it as a raw image, or convert it to one, and name that";
constexpr std::string_view unpack = "unpack it, and name what was in it";

} // namespace

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

content_texts texts_of(container_kind kind)
{
    switch (kind) {
    case container_kind::none: return {"raw image", ""};
    case container_kind::ewf: return {"Expert Witness image (E01)", mount_image};
    case container_kind::ewf_2: return {"Expert Witness image (Ex01)", mount_image};
    case container_kind::ewf_logical:
        return {"Expert Witness collection of files (L01)",
                "export its files; it holds no disk"};
    case container_kind::vmdk: return {"virtual disk (VMDK)", mount_image};
    case container_kind::vmdk_descriptor:
        return {"descriptor of a virtual disk (VMDK)",
                "name the raw file that it lists, or convert the disk to a raw image"};
    case container_kind::vhd: return {"virtual disk (VHD)", mount_image};
    case container_kind::vhdx: return {"virtual disk (VHDX)", mount_image};
    case container_kind::qcow: return {"virtual disk (qcow2)", mount_image};
    case container_kind::vdi: return {"virtual disk (VDI)", mount_image};
    case container_kind::aff: return {"AFF image", mount_image};
    case container_kind::parallels: return {"virtual disk (HDD)", mount_image};
    case container_kind::dmg: return {"disk image (DMG)", mount_image};
    case container_kind::qed: return {"virtual disk (QED)", mount_image};
    case container_kind::cloop: return {"compressed disk (cloop)", mount_image};
    case container_kind::gzip: return {"gzip file", unpack};
    case container_kind::zip: return {"zip archive", unpack};
    case container_kind::seven_zip: return {"7z archive", unpack};
    case container_kind::xz: return {"xz file", unpack};
    case container_kind::bzip2: return {"bzip2 file", unpack};
    case container_kind::zstd: return {"zstd file", unpack};
    case container_kind::rar: return {"RAR archive", unpack};
    case container_kind::mft:
        return {"copy of an $MFT", "name the image of the whole volume instead"};
    }
    return {"raw image", ""};
}

} // namespace hv

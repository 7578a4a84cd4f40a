#include "evidence/volume_content.h"

namespace hv {

namespace {

constexpr std::string_view unlock =
    "unlock it with its password or recovery key, and name the unlocked volume";
constexpr std::string_view mount_bin =
    "mount it read-only, and examine the files of its bin one by one";
constexpr std::string_view assemble =
    "assemble it with the tools of its system, and name the volumes";
constexpr std::string_view not_windows = "Windows keeps no bin on it";
constexpr std::string_view mount_image =
    "mount it as a raw image, or convert it to one, and name that";
constexpr std::string_view unpack = "unpack it, and name what was in it";

} // namespace

content_texts texts_of(volume_content content)
{
    switch (content) {
    case volume_content::unknown: return {"unknown content", ""};
    case volume_content::empty: return {"zeros", ""};
    case volume_content::ntfs: return {"NTFS", ""};
    case volume_content::bitlocker: return {"BitLocker volume", unlock};
    case volume_content::refs: return {"ReFS", mount_bin};
    case volume_content::exfat: return {"exFAT", mount_bin};
    case volume_content::fat: return {"FAT", mount_bin};
    case volume_content::ext: return {"ext", not_windows};
    case volume_content::xfs: return {"XFS", not_windows};
    case volume_content::btrfs: return {"Btrfs", not_windows};
    case volume_content::hfs: return {"HFS+", not_windows};
    case volume_content::apfs: return {"APFS", not_windows};
    case volume_content::luks: return {"LUKS volume", unlock};
    case volume_content::lvm: return {"physical volume of LVM", assemble};
    case volume_content::dynamic_disk: return {"dynamic disk", assemble};
    case volume_content::storage_pool: return {"disk of a storage pool", assemble};
    case volume_content::swap: return {"swap space", not_windows};
    case volume_content::iso9660: return {"ISO 9660", not_windows};
    }
    return {"unknown content", ""};
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

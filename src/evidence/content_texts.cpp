#include "evidence/volume_content.h"

namespace hv {

namespace {

constexpr std::string_view unlock =
    "unlock it with its password or recovery key, and name the unlocked volume";
constexpr std::string_view give_key =
    "give its key with --recovery-key or --password-file";
constexpr std::string_view mount_bin =
    "mount it read-only, and examine the files of its bin one by one";
constexpr std::string_view assemble =
    "assemble it with the tools of its system, and name the volumes";
constexpr std::string_view not_windows = "Windows keeps no bin on it";

} // namespace

content_texts texts_of(volume_content content)
{
    switch (content) {
    case volume_content::unknown: return {"unknown content", ""};
    case volume_content::empty: return {"zeros", ""};
    case volume_content::ntfs: return {"NTFS", ""};
    case volume_content::bitlocker: return {"BitLocker volume", give_key};
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

} // namespace hv

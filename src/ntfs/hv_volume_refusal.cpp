#include "ntfs/hv_volume_refusal.h"

#include "base/hv_string.h"

#include <array>

namespace hv {

namespace {

// What the boot sector of an encrypted volume has in the place of "NTFS    ".
constexpr std::string_view encrypted_signature = "-FVE-FS-";

bool has_signature_of(byte_view boot, std::string_view signature)
{
    const auto bytes = boot.clip(ntfs_boot::signature, signature.size()).bytes();
    return std::equal(bytes.begin(), bytes.end(), signature.begin(), signature.end());
}

} // namespace

std::string refusal_reason(const CNtfs &volume)
{
    const RAW_DISK_IO *disk = volume.get_disk();
    if (disk == nullptr) return "the medium can't be opened";
    if (disk->failure() != open_failure::none)
        return open_failure_text(disk->failure());
    const u64 offset = volume.get_volume_offset();
    const u64 size = disk->get_size();
    if (offset >= size)
        return "the offset is after the end of the medium, which has " +
               number_text(size, true) + " bytes";
    NTFS_BOOT boot;
    u32 length = ntfs_boot::size;
    if (!disk->read(boot.bytes.data(), length, offset) || length != ntfs_boot::size)
        return "the boot sector can't be read";
    if (has_signature_of(byte_view{boot.bytes}, encrypted_signature))
        return "the volume is encrypted (BitLocker)";
    if (!boot.has_signature()) return "there is no NTFS boot sector";
    if (volume.get_cluster_size() == 0)
        return "the boot sector states no possible cluster size";
    return "the first record of the $MFT can't be read or is no record";
}

} // namespace hv

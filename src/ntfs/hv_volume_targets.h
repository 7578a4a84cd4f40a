#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_fileio.h"
#include "ntfs/ntfs.h"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// From what a user names as the place of an NTFS volume to an open volume. A check
/// finds the volume on a whole disk, or the words that tell the user where it may be;
/// `open_target` opens it. Paths are UTF-8, offsets are bytes from the disk's start.
namespace hv {

/// Whether a volume may reach behind the end of its image.
enum class size_check { enforce, ignore };

// ---- Checks. Each says whether `offset` is that of a usable NTFS volume; 0 means that
// none was given. `out_found` says that there is an NTFS volume, be it elsewhere; if no
// partition begins at `offset`, that becomes the offset of the last NTFS volume. Lines
// for the user go to `messages`; they are to be shown only if the check
// fails. Nothing is known of the volume's own health yet.

bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      const RAW_DISK_IO &disk, size_check check);
/// The same by the first bytes of an image of `image_size` bytes. An offset that it
/// comes to counts sectors of 512 bytes.
bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      byte_view first_bytes, u64 image_size, size_check check);

/// Physical drive: "/dev/sda" is 0.
bool check_drive_target(std::ostream &messages, u32 drive_number, u64 &offset,
                        bool &out_found, size_check check);
bool check_image_target(std::ostream &messages, std::string_view path, u64 &offset,
                        bool &out_found, size_check check);
/// A disk device that stands for a mounted virtual disk.
bool check_mounted_vmdk_target(std::ostream &messages, std::string_view path,
                               u64 &offset, bool &out_found, size_check check);
/// All files of a chain, in any order.
bool check_vmdk_target(std::ostream &messages, const std::vector<std::string> &paths,
                       u64 &offset, bool &out_found, size_check check);

/// What follows from a check of an image, a drive or a mounted virtual disk.
enum class volume_choice {
    at_offset,   ///< go on with the offset that the check left
    whole_image, ///< the image is a volume: its path is to be the volume path
    stop,        ///< show the messages, and end
};
/// `passed`, `found` and `offset` come from the check; `offset_given` says whether the
/// user gave one. Without one, the check is to enforce sizes. For a chain of virtual
/// disk files another rule holds: it stops only if nothing passed or was found.
volume_choice choose_volume_offset(bool passed, bool found, u64 offset,
                                   bool offset_given);

// ---- Texts of a front end, for standard error

inline constexpr std::string_view no_input_text =
    "error: need to specify at least an input source [-mftfile, -image, -drivenum, "
    "-partition, -vmdk]\n";
/// For a path that can't be resolved. The comma behind the line break belongs to it.
std::string unresolved_path_text(std::string_view path);
/// The files of a chain as they should have been named; `option` with its hyphen.
std::string suggested_array_text(std::string_view option,
                                 const std::vector<std::string> &paths);

// ---- Opening

/// What the user named, and what came of it. A front end fills in the first group, of
/// which all fields are optional and the first that is set is opened, calls
/// `open_target`, and reads the second group. The context that analyses entries is then
/// made from `*volume`.
struct volume_target {
    std::string input_file;              ///< a copy of an $MFT, not a volume
    CNtfs *attached = nullptr;           ///< a volume that the caller opened and owns
    std::vector<std::string> vmdk_files; ///< the files of a chain, in any order
    u64 vmdk_offset = 0;                 ///< 0: the first volume of the chain
    i32 drive_number = -1;               ///< used ahead of the paths below
    std::string volume_path;             ///< an image that is a volume
    std::string image_path;              ///< an image, with `volume_offset`
    std::string partition;
    std::string mounted_vmdk;   ///< a disk device, with `volume_offset`
    u64 volume_offset = 0;      ///< of images, drives and mounted virtual disks
    u32 wanted_record_size = 0; ///< of `input_file`; 0 for 1024

    bool is_opened = false;
    uni::fileio input;                   ///< open, if `input_file` was named
    CNtfs *volume = nullptr;             ///< validated; null for an input file
    std::unique_ptr<CNtfs> owned_volume; ///< what `volume` is, unless attached
    u64 entry_count = 0;
    u32 record_size = 0;      ///< bytes
    std::string label;        ///< for reports
    std::string device_label; ///< for reports; physical drives only
};

/// Opens what the target names. True if it is open and, if it is a volume, validated;
/// at once if it was so already. After a failure it may be tried again.
bool open_target(volume_target &target);

} // namespace hv

#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_fileio.h"
#include "ntfs/ntfs.h"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// Turns what a user names (an image, a drive, a chain of virtual disk files) into an
/// open NTFS volume. A check finds the volume on a whole disk, or explains to the user
/// where it may be; `open_target` opens it. Paths are UTF-8, offsets are bytes from the
/// start of the disk.
namespace hv {

/// Whether a volume may reach past the end of its image.
enum class size_check { enforce, ignore };

// ---- Checks. Each returns whether an NTFS volume begins at `offset`; 0 means that no
// offset was given. `out_found` says whether there is an NTFS volume anywhere on the
// disk. If no partition begins at `offset`, it is set to the offset of the last NTFS
// partition. Lines for the user go to `messages`, to be shown only if the check fails.
// The volume itself isn't validated yet.

/// On an open disk.
bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      const RAW_DISK_IO &disk, size_check check);
/// By the first bytes of an image of `image_size` bytes. An offset that it proposes
/// counts sectors of 512 bytes, whatever the table says.
bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      byte_view first_bytes, u64 image_size, size_check check);

/// On a physical drive: "/dev/sda" is 0.
bool check_drive_target(std::ostream &messages, u32 drive_number, u64 &offset,
                        bool &out_found, size_check check);
/// In an image. One that can't be opened has no partitions; `RAW_DISK_IO::failure` says
/// why.
bool check_image_target(std::ostream &messages, std::string_view path, u64 &offset,
                        bool &out_found, size_check check);
/// On the disk device of a mounted virtual disk.
bool check_mounted_vmdk_target(std::ostream &messages, std::string_view path,
                               u64 &offset, bool &out_found, size_check check);
/// In a chain of virtual disk files: all of them, in any order.
bool check_vmdk_target(std::ostream &messages, const std::vector<std::string> &paths,
                       u64 &offset, bool &out_found, size_check check);

/// What a check left.
struct check_outcome {
    bool passed = false; ///< its result
    bool found = false;  ///< its `out_found`
    u64 offset = 0;
};
/// Whether the user gave an offset. Without one, the check has to enforce sizes.
enum class offset_option { absent, given };
/// What follows from a check of an image, a drive or a mounted virtual disk. (A chain
/// of virtual disk files is given up only if its check neither passed nor found a
/// volume.)
enum class volume_choice {
    at_offset,   ///< open the image at the offset of the outcome
    whole_image, ///< the image is a volume: use its path as the volume path
    stop,        ///< show the messages and end
};
volume_choice choose_volume_offset(const check_outcome &outcome, offset_option option);

// ---- Texts of a front end, for standard error

inline constexpr std::string_view no_input_text =
    "error: need to specify at least an input source [-mftfile, -image, -drivenum, "
    "-partition, -vmdk]\n";
/// For a path that can't be resolved. It ends in a line break and a comma.
std::string unresolved_path_text(std::string_view path);
/// Proposes the files of a chain for the command line; `option` with its hyphen.
std::string suggested_array_text(std::string_view option,
                                 const std::vector<std::string> &paths);

// ---- Opening

/// What the user named, and what was opened. A front end fills in fields of the first
/// group, calls `open_target`, which opens the first one that is set, and reads the
/// second group. `mft_entries_ctx` is then made from `*volume`.
struct volume_target {
    std::string input_file;    ///< a copy of an $MFT, not a volume
    CNtfs *attached = nullptr; ///< a volume that the caller has opened and owns
    std::vector<std::string> vmdk_files; ///< the files of a chain, in any order
    u64 vmdk_offset = 0;                 ///< 0: the first volume of the chain
    i32 drive_number = -1;               ///< -1: none
    std::string volume_path;             ///< an image that is a volume
    std::string image_path;              ///< an image, with `volume_offset`
    std::string partition;
    std::string mounted_vmdk;   ///< a disk device, with `volume_offset`
    u64 volume_offset = 0;      ///< of images, drives and mounted virtual disks
    u32 wanted_record_size = 0; ///< of `input_file`; 0 for 1024

    bool is_opened = false;
    uni::fileio input;                   ///< open, if `input_file` was named
    CNtfs *volume = nullptr;             ///< validated; null for an input file
    std::unique_ptr<CNtfs> owned_volume; ///< owns `volume`, unless it was attached
    u64 entry_count = 0;                 ///< of the $MFT
    u32 record_size = 0;                 ///< bytes
    std::string label;                   ///< for reports
    std::string device_label;            ///< for reports; physical drives only
};

/// Opens what the target names. True if it is open, or was open already; a volume is
/// then validated. After a failure it may be called again.
bool open_target(volume_target &target);

} // namespace hv

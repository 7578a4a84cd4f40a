#include "ntfs/hv_volume_targets.h"

#include "base/hv_string.h"
#include "disk/hv_partitions.h"

#include <array>
#include <optional>

namespace hv {

namespace {

constexpr u32 default_record_size = 1024;
constexpr std::size_t boot_read = 36;
constexpr u64 image_sector_size = 512;

// The texts that differ between a disk and the first bytes of an image.
struct check_form {
    std::string_view corrupted, nothing_found, wrong_type, wrong_type_end;
};
constexpr check_form disk_form{"disk is corrupted, partition info questionable\n",
                               "couldn't find any partitions on disk\n",
                               " is not a NTFS partition, but [", "]\n"};
constexpr check_form image_form{"image corrupted, partition info questionable\n",
                                "couldn't find any partitions on disk \n",
                                " is not a NTFS partition, but a ", "\n"};

// What a check reads; `disk` is null if there are only the first bytes.
struct checked_medium {
    const RAW_DISK_IO *disk = nullptr;
    byte_view first_bytes;
    u64 size = 0;
    size_check check = size_check::enforce;

    const check_form &form() const { return disk != nullptr ? disk_form : image_form; }
    bool find(partition_list &partitions, table_scan scan) const
    {
        return disk != nullptr
                   ? find_partitions(partitions, *disk, scan, table_gaps::off)
                   : find_partitions_in_buffer(partitions, first_bytes, scan);
    }
    u64 candidate(const partition_entry &entry) const
    {
        return disk != nullptr
                   ? entry.byte_offset()
                   : saturating_product(entry.start_sector, image_sector_size);
    }
};

std::string hex(u64 value)
{
    return "0x" + hex_digits(value, 1);
}

void add_out_of_bounds(std::ostream &messages, u64 offset)
{
    messages << "volume offset " << hex(offset) << " is not within image bounds\n";
}

bool is_ntfs_type(std::string_view type)
{
    return type.find("ntfs") != std::string_view::npos;
}

bool check_selected(std::ostream &messages, bool &out_found, u64 offset,
                    const partition_entry &entry, const checked_medium &medium)
{
    const std::string type = partition_type_name(entry.type);
    if (!is_ntfs_type(type)) {
        messages << "volume offset selected " << hex(offset) << medium.form().wrong_type
                 << type << medium.form().wrong_type_end;
        return false;
    }
    out_found = true;
    if (medium.check == size_check::ignore || entry.byte_end() <= medium.size)
        return true;
    messages << "volume offset " << hex(offset)
             << " is a NTFS partition, however image size does not encapsulate "
                "entire volume\n";
    return false;
}

void list_offsets(std::ostream &messages, const partition_list &partitions)
{
    messages << '\n';
    for (const partition_entry &entry : partitions)
        messages << "volume offset [ " << hex(entry.byte_offset())
                 << " ] : " << partition_type_name(entry.type) << '\n';
    messages << '\n';
}

bool choose_partition(std::ostream &messages, bool &out_found, u64 &offset,
                      const partition_list &partitions, const checked_medium &medium)
{
    std::optional<u64> candidate;
    for (const partition_entry &entry : partitions) {
        const u64 begin = entry.byte_offset();
        if (begin == offset)
            return check_selected(messages, out_found, offset, entry, medium);
        if (!is_ntfs_type(partition_type_name(entry.type))) continue;
        out_found = true;
        candidate = medium.candidate(entry);
        if (begin > medium.size) add_out_of_bounds(messages, *candidate);
    }
    list_offsets(messages, partitions);
    if (candidate) {
        offset = *candidate;
        messages << "use option [-offset " << hex(offset) << "]\n";
    } else {
        messages << "prob detecting ntfs partition\n";
    }
    return false;
}

bool check_offset(std::ostream &messages, bool &out_found, u64 &offset,
                  const checked_medium &medium)
{
    if (offset > medium.size) {
        add_out_of_bounds(messages, offset);
        return false;
    }
    partition_list partitions;
    if (!medium.find(partitions, table_scan::off)) {
        if (begins_with_ntfs(medium.first_bytes)) {
            out_found = true;
            offset = 0;
            return true;
        }
        if (!medium.find(partitions, table_scan::on)) {
            messages << medium.form().nothing_found;
            return false;
        }
        messages << medium.form().corrupted;
    }
    return choose_partition(messages, out_found, offset, partitions, medium);
}

// Between the paths of a chain of virtual disk files.
const std::string path_separator = " | ";

} // namespace

bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      const RAW_DISK_IO &disk, size_check check)
{
    out_found = false;
    if (!disk.is_open()) return false;
    std::array<u8, boot_read> front{};
    u32 length = boot_read;
    if (!disk.read_checked(front.data(), length, 0)) length = 0;
    return check_offset(messages, out_found, offset,
                        {&disk, {front.data(), length}, disk.get_size(), check});
}

bool find_ntfs_volume(std::ostream &messages, bool &out_found, u64 &offset,
                      byte_view first_bytes, u64 image_size, size_check check)
{
    out_found = false;
    return check_offset(messages, out_found, offset,
                        {nullptr, first_bytes, image_size, check});
}

bool check_drive_target(std::ostream &messages, u32 drive_number, u64 &offset,
                        bool &out_found, size_check check)
{
    out_found = false;
    const RAW_DISK_IO disk(drive_number);
    if (disk.is_open())
        return find_ntfs_volume(messages, out_found, offset, disk, check);
    messages << "problems accessing physical disk #" << std::to_string(drive_number)
             << ", aborting \n";
    return false;
}

bool check_image_target(std::ostream &messages, std::string_view path, u64 &offset,
                        bool &out_found, size_check check)
{
    out_found = false;
    if (path.empty()) return false;
    const RAW_DISK_IO disk(path);
    if (!disk.is_open()) {
        messages << "invalid image: " << path << '\n';
        return false;
    }
    return find_ntfs_volume(messages, out_found, offset, disk, check);
}

bool check_mounted_vmdk_target(std::ostream &messages, std::string_view path,
                               u64 &offset, bool &out_found, size_check check)
{
    return check_image_target(messages, path, offset, out_found, check);
}

bool check_vmdk_target(std::ostream &messages, const std::vector<std::string> &paths,
                       u64 &offset, bool &out_found, size_check check)
{
    out_found = false;
    const RAW_DISK_IO disk(paths);
    if (disk.is_open())
        return find_ntfs_volume(messages, out_found, offset, disk, check);
    messages << "invalid disk collection of snaps \n";
    return false;
}

volume_choice choose_volume_offset(const check_outcome &outcome, offset_option option)
{
    const bool is_given = option == offset_option::given;
    if (outcome.passed && (is_given || outcome.offset != 0))
        return volume_choice::at_offset;
    if (!is_given && outcome.offset == 0 && (outcome.passed || outcome.found))
        return volume_choice::whole_image;
    return volume_choice::stop;
}

std::string unresolved_path_text(std::string_view path)
{
    return "prob reading: " + std::string(path) + ", aborting\n,";
}

std::string suggested_array_text(std::string_view option,
                                 const std::vector<std::string> &paths)
{
    return "suggested array: " + std::string(option) + " \"" +
           join_texts(paths, path_separator) + "\"\n";
}

namespace {

bool open_input(volume_target &target)
{
    target.label = target.input_file;
    if (!target.input.open(target.input_file, uni::open_mode::read)) return false;
    target.record_size = target.wanted_record_size != 0 ? target.wanted_record_size
                                                        : default_record_size;
    target.entry_count = target.input.get_size() / target.record_size;
    target.is_opened = true;
    return true;
}

// Opens the first path that is set.
std::unique_ptr<CNtfs> open_path(volume_target &target)
{
    const struct {
        const std::string &path;
        u64 offset;
        volume_kind kind;
        const char *label;
    } choices[] = {{target.volume_path, 0, volume_kind::path, ""},
                   {target.image_path, target.volume_offset, volume_kind::path, ""},
                   {target.partition, 0,
                    target.partition.starts_with("\\\\") ? volume_kind::image
                                                         : volume_kind::letter_path,
                    "partition: "},
                   {target.mounted_vmdk, target.volume_offset, volume_kind::image, ""}};
    for (const auto &[path, offset, kind, label] : choices) {
        if (path.empty()) continue;
        target.label = label + path;
        return std::make_unique<CNtfs>(path, offset, kind);
    }
    return nullptr;
}

std::unique_ptr<CNtfs> make_volume(volume_target &target)
{
    if (!target.vmdk_files.empty()) {
        target.label = "vmdk file " + join_texts(target.vmdk_files, path_separator);
        return open_vmdk_volume(target.vmdk_files, target.vmdk_offset);
    }
    if (target.drive_number < 0) return open_path(target);
    target.label = "specified by physical drive number";
    target.device_label = "physical drive: " + std::to_string(target.drive_number);
    return open_drive_volume(static_cast<u32>(target.drive_number),
                             target.volume_offset);
}

} // namespace

bool open_target(volume_target &target)
{
    if (target.is_opened) return true;
    if (!target.input_file.empty()) return open_input(target);
    if (target.attached != nullptr && target.attached->validate_volume()) {
        target.volume = target.attached;
    } else {
        target.owned_volume = make_volume(target);
        if (target.owned_volume && !target.owned_volume->validate_volume())
            target.owned_volume.reset();
        target.volume = target.owned_volume.get();
    }
    if (target.volume == nullptr) return false;
    target.entry_count = target.volume->get_mft_entry_count();
    target.record_size = target.volume->get_mft_record_size();
    target.is_opened = true;
    return true;
}

} // namespace hv

#include "base/hv_checked_math.h"
#include "base/hv_string.h"
#include "disk/hv_file_source.h"
#include "disk/hv_source_bytes.h"
#include "media/container_openers.h"
#include "media/layered_source.h"
#include "media/vmdk_extent.h"

#include <algorithm>
#include <map>

namespace hv {

namespace {

constexpr std::size_t max_descriptor = std::size_t{1} << 20;
constexpr std::size_t max_layers = 256;
constexpr u64 sector_bytes = 512;

// What is being opened: the disk so far, and the files of it.
struct disk_builder {
    std::shared_ptr<fault_list> faults = std::make_shared<fault_list>();
    std::shared_ptr<layered_source> disk = std::make_shared<layered_source>(faults);
    std::vector<std::string> files;
    // Up to where lines of descriptors took each file. One that is taken again and
    // again would make an endless disk.
    std::map<std::string, u64> taken;
    std::string problem;

    std::shared_ptr<const file_source> open_file(const std::string &path);
    std::shared_ptr<const vmdk_extent>
    add_grains(std::vector<layered_source::stretch> &layer, const std::string &path,
               const byte_source_ptr &file, u64 length);
    bool add_line(std::vector<layered_source::stretch> &layer,
                  const std::string &descriptor, const vmdk_extent_line &line);
    bool add_layer(vmdk_descriptor &descriptor, const std::string &path);
};

std::shared_ptr<const file_source> disk_builder::open_file(const std::string &path)
{
    auto file = std::make_shared<const file_source>(path);
    if (file->failure() != open_failure::none) {
        problem = path + ", which belongs to it: " + open_failure_text(file->failure());
        return nullptr;
    }
    files.push_back(path);
    disk->add_file(file);
    return file;
}

// Adds a file of grains; a length of 0 means all that it says it holds.
std::shared_ptr<const vmdk_extent>
disk_builder::add_grains(std::vector<layered_source::stretch> &layer,
                         const std::string &path, const byte_source_ptr &file,
                         u64 length)
{
    std::shared_ptr<const vmdk_extent> grains = vmdk_extent::open(file, problem);
    if (!grains) {
        problem = path + ": " + problem;
        return nullptr;
    }
    if (!fits_its_file(*grains)) {
        problem = path + ": " + unfit_tables;
        return nullptr;
    }
    layer.push_back(
        {.length = length == 0 ? grains->size() : length, .blocks = grains});
    return grains;
}

// A line of the descriptor. Its file is looked for beside the descriptor, by the last
// part of its name.
bool disk_builder::add_line(std::vector<layered_source::stretch> &layer,
                            const std::string &descriptor, const vmdk_extent_line &line)
{
    u64 length = 0;
    u64 offset = 0;
    if (__builtin_mul_overflow(line.sectors, sector_bytes, &length) ||
        __builtin_mul_overflow(line.offset, sector_bytes, &offset)) {
        problem = "its descriptor states an impossible size";
        return false;
    }
    const std::string type = lower_copy(line.type);
    if (type == "zero") {
        layer.push_back({.length = length});
        return true;
    }
    const bool is_sparse = type == "sparse" || type == "vmfssparse";
    if (!is_sparse && type != "flat" && type != "vmfs") {
        problem =
            "its descriptor lists a file of the kind " + line.type +
            ", which isn't read; convert the disk with qemu-img convert, and name "
            "the result";
        return false;
    }
    const std::string path = beside(descriptor, line.file);
    u64 &end = taken[path];
    if (offset < end) {
        problem = "its descriptor lists " + path + " twice";
        return false;
    }
    end = is_sparse ? ~u64{0} : saturating_sum(offset, std::max<u64>(length, 1));
    const auto file = open_file(path);
    if (!file) return false;
    if (is_sparse) return add_grains(layer, path, file, length) != nullptr;
    layer.push_back(
        {.length = length, .blocks = nullptr, .flat = file, .offset = offset});
    return true;
}

// Adds the disk that `path` describes: a text alone, or one in a file of grains, whose
// only extent is that file under whatever name it has now.
bool disk_builder::add_layer(vmdk_descriptor &descriptor, const std::string &path)
{
    std::vector<layered_source::stretch> layer;
    const auto file = open_file(path);
    if (!file) return false;
    if (read_container_kind(*file) == container_kind::vmdk_descriptor) {
        descriptor =
            parse_vmdk_descriptor(byte_view{read_bytes(*file, 0, max_descriptor)});
        for (const vmdk_extent_line &line : descriptor.extents)
            if (!add_line(layer, path, line)) return false;
    } else {
        const auto grains = add_grains(layer, path, file, 0);
        if (!grains) return false;
        descriptor = grains->descriptor();
        if (descriptor.extents.empty()) {
            problem = "it is one file of a disk that consists of several; name the "
                      "descriptor beside it";
            return false;
        }
    }
    if (layer.empty() || !disk->add_layer(std::move(layer))) {
        problem = "its descriptor lists no files";
        return false;
    }
    return true;
}

} // namespace

opened_medium open_vmdk(const std::string &path)
{
    disk_builder builder;
    vmdk_descriptor descriptor;
    if (!builder.add_layer(descriptor, path)) return unopened(builder.problem);
    const std::string type = descriptor.type;
    std::size_t parents = 0;
    for (std::string child = path; descriptor.has_parent(); ++parents) {
        const std::string wanted = lower_copy(descriptor.parent_id);
        const std::string name = descriptor.parent_name;
        child = beside(child, name);
        if (parents == max_layers || name.empty() ||
            !builder.add_layer(descriptor, child))
            return unopened("it is a change to the disk \"" + name +
                            "\", which can't be opened; put it, with its files, beside "
                            "it");
        if (lower_copy(descriptor.content_id) != wanted)
            return unopened(
                "it is a change to the disk \"" + name +
                "\", and the one beside it was changed since, or is another");
    }
    opened_medium medium;
    medium.source = builder.disk;
    medium.files = std::move(builder.files);
    if (!type.empty()) medium.details.push_back(type);
    if (medium.files.size() > 1)
        medium.details.push_back(std::to_string(medium.files.size()) + " files");
    if (parents > 0)
        medium.details.push_back("a change to " + std::to_string(parents) +
                                 (parents == 1 ? " parent" : " parents"));
    medium.faults = [faults = builder.faults] { return faults->texts(); };
    return medium;
}

} // namespace hv

#include "media/open_medium.h"

#include "disk/hv_file_source.h"
#include "disk/hv_source_bytes.h"
#include "media/container_openers.h"
#include "media/disk_tables.h"
#include "media/qcow_layout.h"
#include "media/signature.h"
#include "media/stitched_source.h"

namespace hv {

namespace {

constexpr u64 footer_bytes = 512;

// A virtual disk of fixed size is a raw image with a footer, which isn't of the disk.
bool has_fixed_footer(const byte_source &file)
{
    if (file.size() < footer_bytes) return false;
    const std::vector<u8> footer =
        read_bytes(file, file.size() - footer_bytes, footer_bytes);
    return holds_text(byte_view{footer}, 0, "conectix");
}

opened_medium open_raw(const std::string &path,
                       const std::shared_ptr<const file_source> &file)
{
    opened_medium medium = open_split_raw(path);
    if (medium.source || !medium.problem.empty()) {
        medium.description = "raw image";
        return medium;
    }
    medium = {.source = file, .description = "raw image", .files = {path}};
    medium.is_plain_file = true;
    if (!has_fixed_footer(*file)) return medium;
    const auto disk = std::make_shared<stitched_source>();
    disk->append(file, 0, file->size() - footer_bytes);
    medium.source = disk;
    medium.description = "virtual disk (VHD), of fixed size";
    return medium;
}

opened_medium open_qed(const std::string &path, const byte_source &file)
{
    const std::vector<u8> head = read_bytes(file, 0, 64);
    const u64 features = byte_view{head}.read_padded<u64>(qed_header::features);
    if ((features & qed_header::has_backing_file) != 0)
        return unopened("it is a change to a backing file; convert it with qemu-img "
                        "convert, and name the result");
    return open_with_qemu(path, "qed");
}

// QEMU reads zeros where the file of such a disk ends too early, without a word.
opened_medium open_table_disk(const std::string &path, const std::string &driver,
                              u64 expected_end, const byte_source &file)
{
    opened_medium medium = open_with_qemu(path, driver);
    if (expected_end > file.size())
        medium.faults = [missing = expected_end - file.size()] {
            return std::vector<std::string>{
                "the file is cut off: its last " + std::to_string(missing) +
                " bytes are missing, and what they held is read as zeros"};
        };
    return medium;
}

opened_medium open_container(container_kind kind, const std::string &path,
                             const byte_source &file)
{
    switch (kind) {
    case container_kind::ewf:
    case container_kind::ewf_2: return open_ewf(path, kind);
    case container_kind::vmdk:
    case container_kind::vmdk_descriptor: return open_vmdk(path);
    case container_kind::vhd:
    case container_kind::vhdx: return open_vhd(path);
    case container_kind::qcow: return open_qcow(path);
    case container_kind::vdi: return open_table_disk(path, "vdi", vdi_end(file), file);
    case container_kind::parallels:
        return open_table_disk(path, "parallels", parallels_end(file), file);
    case container_kind::dmg: return open_with_qemu(path, "dmg");
    case container_kind::qed: return open_qed(path, file);
    case container_kind::cloop: return open_with_qemu(path, "cloop");
    default: break;
    }
    return unopened("this kind of file isn't read; " +
                    std::string(texts_of(kind).advice));
}

} // namespace

opened_medium open_medium(const std::string &path)
{
    const auto file = std::make_shared<const file_source>(path);
    if (file->failure() != open_failure::none)
        return {.source = nullptr, .problem = open_failure_text(file->failure())};
    const container_kind kind = read_container_kind(*file);
    if (kind == container_kind::none) return open_raw(path, file);
    opened_medium medium = open_container(kind, path, *file);
    const std::string name(texts_of(kind).name);
    medium.kind = kind;
    if (medium.description.empty()) medium.description = name;
    if (!medium.problem.empty()) medium.problem = name + ": " + medium.problem;
    return medium;
}

} // namespace hv

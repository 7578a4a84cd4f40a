#include "disk/hv_file_source.h"
#include "media/container_openers.h"
#include "media/layered_source.h"
#include "media/qcow_layout.h"
#include "media/qcow_map.h"

namespace hv {

namespace {

constexpr std::size_t max_layers = 64;

// Why nothing here reads a file; empty if something does.
std::string refusal_of(const qcow_facts &facts)
{
    if (facts.encryption != 0)
        return "it is encrypted; decrypt it with qemu-img convert, and name the result";
    constexpr u64 known = qcow_header::is_dirty | qcow_header::is_corrupt |
                          qcow_header::external_data | qcow_header::other_packing;
    if (facts.version < 2 || (facts.features & ~known) != 0)
        return "this form of it isn't read; convert it with qemu-img convert, and name "
               "the result";
    if ((facts.features & qcow_header::external_data) != 0)
        return "its data is in another file; convert it with qemu-img convert, and "
               "name "
               "the result";
    return {};
}

// Clusters that are compressed in another way are QEMU's. It reads zeros where the file
// ends too early, without a word, so the tables are held against the file first.
opened_medium open_other_packing(const std::string &path, const byte_source_ptr &file)
{
    const std::shared_ptr<const qcow_map> map = qcow_map::open(file);
    if (map && !fits_its_file(*map)) return unopened(unfit_tables);
    opened_medium medium = open_with_qemu(path, "qcow2");
    if (map && map->expected_end() <= file->size()) return medium;
    medium.faults = [others = medium.faults] {
        std::vector<std::string> texts = others();
        texts.push_back("the file is cut off; what its last clusters held is read as "
                        "zeros");
        return texts;
    };
    return medium;
}

// Adds a file to the disk; its name for a backing file, or an empty one, goes to
// `backing`. Returns why it can't be read; empty if it can.
std::string add_layer(layered_source &disk, std::string &backing,
                      const std::shared_ptr<const file_source> &file)
{
    if (file->failure() != open_failure::none)
        return open_failure_text(file->failure());
    disk.add_file(file);
    const container_kind kind = read_container_kind(*file);
    if (kind == container_kind::none) {
        disk.add_layer({{.length = file->size(), .flat = file}});
        return {};
    }
    if (kind != container_kind::qcow) return std::string(texts_of(kind).name);
    const qcow_facts facts = read_qcow_facts(*file);
    std::string refusal = refusal_of(facts);
    if (!refusal.empty()) return refusal;
    const bool is_read = (facts.features & qcow_header::other_packing) == 0;
    const std::shared_ptr<const qcow_map> map =
        is_read ? qcow_map::open(file) : nullptr;
    if (!map)
        return "its header is damaged, or it isn't read together with backing files; "
               "try "
               "qemu-img convert on a copy";
    if (!fits_its_file(*map)) return unfit_tables;
    disk.add_layer({{.length = map->size(), .blocks = map}});
    backing = facts.backing_name;
    return {};
}

} // namespace

opened_medium open_qcow(const std::string &path)
{
    auto file = std::make_shared<const file_source>(path);
    const qcow_facts facts = read_qcow_facts(*file);
    const std::string refusal = refusal_of(facts);
    if (!refusal.empty()) return unopened(refusal);
    if (facts.backing_name.empty() &&
        (facts.features & qcow_header::other_packing) != 0)
        return open_other_packing(path, file);
    const auto faults = std::make_shared<fault_list>();
    const auto disk = std::make_shared<layered_source>(faults);
    opened_medium medium;
    std::string layer = path;
    for (std::string backing = "?"; !backing.empty(); layer = beside(layer, backing)) {
        backing.clear();
        if (medium.files.size() == max_layers)
            return unopened("its backing files lead back to themselves");
        const std::string problem = add_layer(*disk, backing, file);
        if (!problem.empty() && medium.files.empty()) return unopened(problem);
        if (!problem.empty())
            return unopened("it is a change to the backing file \"" + layer +
                            "\", which can't be read as that: " + problem);
        medium.files.push_back(layer);
        if (!backing.empty())
            file = std::make_shared<const file_source>(beside(layer, backing));
    }
    medium.source = disk;
    if (medium.files.size() > 1)
        medium.details = {
            "a change to " + std::to_string(medium.files.size() - 1) +
            (medium.files.size() == 2 ? " backing file" : " backing files")};
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

} // namespace hv

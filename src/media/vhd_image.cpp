#include "disk/hv_file_source.h"
#include "media/bfio_handle.h"
#include "media/block_source.h"
#include "media/container_openers.h"
#include "media/layered_source.h"
#include "media/vhd_map.h"

#include <algorithm>
#include <array>

#ifdef VESKIT_WITH_VHDI
#define HAVE_LIBBFIO // the header declares the functions that take a handle
#include <libbfio.h>
#include <libvhdi.h>
#undef HAVE_LIBBFIO
#endif

namespace hv {

#ifdef VESKIT_WITH_VHDI

namespace {

constexpr int max_parents = 64;
constexpr u32 block_bytes = u32{64} << 10;

// A name that is declared can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::libvhdi_file_##name) name =                                            \
        loaded.function<decltype(&::libvhdi_file_##name)>("libvhdi_file_" #name)
// NOLINTEND(bugprone-macro-parentheses)

struct vhdi_library {
    shared_object loaded{"libvhdi.so.1"};
    LIBRARY_FUNCTION(initialize);
    LIBRARY_FUNCTION(free);
    LIBRARY_FUNCTION(open_file_io_handle);
    LIBRARY_FUNCTION(read_buffer_at_offset);
    LIBRARY_FUNCTION(get_media_size);
    LIBRARY_FUNCTION(get_file_type);
    LIBRARY_FUNCTION(get_parent_identifier);
    LIBRARY_FUNCTION(get_utf8_parent_filename);
    LIBRARY_FUNCTION(set_parent_file);
};

#undef LIBRARY_FUNCTION

vhdi_library &vhdi()
{
    static vhdi_library loaded;
    return loaded;
}

// A file, after its parent: the parent must outlive it.
struct open_disk {
    std::shared_ptr<open_disk> parent;
    byte_source_ptr bytes;
    std::shared_ptr<void> handle;
    libvhdi_file_t *file = nullptr;

    open_disk() = default;
    ~open_disk()
    {
        if (file != nullptr) vhdi().free(&file, nullptr);
    }
    open_disk(const open_disk &) = delete;
    open_disk &operator=(const open_disk &) = delete;

    bool open(const std::string &path);
    bool has_parent() const;
    std::string parent_name() const;
    bool read(u64 offset, std::span<u8> out) const;
};

bool open_disk::open(const std::string &path)
{
    const auto stored = std::make_shared<const file_source>(path);
    bytes = stored;
    if (stored->failure() != open_failure::none) return false;
    handle = make_bfio_handle(vhdi().loaded, bytes);
    constexpr int read_only = 1;
    return handle && vhdi().initialize(&file, nullptr) == 1 &&
           vhdi().open_file_io_handle(file,
                                      static_cast<libbfio_handle_t *>(handle.get()),
                                      read_only, nullptr) == 1;
}

bool open_disk::has_parent() const
{
    std::array<u8, 16> id{};
    return vhdi().get_parent_identifier(file, id.data(), id.size(), nullptr) == 1 &&
           std::ranges::any_of(id, [](u8 byte) { return byte != 0; });
}

std::string open_disk::parent_name() const
{
    std::array<u8, 4096> name{};
    if (vhdi().get_utf8_parent_filename(file, name.data(), name.size(), nullptr) != 1)
        return {};
    return {name.begin(), std::ranges::find(name, u8{0})};
}

bool open_disk::read(u64 offset, std::span<u8> out) const
{
    const ssize_t count = vhdi().read_buffer_at_offset(
        file, out.data(), out.size(), static_cast<off64_t>(offset), nullptr);
    return count >= 0 && static_cast<std::size_t>(count) == out.size();
}

// Opens the file and all its parents. Empty, or why not.
std::string open_chain(std::shared_ptr<open_disk> &disk,
                       std::vector<std::string> &files)
{
    for (open_disk *child = disk.get(); child->has_parent();
         child = child->parent.get()) {
        const std::string name = child->parent_name();
        const std::string path = beside(files.back(), name);
        child->parent = std::make_shared<open_disk>();
        if (name.empty() || files.size() > max_parents || !child->parent->open(path))
            return "it is a differencing disk, and its parent \"" + name +
                   "\" can't be opened; put the parent beside it";
        files.push_back(path);
    }
    // A parent takes part only once it has its own parent, so the base comes first.
    std::vector<open_disk *> chain;
    for (open_disk *each = disk.get(); each != nullptr; each = each->parent.get())
        chain.push_back(each);
    for (auto child = chain.rbegin(); child != chain.rend(); ++child)
        if ((*child)->parent &&
            vhdi().set_parent_file((*child)->file, (*child)->parent->file, nullptr) !=
                1)
            return "its parent isn't the disk that it was made from, or was changed "
                   "since";
    return {};
}

opened_medium open_with_library(const std::string &path)
{
    if (!vhdi().loaded.is_complete())
        return unopened(package_problem("VHD and VHDX", "libvhdi1"));
    auto disk = std::make_shared<open_disk>();
    size64_t size = 0;
    if (!disk->open(path) || vhdi().get_media_size(disk->file, &size, nullptr) != 1)
        return unopened("this virtual disk is damaged or cut off; try to repair a copy "
                        "with qemu-img check, or convert it with qemu-img convert");
    opened_medium medium;
    medium.files = {path};
    medium.problem = open_chain(disk, medium.files);
    if (!medium.problem.empty()) return medium;
    block_source::form form{.size = size, .block_bytes = block_bytes};
    for (const open_disk *each = disk.get(); each != nullptr;
         each = each->parent.get()) {
        form.stored_size += each->bytes->stored_size();
        form.files.push_back(each->bytes);
    }
    const auto faults = std::make_shared<fault_list>();
    medium.source = std::make_shared<block_source>(
        std::move(form),
        [disk](u64 offset, std::span<u8> out) { return disk->read(offset, out); },
        faults);
    if (medium.files.size() > 1)
        medium.details = {"differencing, over " +
                          std::to_string(medium.files.size() - 1) + " parents"};
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

} // namespace

#else

namespace {

opened_medium open_with_library(const std::string &)
{
    return unopened(package_problem("VHD and VHDX", "libvhdi-dev") +
                    ", with this program built again");
}

} // namespace

#endif

// The library looks up each sector of a VHD that grows, which takes forty times as long
// as reading it does, so this kind is read here.
opened_medium open_vhd(const std::string &path)
{
    const auto file = std::make_shared<const file_source>(path);
    const std::shared_ptr<const vhd_map> map = vhd_map::open(file);
    if (!map) return open_with_library(path);
    if (!fits_its_file(*map)) return unopened(unfit_tables);
    const auto faults = std::make_shared<fault_list>();
    const auto disk = std::make_shared<layered_source>(faults);
    disk->add_layer({{.length = map->size(), .blocks = map}});
    disk->add_file(file);
    if (map->has_lost_footer())
        faults->add("the footer at its end is missing: the file is cut off");
    opened_medium medium;
    medium.source = disk;
    medium.files = {path};
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

} // namespace hv

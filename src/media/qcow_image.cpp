#include "base/hv_byte_view.h"
#include "disk/hv_file_source.h"
#include "disk/hv_source_bytes.h"
#include "media/bfio_handle.h"
#include "media/block_source.h"
#include "media/container_openers.h"
#include "media/qcow_layout.h"
#include "media/qemu_image.h"

#include <algorithm>

#ifdef VESKIT_WITH_QCOW
#define HAVE_LIBBFIO // the header declares the functions that take a handle
#include <libbfio.h>
#include <libqcow.h>
#undef HAVE_LIBBFIO
#endif

namespace hv {

namespace {

constexpr std::size_t max_backing_files = 64;

u64 big_endian(byte_view bytes, u64 offset, std::size_t count)
{
    u64 number = 0;
    for (const u8 byte : bytes.clip(offset, count).bytes()) number = number << 8 | byte;
    return number;
}

// What the header says that decides who can read the file.
struct qcow_facts {
    u64 version = 0;
    u64 encryption = 0;
    u64 features = 0;         // that a reader must know
    std::string backing_name; // empty without one
};

qcow_facts read_facts(const byte_source &file)
{
    using namespace qcow_header;
    const std::vector<u8> bytes = read_bytes(file, 0, qcow_header::size);
    const byte_view header{bytes};
    qcow_facts facts;
    facts.version = big_endian(header, version, 4);
    facts.encryption =
        big_endian(header, facts.version == 1 ? encryption_1 : encryption, 4);
    if (facts.version >= 3) facts.features = big_endian(header, incompatible, 8);
    const u64 length = big_endian(header, backing_length, 4);
    const u64 offset = big_endian(header, backing_offset, 8);
    if (offset == 0 || length == 0) return facts;
    const std::vector<u8> name =
        read_bytes(file, offset, std::min<u64>(length, max_name));
    facts.backing_name = std::string(name.begin(), name.end());
    if (facts.backing_name.empty()) facts.backing_name = "?";
    return facts;
}

std::string refusal_of(const qcow_facts &facts)
{
    if (facts.encryption != 0)
        return "it is encrypted; decrypt it with qemu-img convert, and name the result";
    if ((facts.features & qcow_header::external_data) != 0)
        return "its data is in another file; convert it with qemu-img convert, and "
               "name "
               "the result";
    return {};
}

// How QEMU calls a backing file by what it begins with; a raw disk if by nothing.
std::string driver_of(const byte_source &file)
{
    const container_kind kind = read_container_kind(file);
    if (kind == container_kind::none) return "raw";
    if (kind != container_kind::qcow) return {};
    return read_facts(file).version == 1 ? "qcow" : "qcow2";
}

// Backing files are named one by one: what the header of an image calls its backing
// file could be any file of this machine.
opened_medium open_over_backing(const std::string &path)
{
    std::vector<qemu_layer> layers;
    std::string next = path;
    while (layers.size() <= max_backing_files) {
        const file_source file(next);
        const std::string driver =
            file.failure() == open_failure::none ? driver_of(file) : "";
        if (driver.empty())
            return unopened(
                "it is a change to a backing file, and \"" + next +
                "\" can't be opened as that; put the backing file beside it");
        layers.push_back({next, driver});
        if (driver == "raw") return open_layers_with_qemu(layers);
        const qcow_facts facts = read_facts(file);
        const std::string refusal = refusal_of(facts);
        if (!refusal.empty()) return unopened(next + ": " + refusal);
        if (facts.backing_name.empty()) return open_layers_with_qemu(layers);
        next = beside(next, facts.backing_name);
    }
    return unopened("its backing files lead back to themselves");
}

} // namespace

#ifdef VESKIT_WITH_QCOW

namespace {

constexpr u32 block_bytes = u32{64} << 10;

#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::libqcow_file_##name) name =                                            \
        library.function<decltype(&::libqcow_file_##name)>("libqcow_file_" #name)

struct qcow_library {
    shared_object library{"libqcow.so.1"};
    LIBRARY_FUNCTION(initialize);
    LIBRARY_FUNCTION(free);
    LIBRARY_FUNCTION(open_file_io_handle);
    LIBRARY_FUNCTION(read_buffer_at_offset);
    LIBRARY_FUNCTION(get_media_size);
};

#undef LIBRARY_FUNCTION

qcow_library &qcow()
{
    static qcow_library loaded;
    return loaded;
}

struct open_disk {
    std::shared_ptr<const file_source> bytes;
    std::shared_ptr<void> handle;
    libqcow_file_t *file = nullptr;

    open_disk() = default;
    ~open_disk()
    {
        if (file != nullptr) qcow().free(&file, nullptr);
    }
    open_disk(const open_disk &) = delete;
    open_disk &operator=(const open_disk &) = delete;

    bool open();
    bool read(u64 offset, std::span<u8> out) const;
};

bool open_disk::open()
{
    handle = make_bfio_handle(qcow().library, bytes);
    constexpr int read_only = 1;
    return handle && qcow().initialize(&file, nullptr) == 1 &&
           qcow().open_file_io_handle(file,
                                      static_cast<libbfio_handle_t *>(handle.get()),
                                      read_only, nullptr) == 1;
}

bool open_disk::read(u64 offset, std::span<u8> out) const
{
    const ssize_t count = qcow().read_buffer_at_offset(
        file, out.data(), out.size(), static_cast<off64_t>(offset), nullptr);
    return count >= 0 && static_cast<std::size_t>(count) == out.size();
}

opened_medium open_with_library(const std::string &path,
                                std::shared_ptr<const file_source> file)
{
    if (!qcow().library.is_complete())
        return unopened(package_problem("qcow2", "libqcow1"));
    auto disk = std::make_shared<open_disk>();
    disk->bytes = file;
    size64_t size = 0;
    if (!disk->open() || qcow().get_media_size(disk->file, &size, nullptr) != 1)
        return unopened("this virtual disk is damaged or cut off; try to repair a copy "
                        "with qemu-img check");
    opened_medium medium;
    medium.files = {path};
    const auto faults = std::make_shared<fault_list>();
    medium.source = std::make_shared<block_source>(
        block_source::form{
            size, most_stored_bytes(file->stored_size(), size), block_bytes, {file}},
        [disk](u64 offset, std::span<u8> out) { return disk->read(offset, out); },
        faults);
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

} // namespace

#else

namespace {

opened_medium open_with_library(const std::string &path,
                                const std::shared_ptr<const file_source> &file)
{
    return open_with_qemu(path, read_facts(*file).version == 1 ? "qcow" : "qcow2");
}

} // namespace

#endif

opened_medium open_qcow(const std::string &path)
{
    const auto file = std::make_shared<const file_source>(path);
    if (file->failure() != open_failure::none)
        return unopened(open_failure_text(file->failure()));
    const qcow_facts facts = read_facts(*file);
    const std::string refusal = refusal_of(facts);
    if (!refusal.empty()) return unopened(refusal);
    if (!facts.backing_name.empty()) return open_over_backing(path);
    // The library knows no other features.
    if ((facts.features & ~qcow_header::is_dirty) != 0)
        return open_with_qemu(path, "qcow2");
    return open_with_library(path, file);
}

} // namespace hv

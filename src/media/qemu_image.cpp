#include "media/qemu_image.h"

#include "disk/hv_file_source.h"
#include "media/block_source.h"
#include "media/container_openers.h"
#include "media/served_program.h"
#include "media/shared_object.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

#ifdef VESKIT_WITH_NBD
#include <libnbd.h>
#endif

namespace hv {

opened_medium open_with_qemu(const std::string &path, const std::string &driver)
{
    return open_layers_with_qemu({{path, driver}});
}

#ifdef VESKIT_WITH_NBD

namespace {

constexpr u32 block_bytes = u32{64} << 10;
constexpr std::size_t max_request = std::size_t{32} << 20; // that any server takes

// A name that is declared can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::nbd_##name) name =                                                     \
        loaded.function<decltype(&::nbd_##name)>("nbd_" #name)
// NOLINTEND(bugprone-macro-parentheses)

struct nbd_library {
    shared_object loaded{"libnbd.so.0"};
    LIBRARY_FUNCTION(create);
    LIBRARY_FUNCTION(close);
    LIBRARY_FUNCTION(add_meta_context);
    LIBRARY_FUNCTION(connect_socket);
    LIBRARY_FUNCTION(get_size);
    LIBRARY_FUNCTION(pread);
    LIBRARY_FUNCTION(block_status);
};

#undef LIBRARY_FUNCTION

const nbd_library &nbd()
{
    static const nbd_library loaded;
    return loaded;
}

// The options of QEMU that open these files and no other: commas in names are doubled,
// and a name is never taken for an address.
std::string options_of(const std::vector<qemu_layer> &layers)
{
    std::string options;
    std::string prefix;
    for (const qemu_layer &layer : layers) {
        std::string path;
        for (const char c : layer.path) path += c == ',' ? ",," : std::string(1, c);
        if (!options.empty()) options += ",";
        options += prefix + "driver=" + layer.driver + "," + prefix +
                   "file.driver=file," + prefix + "file.filename=" + path;
        prefix += "backing.";
    }
    return options;
}

// A stretch of the disk, and whether it holds anything but zeros.
struct extent {
    u64 begin = 0;
    u64 end = 0;
    bool is_zero = false;
};

struct server {
    served_program process; // ends after its client
    nbd_handle *handle = nullptr;
    extent last;
    bool has_extents = true;

    server() : handle(nbd().create()) {}
    ~server() { nbd().close(handle); }
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    bool start(const std::string &program, const std::vector<qemu_layer> &layers);
    bool read(u64 offset, std::span<u8> out);
    bool find_extent(u64 offset, u64 size);
    u64 next_data(u64 offset, u64 size);
};

// The server ends when its only client is gone, however that came about.
bool server::start(const std::string &program, const std::vector<qemu_layer> &layers)
{
    std::vector<std::string> files;
    files.reserve(layers.size());
    for (const qemu_layer &layer : layers) files.push_back(layer.path);
    const int socket = process.start(
        {program, "--read-only", "--image-opts", options_of(layers)}, files);
    if (handle != nullptr && socket >= 0 &&
        nbd().add_meta_context(handle, LIBNBD_CONTEXT_BASE_ALLOCATION) == 0)
        return nbd().connect_socket(handle, socket) == 0;
    if (socket >= 0) close(socket);
    return false;
}

bool server::read(u64 offset, std::span<u8> out)
{
    while (!out.empty()) {
        const std::size_t count = std::min(out.size(), max_request);
        if (nbd().pread(handle, out.data(), count, offset, 0) != 0) return false;
        offset += count;
        out = out.subspan(count);
    }
    return true;
}

int keep_extent(void *data, const char *, u64 offset, u32 *entries, std::size_t count,
                int *)
{
    auto &kept = *static_cast<extent *>(data);
    if (count >= 2 && kept.end == 0)
        kept = {offset, offset + entries[0], (entries[1] & LIBNBD_STATE_ZERO) != 0};
    return 0;
}

bool server::find_extent(u64 offset, u64 size)
{
    constexpr u64 max_query = u64{1} << 30;
    last = {};
    const nbd_extent_callback callback{keep_extent, &last, nullptr};
    has_extents = has_extents &&
                  nbd().block_status(handle, std::min(max_query, size - offset), offset,
                                     callback, LIBNBD_CMD_FLAG_REQ_ONE) == 0 &&
                  last.end > offset;
    return has_extents;
}

u64 server::next_data(u64 offset, u64 size)
{
    while (offset < size) {
        const bool is_known = last.begin <= offset && offset < last.end;
        if (!is_known && !find_extent(offset, size)) return offset;
        if (!last.is_zero) return offset;
        offset = last.end;
    }
    return size;
}

// Where the program is; empty if it isn't on this machine.
std::string path_of_program(const std::string &name)
{
    const char *path = std::getenv("PATH");
    std::string_view rest = path == nullptr ? "/usr/bin:/bin" : path;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        std::string file = std::string(rest.substr(0, end)) + "/" + name;
        if (::access(file.c_str(), X_OK) == 0) return file;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

} // namespace

opened_medium open_layers_with_qemu(const std::vector<qemu_layer> &layers)
{
    if (!nbd().loaded.is_complete())
        return unopened(package_problem("this container", "libnbd0"));
    const std::string program = path_of_program("qemu-nbd");
    if (program.empty())
        return unopened(package_problem("this container", "qemu-utils"));
    const auto image = std::make_shared<server>();
    if (!image->start(program, layers))
        return unopened("qemu-nbd can't open it: it may be damaged, encrypted, or a "
                        "change to another disk; qemu-img info may say more");
    const i64 size = nbd().get_size(image->handle);
    if (size < 0) return unopened("qemu-nbd doesn't say how large it is");
    opened_medium medium;
    block_source::form form{.size = static_cast<u64>(size), .block_bytes = block_bytes};
    for (const qemu_layer &layer : layers) {
        medium.files.push_back(layer.path);
        form.stored_size += file_source(layer.path).stored_size();
    }
    form.stored_size = most_stored_bytes(form.stored_size, form.size);
    const auto faults = std::make_shared<fault_list>();
    const auto source = std::make_shared<block_source>(
        form,
        [image](u64 offset, std::span<u8> out) { return image->read(offset, out); },
        faults);
    source->set_next_data(
        [image, end = form.size](u64 offset) { return image->next_data(offset, end); });
    medium.source = source;
    medium.is_served = true;
    medium.details = {"read by qemu-nbd"};
    if (layers.size() > 1)
        medium.details.push_back("a change to " + std::to_string(layers.size() - 1) +
                                 " backing files");
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

#else

opened_medium open_layers_with_qemu(const std::vector<qemu_layer> &)
{
    return unopened(package_problem("this container", "libnbd-dev") +
                    ", with this program built again");
}

#endif

} // namespace hv

#include "media/bfio_handle.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sys/types.h>

namespace hv {

namespace {

// What the libraries pass back to each function: the source, and where they are in it.
struct reader {
    byte_source_ptr source;
    u64 position = 0;
};

reader &reader_of(void *handle)
{
    return *static_cast<reader *>(handle);
}

// The functions of a handle. Errors have a type of their own, which nothing here makes.
int free_reader(void **handle, void **)
{
    delete static_cast<reader *>(*handle);
    *handle = nullptr;
    return 1;
}

int clone_reader(void **copy, void *handle, void **)
{
    *copy = new reader(reader_of(handle));
    return 1;
}

int open_reader(void *, int, void **)
{
    return 1;
}

int close_reader(void *, void **)
{
    return 0;
}

// Bytes that the medium doesn't deliver are zeros, and it counts them.
ssize_t read_some(void *handle, std::uint8_t *buffer, std::size_t size, void **)
{
    reader &from = reader_of(handle);
    const std::size_t count = from.source->read(from.position, {buffer, size});
    from.position += count;
    return static_cast<ssize_t>(count);
}

ssize_t write_nothing(void *, const std::uint8_t *, std::size_t, void **)
{
    return -1;
}

std::int64_t seek(void *handle, std::int64_t offset, int whence, void **)
{
    reader &from = reader_of(handle);
    u64 base = 0;
    if (whence == SEEK_CUR) base = from.position;
    if (whence == SEEK_END) base = from.source->size();
    std::int64_t position = 0;
    if (__builtin_add_overflow(base, offset, &position) || position < 0) return -1;
    from.position = static_cast<u64>(position);
    return position;
}

int is_there(void *, void **)
{
    return 1;
}

int get_size(void *handle, std::uint64_t *size, void **)
{
    *size = reader_of(handle).source->size();
    return 1;
}

using initialize_function = int (*)(void **, void *, decltype(&free_reader),
                                    decltype(&clone_reader), decltype(&open_reader),
                                    decltype(&close_reader), decltype(&read_some),
                                    decltype(&write_nothing), decltype(&seek),
                                    decltype(&is_there), decltype(&is_there),
                                    decltype(&get_size), std::uint8_t flags, void **);
using free_function = int (*)(void **, void **);

} // namespace

std::shared_ptr<void> make_bfio_handle(shared_object &library, byte_source_ptr source)
{
    const auto initialize =
        library.function<initialize_function>("libbfio_handle_initialize");
    const auto release = library.function<free_function>("libbfio_handle_free");
    if (initialize == nullptr || release == nullptr) return nullptr;
    constexpr std::uint8_t managed_by_library = 0x01; // it frees the reader as well
    auto from = std::make_unique<reader>(reader{std::move(source), 0});
    void *handle = nullptr;
    if (initialize(&handle, from.get(), free_reader, clone_reader, open_reader,
                   close_reader, read_some, write_nothing, seek, is_there, is_there,
                   get_size, managed_by_library, nullptr) != 1)
        return nullptr;
    static_cast<void>(from.release()); // the handle's now
    return {handle, [release](void *made) { release(&made, nullptr); }};
}

} // namespace hv

#include "media/bitlocker.h"

#include "media/bfio_handle.h"
#include "media/block_source.h"
#include "media/container_openers.h"

#ifdef VESKIT_WITH_BDE
#define HAVE_LIBBFIO // the header declares the functions that take a handle
#include <libbde.h>
#include <libbfio.h>
#undef HAVE_LIBBFIO
#endif

namespace hv {

#ifdef VESKIT_WITH_BDE

namespace {

constexpr u32 block_bytes = u32{64} << 10;

// A name that is declared can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::libbde_volume_##name) name =                                           \
        loaded.function<decltype(&::libbde_volume_##name)>("libbde_volume_" #name)
// NOLINTEND(bugprone-macro-parentheses)

struct bde_library {
    shared_object loaded{"libbde.so.1"};
    LIBRARY_FUNCTION(initialize);
    LIBRARY_FUNCTION(free);
    LIBRARY_FUNCTION(set_utf8_recovery_password);
    LIBRARY_FUNCTION(set_utf8_password);
    LIBRARY_FUNCTION(open_file_io_handle);
    LIBRARY_FUNCTION(is_locked);
    LIBRARY_FUNCTION(get_size);
    LIBRARY_FUNCTION(read_buffer_at_offset);
};

#undef LIBRARY_FUNCTION

bde_library &bde()
{
    static bde_library loaded;
    return loaded;
}

struct open_volume {
    std::shared_ptr<void> handle;
    libbde_volume_t *volume = nullptr;

    open_volume() = default;
    ~open_volume()
    {
        if (volume != nullptr) bde().free(&volume, nullptr);
    }
    open_volume(const open_volume &) = delete;
    open_volume &operator=(const open_volume &) = delete;

    // Why the volume isn't open; empty if it is.
    std::string open(byte_source_ptr bytes, const volume_keys &keys);
    bool read(u64 offset, std::span<u8> out) const;
};

std::vector<u8> bytes_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

std::string open_volume::open(byte_source_ptr bytes, const volume_keys &keys)
{
    handle = make_bfio_handle(bde().loaded, std::move(bytes));
    if (!handle || bde().initialize(&volume, nullptr) != 1)
        return "not enough memory to unlock it";
    if (!keys.recovery_key.empty() &&
        bde().set_utf8_recovery_password(volume, bytes_of(keys.recovery_key).data(),
                                         keys.recovery_key.size(), nullptr) != 1)
        return "what --recovery-key says is no recovery key: these are eight groups of "
               "six digits, each a multiple of 11";
    if (!keys.password.empty() &&
        bde().set_utf8_password(volume, bytes_of(keys.password).data(),
                                keys.password.size(), nullptr) != 1)
        return "what --password-file holds can't be a password";
    constexpr int read_only = 1;
    const int opened = bde().open_file_io_handle(
        volume, static_cast<libbfio_handle_t *>(handle.get()), read_only, nullptr);
    if (opened < 0)
        return "the key is of another kind than it needs, or its metadata is damaged";
    if (opened == 0 || bde().is_locked(volume, nullptr) != 0)
        return "the key doesn't unlock it; check whether it belongs to this volume";
    return {};
}

bool open_volume::read(u64 offset, std::span<u8> out) const
{
    const ssize_t count = bde().read_buffer_at_offset(
        volume, out.data(), out.size(), static_cast<off64_t>(offset), nullptr);
    return count >= 0 && static_cast<std::size_t>(count) == out.size();
}

} // namespace

unlocked_volume unlock_bitlocker(const byte_source_ptr &volume, const volume_keys &keys)
{
    if (!bde().loaded.is_complete())
        return {nullptr, package_problem("BitLocker volumes", "libbde1")};
    const auto opened = std::make_shared<open_volume>();
    const std::string problem = opened->open(volume, keys);
    if (!problem.empty()) return {nullptr, problem};
    size64_t size = 0;
    if (bde().get_size(opened->volume, &size, nullptr) != 1 || size > volume->size())
        return {nullptr, "its metadata states an impossible size"};
    return {std::make_shared<block_source>(
                block_source::form{.size = size,
                                   .stored_size = volume->stored_size(),
                                   .block_bytes = block_bytes,
                                   .encrypted = volume},
                [opened](u64 offset, std::span<u8> out) {
                    return opened->read(offset, out);
                },
                std::make_shared<fault_list>()),
            {}};
}

#else

unlocked_volume unlock_bitlocker(const byte_source_ptr &, const volume_keys &)
{
    return {nullptr, package_problem("BitLocker volumes", "libbde-dev") +
                         ", with this program built again"};
}

#endif

} // namespace hv

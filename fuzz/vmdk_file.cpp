// A chain of virtual disks. The first two bytes are the length of the base; its child
// comes after it.

#include "vmdk/hv_vmdk_disk.h"

#include <algorithm>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// A file in memory, with a path.
struct memory_file {
    explicit memory_file(hv::byte_view bytes)
    {
        if (::write(descriptor, bytes.bytes().data(), bytes.size()) < 0) std::abort();
    }
    ~memory_file() { ::close(descriptor); }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

    int descriptor = memfd_create("file", MFD_CLOEXEC);
};

// What is read must not depend on where reads begin and end.
void check_reads(const hv::vmdk_disk &disk)
{
    constexpr hv::u64 step = 333;
    std::vector<hv::u8> whole(step * 40);
    std::vector<hv::u8> piece(step);
    if (!disk.read(whole.data(), 0, whole.size())) std::abort();
    for (hv::u64 at = 0; at < whole.size(); at += step)
        if (!disk.read(piece.data(), at, step) ||
            !std::equal(piece.begin(), piece.end(),
                        whole.begin() + static_cast<std::ptrdiff_t>(at)))
            std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view input{data, size};
    const hv::byte_view base_bytes = input.clip(2, input.read_padded<hv::u16>(0));
    const memory_file base(base_bytes);
    const memory_file child(input.from(2 + base_bytes.size()));
    hv::vmdk_disk alone;
    hv::vmdk_disk chain;
    if (alone.add_files({base.path()}) && alone.link() && alone.is_linked())
        check_reads(alone);
    if (chain.add_files({child.path(), base.path()}) && chain.link() &&
        chain.is_linked())
        check_reads(chain);
    return 0;
}

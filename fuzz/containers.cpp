// Files of virtual disks, as the program's own readers take them. The first byte
// chooses the kind. make_container_seeds makes the corpus.

#include "disk/hv_source_bytes.h"
#include "fuzz/input_source.h"
#include "media/disk_tables.h"
#include "media/layered_source.h"
#include "media/open_medium.h"
#include "media/qcow_map.h"
#include "media/vhd_map.h"
#include "media/vmdk_extent.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <unistd.h>

namespace {

std::size_t largest_allocation = 0;

} // namespace

void *operator new(std::size_t bytes, const std::nothrow_t &) noexcept
{
    largest_allocation = std::max(largest_allocation, bytes);
    return std::malloc(bytes);
}
void *operator new(std::size_t bytes)
{
    if (void *memory = operator new(bytes, std::nothrow)) return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept
{
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

using namespace hv;
using fuzz::input_source;

void require(bool good)
{
    if (!good) std::abort();
}

// What is read depends neither on where reads begin and end, nor on what was read
// before; and zeros that are passed over are zeros.
void check_reads(const byte_source &disk, u64 begin)
{
    constexpr u64 step = 777;
    const std::vector<u8> whole = read_bytes(disk, begin, step * 24);
    require(whole.size() == std::min(step * 24, disk.size() - begin));
    for (u64 at = 0; at < whole.size(); at += step) {
        const byte_view expected = byte_view{whole}.clip(at, step);
        require(
            std::ranges::equal(read_bytes(disk, begin + at, step), expected.bytes()));
        const auto lent = disk.view(begin + at, expected.size());
        require(lent.empty() || std::ranges::equal(lent, expected.bytes()));
    }
    const u64 next = disk.next_data(begin);
    require(next >= begin && next <= disk.size());
    const byte_view hole = byte_view{whole}.clip(0, next - begin);
    require(std::ranges::all_of(hole.bytes(), [](u8 byte) { return byte == 0; }));
    u64 missing = 0;
    for (const auto &part : disk.unreadable_in(0, disk.size())) missing += part.length;
    require(missing == disk.unreadable());
}

void check_disk(const byte_source &disk)
{
    if (disk.size() == 0) return;
    check_reads(disk, 0);
    check_reads(disk, disk.size() / 2);
    check_reads(disk, disk.size() - std::min<u64>(disk.size(), 5000));
}

// The file alone, and over a parent that holds what it doesn't.
void check_map(const std::shared_ptr<const block_map> &map, const byte_source_ptr &file)
{
    for (const bool is_child : {false, true}) {
        layered_source disk(std::make_shared<fault_list>());
        disk.add_file(file);
        if (!disk.add_layer({{.length = map->size(), .blocks = map}})) return;
        if (is_child) disk.add_layer({{.length = file->size(), .flat = file}});
        check_disk(disk);
    }
}

// A descriptor, with the files it may name beside it.
void check_descriptor(byte_view text)
{
    static const std::string folder = [] {
        std::string name = std::filesystem::temp_directory_path() / "fuzz_XXXXXX";
        require(::mkdtemp(name.data()) != nullptr);
        std::ofstream(name + "/flat") << std::string(4096, 'f');
        return name;
    }();
    static const struct remove_at_end {
        ~remove_at_end() { std::filesystem::remove_all(folder); }
    } cleanup;
    const std::string path = folder + "/disk.vmdk";
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(std::string(text.bytes().begin(), text.bytes().end()).data(),
               static_cast<std::streamsize>(text.size()));
    if (read_container_kind(input_source(text)) != container_kind::vmdk_descriptor)
        return;
    const opened_medium medium = open_medium(path);
    require(medium.source == nullptr || medium.problem.empty());
    if (medium.source) check_disk(*medium.source);
}

void check_file(u8 kind, const byte_source_ptr &file, byte_view bytes)
{
    std::string problem;
    switch (kind) {
    case 'd': check_descriptor(bytes); break;
    case 'g':
        if (const auto grains = vmdk_extent::open(file, problem))
            check_map(grains, file);
        else
            require(!problem.empty());
        break;
    case 'h':
        if (const auto blocks = vhd_map::open(file)) check_map(blocks, file);
        break;
    case 'q':
        read_qcow_facts(*file);
        if (const auto clusters = qcow_map::open(file)) {
            check_map(clusters, file);
            clusters->expected_end();
        }
        break;
    case 't':
        vdi_end(*file);
        parallels_end(*file);
        break;
    default: break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size)
{
    if (size == 0) return 0;
    const byte_view bytes = byte_view{data, size}.from(1);
    largest_allocation = 0;
    check_file(data[0], std::make_shared<input_source>(bytes), bytes);
    // Nothing is stored better than 1 to 1032; paths and buffers have fixed sizes.
    require(largest_allocation <= (std::size_t{64} << 10) + 1100 * size);
    return 0;
}

// The walks over partition tables, in memory and on a disk, and the names of the
// volumes that they find.

#include "disk/hv_partitions.h"
#include "disk/hv_raw_disk_io.h"

#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void require(bool good)
{
    if (!good) std::abort();
}

// A medium in memory that can be opened by its path.
std::string make_medium(const hv::u8 *data, std::size_t size)
{
    static const int descriptor = memfd_create("medium", 0);
    require(descriptor >= 0 && ftruncate(descriptor, 0) == 0);
    require(pwrite(descriptor, data, size, 0) == static_cast<ssize_t>(size));
    return "/proc/self/fd/" + std::to_string(descriptor);
}

void check_names(const hv::partition_list &list)
{
    for (const hv::partition_entry &entry : list) {
        require(!hv::partition_type_name(entry.type).empty() &&
                entry.m_sector_size != 0);
        hv::gpt_type_name(hv::byte_view{entry.type_guid});
        require(entry.byte_offset() <= entry.byte_end());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    // A table sector has four records, an entry of a GPT 128 bytes.
    const std::size_t max_entries = 4 * (size / 512 + 2);
    const hv::RAW_DISK_IO disk(make_medium(data, size));
    for (const hv::table_scan scan : {hv::table_scan::off, hv::table_scan::on}) {
        hv::partition_list list;
        require(hv::find_partitions_in_buffer(list, hv::byte_view{data, size}, scan) ==
                !list.empty());
        require(list.size() <= max_entries);
        check_names(list);

        const bool good = hv::find_partitions(list, disk, scan, hv::table_gaps::off);
        require(list.size() <= max_entries && (!good || !list.empty()));
        check_names(list);
        hv::partition_list with_gaps;
        const bool good_with_gaps =
            hv::find_partitions(with_gaps, disk, scan, hv::table_gaps::on);
        // With gaps, the areas of the tables are entries, so the walk succeeds more
        // often.
        require(good_with_gaps || !good);
        require(with_gaps.size() <= 2 * list.size() + 7);
        check_names(with_gaps);
    }
    return 0;
}

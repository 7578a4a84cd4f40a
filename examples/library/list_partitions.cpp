// Lists the partitions of a disk or of an image. Usage: list_partitions DISK

#include "arguments.h"

#include <veskit/disk/hv_partitions.h>
#include <veskit/disk/hv_raw_disk_io.h>

#include <iostream>

int main(int argc, char **argv)
{
    if (argc != 2) return show_usage("name one disk or image", "list_partitions DISK");
    const hv::RAW_DISK_IO disk(argv[1]);
    if (disk.failure() != hv::open_failure::none)
        return fail(argv[1], hv::open_failure_text(disk.failure()));
    hv::partition_list partitions;
    // The scan looks for a lost table; the gaps are space that no partition has.
    if (!hv::find_partitions(partitions, disk, hv::table_scan::on, hv::table_gaps::on))
        return fail(argv[1], "no partitions");
    for (const hv::partition_entry &entry : partitions) {
        std::cout << entry.start_sector << " +" << entry.sectors << ": "
                  << hv::partition_type_name(entry.type) << ", file system \""
                  << entry.file_system << "\", name \"" << entry.name << '"';
        if (entry.is_gpt)
            std::cout << ", " << hv::gpt_type_name(hv::byte_view{entry.type_guid});
        std::cout << '\n';
    }
    return 0;
}

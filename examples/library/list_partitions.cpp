// Lists the partitions of a disk or of an image. Usage: list_partitions DISK

#include "disk/hv_partitions.h"
#include "disk/hv_raw_disk_io.h"

#include <iostream>

int main(int argc, char **argv)
{
    if (argc != 2) return 2;
    const hv::RAW_DISK_IO disk(argv[1]);
    hv::partition_list partitions;
    // With the scan on, a lost table is looked for; with gaps on, nothing stays
    // unnamed.
    if (!hv::find_partitions(partitions, disk, hv::table_scan::on,
                             hv::table_gaps::on)) {
        std::cerr << "no partitions in " << argv[1] << '\n';
        return 1;
    }
    for (const hv::partition_entry &one : partitions) {
        std::cout << one.start_sector << " +" << one.sectors << ": "
                  << hv::partition_type_name(one.type) << ", file system \""
                  << one.file_system << "\", name \"" << one.name << '"';
        if (one.is_gpt)
            std::cout << ", " << hv::gpt_type_name(hv::byte_view{one.type_guid});
        std::cout << '\n';
    }
    return 0;
}

// Writes a volume to standard output as a shadow copy saw it; snapshot 0 is the volume
// as it is now. Usage: read_snapshot IMAGE OFFSET SNAPSHOT

#include "ntfs/ntfs.h"
#include "vss/hv_vss_reader.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

int main(int argc, char **argv)
{
    if (argc != 4) return 2;
    const hv::u64 offset = std::stoull(argv[2], nullptr, 0);
    const hv::u64 snapshot = std::stoull(argv[3]);
    hv::vss_container shadows;
    shadows.report_live_reads = false; // standard output is for the volume
    if (!shadows.init(argv[1], offset, true)) return 1;
    for (const auto &[id, store] : shadows.stores()) hv::dump_store(std::cerr, store);

    const auto volume = hv::open_volume(argv[1], offset);
    // The copy of the boot sector stands behind the sectors that the volume counts.
    const hv::u64 sectors =
        volume->get_boot_sector().get(hv::ntfs_boot::total_sectors) + 1;
    const hv::u64 size = sectors * volume->get_bytes_per_sector();
    std::vector<hv::u8> block;
    for (hv::u64 at = 0; at < size;) {
        hv::u32 length = 0;
        if (!shadows.read_data_raw(block, length, snapshot, at) || length == 0)
            return 1;
        length = static_cast<hv::u32>(std::min<hv::u64>(length, size - at));
        if (std::fwrite(block.data(), 1, length, stdout) != length) return 1;
        at += length;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

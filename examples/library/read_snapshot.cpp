// Writes a volume to standard output as a shadow copy saw it; snapshot 0 is the volume
// as it is now. Usage: read_snapshot IMAGE OFFSET SNAPSHOT

#include "arguments.h"

#include <veskit/ntfs/ntfs.h>
#include <veskit/vss/hv_vss_reader.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <vector>

int main(int argc, char **argv)
{
    const char *usage = "read_snapshot IMAGE OFFSET SNAPSHOT";
    if (argc != 4) return show_usage("name an image, an offset, a snapshot", usage);
    hv::u64 offset = 0;
    hv::u64 snapshot = 0;
    if (!read_number(offset, argv[2]) || !read_number(snapshot, argv[3]))
        return show_usage("the offset and the snapshot have to be numbers", usage);
    const hv::open_failure failure = hv::RAW_DISK_IO(argv[1]).failure();
    if (failure != hv::open_failure::none)
        return fail(argv[1], hv::open_failure_text(failure));
    const auto volume = hv::open_volume(argv[1], offset);
    if (volume == nullptr) return fail(argv[1], "no NTFS volume at this offset");

    hv::vss_container shadows;
    shadows.report_live_reads = false; // standard output is for the volume
    if (!shadows.init(argv[1], offset, hv::vss_load::with_blocks) &&
        shadows.store_count() == 0)
        return fail(argv[1], "no shadow copies");
    if (snapshot > shadows.store_count()) return fail(argv[3], "no such snapshot");
    for (const auto &[id, store] : shadows.stores()) hv::dump_store(std::cerr, store);
    for (hv::u64 number = 1; number <= shadows.store_count(); ++number)
        if (!shadows.is_complete(number))
            std::cerr << "Snapshot " << number << " is incomplete on this volume.\n";
    if (!shadows.is_complete(snapshot)) return fail(argv[3], "incomplete");

    // The copy of the boot sector comes after the sectors that the volume counts.
    const hv::u64 sectors =
        volume->get_boot_sector().get(hv::ntfs_boot::total_sectors) + 1;
    const hv::u64 size = sectors * volume->get_bytes_per_sector();
    std::vector<hv::u8> block;
    for (hv::u64 at = 0; at < size;) {
        hv::u32 length = 0;
        if (!shadows.read_data_raw(block, length, snapshot, at) || length == 0)
            return fail(argv[1], "can't be read to its end");
        length = static_cast<hv::u32>(std::min<hv::u64>(length, size - at));
        if (std::fwrite(block.data(), 1, length, stdout) != length)
            return fail("standard output", "can't be written");
        at += length;
    }
    return std::fflush(stdout) == 0 ? 0 : fail("standard output", "can't be written");
}

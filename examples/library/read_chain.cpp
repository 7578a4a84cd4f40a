// Writes a virtual disk to standard output as one plain disk. Missing parents are found
// by the hints in the files. Usage: read_chain FILE...

#include "arguments.h"

#include <veskit/disk/hv_raw_disk_io.h>
#include <veskit/vmdk/hv_vmdk_disk.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    std::vector<std::string> files(argv + 1, argv + argc);
    if (files.empty())
        return show_usage("name the files of a virtual disk", "read_chain FILE...");
    hv::vmdk_disk chain;
    if (!chain.validate_list(std::cerr, files)) {
        const bool is_one = !chain.failed_path().empty();
        return fail(is_one ? chain.failed_path() : files.front(),
                    hv::open_failure_text(chain.failure()));
    }
    const hv::RAW_DISK_IO disk(files);
    if (disk.failure() != hv::open_failure::none)
        return fail(files.front(), hv::open_failure_text(disk.failure()));
    std::vector<hv::u8> buffer(1 << 20);
    for (hv::u64 at = 0; at < disk.get_size(); at += buffer.size()) {
        hv::u32 length = static_cast<hv::u32>(buffer.size());
        if (!disk.read_checked(buffer.data(), length, at))
            return fail(files.front(), "can't be read to its end");
        if (std::fwrite(buffer.data(), 1, length, stdout) != length)
            return fail("standard output", "can't be written");
    }
    return std::fflush(stdout) == 0 ? 0 : fail("standard output", "can't be written");
}

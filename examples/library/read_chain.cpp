// Writes a virtual disk to standard output as one plain disk. Missing parents are found
// by what the files say of them. Usage: read_chain FILE...

#include "disk/hv_raw_disk_io.h"
#include "vmdk/hv_vmdk_disk.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    std::vector<std::string> files(argv + 1, argv + argc);
    if (files.empty() || !hv::vmdk_disk().validate_list(std::cerr, files)) return 1;
    const hv::RAW_DISK_IO disk(files);
    if (!disk.is_open()) return 1;
    std::vector<hv::u8> buffer(1 << 20);
    for (hv::u64 at = 0; at < disk.get_size(); at += buffer.size()) {
        hv::u32 length = static_cast<hv::u32>(buffer.size());
        if (!disk.read_checked(buffer.data(), length, at)) return 1;
        if (std::fwrite(buffer.data(), 1, length, stdout) != length) return 1;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

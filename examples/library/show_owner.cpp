// Says who owns a file, and what its security descriptor grants to whom.
// Usage: show_owner IMAGE OFFSET PATH, for example show_owner disk.dd 0 '\Users'

#include "arguments.h"

#include <veskit/ntfs/hv_path_lookup.h>
#include <veskit/ntfs/ntfs.h>
#include <veskit/security/hv_security_descriptor.h>
#include <veskit/security/hv_security_map.h>

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    const char *usage = "show_owner IMAGE OFFSET PATH";
    if (argc != 4) return show_usage("name an image, an offset and a path", usage);
    hv::u64 offset = 0;
    if (!read_number(offset, argv[2]))
        return show_usage("the offset isn't a number of bytes", usage);
    const hv::open_failure failure = hv::RAW_DISK_IO(argv[1]).failure();
    if (failure != hv::open_failure::none)
        return fail(argv[1], hv::open_failure_text(failure));
    const auto volume = hv::open_volume(argv[1], offset);
    if (volume == nullptr) return fail(argv[1], "no NTFS volume at this offset");
    hv::u64 entry = 0;
    hv::u64 parent = 0;
    std::string path;
    if (!hv::find_inode_by_path_utf8(entry, parent, path, *volume, argv[3],
                                     hv::link_mode::stop, {}))
        return fail(argv[3], "no such file or folder");

    // Reads $Secure once, however many files are asked for.
    hv::security_map owners(*volume);
    std::string owner;
    std::vector<hv::u8> descriptor;
    if (!owners.owner_of_entry(owner, entry) ||
        !owners.read_entry_descriptor(descriptor, entry))
        return fail(argv[3], "no security descriptor");
    std::cout << "entry " << entry << ": " << owner << '\n';
    hv::report_descriptor(std::cout, hv::byte_view{descriptor});
    return 0;
}

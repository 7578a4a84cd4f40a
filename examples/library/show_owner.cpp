// Says who owns a file, and what its security descriptor grants to whom.
// Usage: show_owner IMAGE OFFSET PATH, for example show_owner disk.dd 0 '\Users'

#include "ntfs/hv_path_lookup.h"
#include "ntfs/ntfs.h"
#include "security/hv_security_descriptor.h"
#include "security/hv_security_map.h"

#include <iostream>
#include <string>

int main(int argc, char **argv)
{
    if (argc != 4) return 2;
    const auto volume = hv::open_volume(argv[1], std::stoull(argv[2], nullptr, 0));
    if (volume == nullptr) return 1;
    hv::u64 entry = 0;
    hv::u64 parent = 0;
    std::string path;
    if (!hv::find_inode_by_path_utf8(entry, parent, path, *volume, argv[3],
                                     hv::link_mode::stop, {}))
        return 1;

    hv::security_map owners(
        *volume); // reads $Secure once, however many files are asked
    std::string owner;
    std::vector<hv::u8> descriptor;
    if (!owners.owner_of_entry(owner, entry) ||
        !owners.read_entry_descriptor(descriptor, entry))
        return 1;
    std::cout << "entry " << entry << ": " << owner << '\n';
    hv::report_descriptor(std::cout, hv::byte_view{descriptor});
    return 0;
}

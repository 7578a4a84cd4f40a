// Finds the NTFS volume on a disk, or says which offset to name, and lists a folder.
// Usage: list_folder DISK FOLDER [OFFSET], for example list_folder disk.dd '\Users'

#include "ntfs/hv_path_lookup.h"
#include "ntfs/hv_volume_targets.h"

#include <iostream>
#include <set>
#include <sstream>
#include <string>

int main(int argc, char **argv)
{
    if (argc < 3) return 2;
    const bool offset_given = argc > 3;
    hv::u64 offset = offset_given ? std::stoull(argv[3], nullptr, 0) : 0;

    std::ostringstream messages;
    bool found = false;
    const bool passed = hv::check_image_target(messages, argv[1], offset, found,
                                               hv::size_check::enforce);
    hv::volume_target target;
    switch (hv::choose_volume_offset(passed, found, offset, offset_given)) {
    case hv::volume_choice::at_offset:
        target.image_path = argv[1];
        target.volume_offset = offset;
        break;
    case hv::volume_choice::whole_image: target.volume_path = argv[1]; break;
    case hv::volume_choice::stop: std::cerr << messages.str(); return 1;
    }
    if (!hv::open_target(target)) {
        std::cerr << "no NTFS volume: " << target.label << '\n';
        return 1;
    }

    hv::CNtfs &volume = *target.volume;
    hv::u64 entry = 0;
    hv::u64 parent = 0;
    std::string path;
    if (!hv::find_inode_by_path_utf8(entry, parent, path, volume, argv[2],
                                     hv::link_mode::stop, {})) {
        std::cerr << "no folder " << argv[2] << '\n';
        return 1;
    }
    std::set<hv::u64> children;
    hv::read_directory_children(children, volume, entry, hv::name_walk::tolerant);
    std::cout << target.entry_count << " entries; entry " << entry << " holds";
    for (const hv::u64 child : children) std::cout << ' ' << child;
    std::cout << '\n';
    return 0;
}

// Finds the NTFS volume on a disk, or says which offset to name, and lists a folder.
// Usage: list_folder DISK FOLDER [OFFSET], for example list_folder disk.dd '\Users'

#include "arguments.h"

#include <veskit/ntfs/hv_path_lookup.h>
#include <veskit/ntfs/hv_volume_targets.h>

#include <iostream>
#include <set>
#include <sstream>
#include <string>

int main(int argc, char **argv)
{
    const char *usage = "list_folder DISK FOLDER [OFFSET]";
    if (argc != 3 && argc != 4) return show_usage("name a disk and a folder", usage);
    hv::check_outcome outcome;
    if (argc == 4 && !read_number(outcome.offset, argv[3]))
        return show_usage("the offset isn't a number of bytes", usage);
    const hv::open_failure failure = hv::RAW_DISK_IO(argv[1]).failure();
    if (failure != hv::open_failure::none)
        return fail(argv[1], hv::open_failure_text(failure));

    std::ostringstream messages;
    outcome.passed = hv::check_image_target(messages, argv[1], outcome.offset,
                                            outcome.found, hv::size_check::enforce);
    hv::volume_target target;
    const auto option =
        argc == 4 ? hv::offset_option::given : hv::offset_option::absent;
    switch (hv::choose_volume_offset(outcome, option)) {
    case hv::volume_choice::at_offset:
        target.image_path = argv[1];
        target.volume_offset = outcome.offset;
        break;
    case hv::volume_choice::whole_image: target.volume_path = argv[1]; break;
    case hv::volume_choice::stop: std::cerr << messages.str(); return 1;
    }
    if (!hv::open_target(target)) return fail(target.label, "no NTFS volume");

    hv::CNtfs &volume = *target.volume;
    hv::u64 entry = 0;
    hv::u64 parent = 0;
    std::string path;
    if (!hv::find_inode_by_path_utf8(entry, parent, path, volume, argv[2],
                                     hv::link_mode::stop, {}))
        return fail(argv[2], "no such folder");
    std::set<hv::u64> children;
    hv::read_directory_children(children, volume, entry, hv::name_walk::tolerant);
    std::cout << target.entry_count << " entries; entry " << entry << " holds";
    for (const hv::u64 child : children) std::cout << ' ' << child;
    std::cout << '\n';
    return 0;
}

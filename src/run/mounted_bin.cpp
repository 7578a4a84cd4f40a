#include "run/mounted_bin.h"

#include "base/hv_portable_dir.h"
#include "trash/bin_names.h"

namespace hv {

mounted_bin find_mounted_bin(const std::string &partition_root)
{
    for (const char *name : bin_folder_names) {
        const std::string path = partition_root + name;
        if (hvportdir::path_exists(path)) return {path, is_old_bin_name(name)};
    }
    return {};
}

} // namespace hv

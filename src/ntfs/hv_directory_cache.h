#pragma once

#include "base/hv_types.h"

#include <map>
#include <set>
#include <string>

namespace hv {

/// What is known of a directory that a path has led through.
struct directory_cache_entry {
    std::set<u64> children;           ///< entry numbers
    std::map<std::string, u64> names; ///< lower-case UTF-8 name to entry number
};
/// By the entry number of the directory.
using directory_cache = std::map<u64, directory_cache_entry>;

} // namespace hv

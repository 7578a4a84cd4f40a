#pragma once

#include "base/hv_log.h"
#include "records/trash_inodes.h"

#include <string_view>
#include <vector>

namespace hv {

/// Makes the record for one path and files it: a metadata file is read, a data file is
/// indexed under its name, and the first directory inside a bin becomes its root.
/// Returns the store index, or `no_index` for a path that belongs to no bin.
u64 register_file(_trash_inodes &collection, std::string_view utf8_path,
                  bool is_directory);

/// The form in which walks and lists hand over a path. Always true: it stops no walk.
bool add_file_path(std::wstring_view path, bool is_directory, _trash_inodes *collection,
                   log_handle log);

/// Reads as much of a metadata file as the parsers can make use of. Empty if the file
/// can't be read.
std::vector<u8> read_metadata_file(std::string_view path);

} // namespace hv

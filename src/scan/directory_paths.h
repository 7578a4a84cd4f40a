#pragma once

#include "records/inode_store.h"

namespace hv {

/// Bytes that the paths of a source's directories may take together: as many as the
/// source has (`source_size`), and enough for any small one. Real paths are far from
/// using this up; hostile records may lose theirs.
u64 directory_text_budget(u64 source_size);

/// Gives each directory of the store that has no path yet one: the names from the root
/// down, each with a "\" after it. The path of a directory whose parents aren't known
/// begins with "[unk_inode_0x...]". `max_text` bounds the bytes of all paths together.
void build_directory_paths(_inode_collection &collection, u64 max_text);

} // namespace hv

#pragma once

#include "evidence/file_facts.h"

#include <optional>
#include <string>

namespace hv {

/// A file or folder that stands for data elsewhere, or in another form.
struct reparse_fact {
    u32 tag = 0;
    bool is_compressed = false; ///< its data is compressed in another stream
    std::u16string link_target; ///< of a link to another place; else empty
};

/// Reads the $REPARSE_POINT of a file; nothing if it has none.
std::optional<reparse_fact> read_reparse(const file_facts &facts);

} // namespace hv

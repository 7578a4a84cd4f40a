#pragma once

#include "partitions/hv_partition_buffer.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace hv {

/// Bytes at a fixed place that tell what something is.
template <class Kind> struct signature {
    u64 offset = 0;
    std::string_view text;
    Kind kind{};
};

/// The kind of the first signature of a table that `bytes` hold, else `otherwise`.
template <class Kind, std::size_t count>
Kind find_signature(const std::array<signature<Kind>, count> &table, byte_view bytes,
                    Kind otherwise)
{
    const auto found = std::ranges::find_if(table, [&](const signature<Kind> &row) {
        return holds_text(bytes, row.offset, row.text);
    });
    return found == table.end() ? otherwise : found->kind;
}

} // namespace hv

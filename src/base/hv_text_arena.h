#pragma once

#include "base/hv_types.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <vector>

namespace hv {

/// A text in a `text_arena`, in 8 bytes.
struct text_ref {
    u64 offset : 40 = 0;
    u64 length : 24 = 0;
};

/// Keeps many short texts until the end of a run, without an allocation for each. Texts
/// never move.
class text_arena {
public:
    /// In bytes. Longer texts are cut to it; no path or name is nearly as long.
    static constexpr std::size_t block_size = std::size_t{1} << 20;

    /// What the fields of a reference can hold.
    static constexpr u64 offset_mask = (u64{1} << 40) - 1;
    static constexpr u64 length_mask = (u64{1} << 24) - 1;

    /// Keeps the text that these parts make up.
    text_ref add(std::initializer_list<std::string_view> parts)
    {
        std::size_t size = 0;
        for (const std::string_view part : parts) size += part.size();
        size = std::min(size, block_size);
        text_ref ref;
        if (size == 0) return ref;
        if (m_blocks.empty() || size > block_size - m_used) {
            m_blocks.push_back(std::make_unique_for_overwrite<char[]>(block_size));
            m_used = 0;
        }
        const u64 offset = (m_blocks.size() - 1) * block_size + m_used;
        ref.offset = offset & offset_mask;
        ref.length = size & length_mask;
        const std::size_t end = m_used + size;
        for (const std::string_view part : parts)
            m_used += part.copy(m_blocks.back().get() + m_used, end - m_used);
        return ref;
    }

    std::string_view get(text_ref ref) const
    {
        if (ref.length == 0) return {};
        return {m_blocks[ref.offset / block_size].get() + ref.offset % block_size,
                ref.length};
    }

private:
    std::vector<std::unique_ptr<char[]>> m_blocks;
    std::size_t m_used = 0; ///< bytes taken in the last block
};

} // namespace hv

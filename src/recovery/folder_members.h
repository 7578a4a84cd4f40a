#pragma once

#include "recovery/item_records.h"

#include <functional>
#include <string>
#include <vector>

/// What is in a folder, also in one that is gone: each record names the folder of its
/// file, whatever became of the folder's index.
namespace hv {

/// All files of a view by the folder that they name.
class folder_members {
public:
    /// Reads the whole $MFT once.
    explicit folder_members(volume_view_ptr view);

    /// A file or folder below another one.
    struct member {
        std::vector<std::u16string> path; ///< from the folder; the last is its name
        item_record record;
    };
    /// Visits all below a folder, each folder before what is in it, and of two of one
    /// name first the one that is in use. Ends early if `visit` returns false. A folder
    /// that damage put into itself is entered once.
    void for_each_below(const entry_id &folder,
                        const std::function<bool(const member &)> &visit) const;
    const volume_view *view() const { return m_view.get(); }

private:
    struct link {
        u64 folder = 0; // reference
        u64 entry = 0;
        auto operator<=>(const link &) const = default; // NOLINT(modernize-use-nullptr)
    };
    struct child {
        std::u16string name;
        u64 entry = 0;
        bool in_use = false;
    };
    std::vector<child> children_of(const entry_id &folder) const;
    item_record record_of(u64 entry) const;

    volume_view_ptr m_view;
    std::vector<link> m_links; // sorted
};

} // namespace hv

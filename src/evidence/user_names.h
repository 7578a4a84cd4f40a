#pragma once

#include "evidence/deletion.h"
#include "evidence/volume_view.h"
#include "hives/hive_names.h"

#include <optional>
#include <set>

/// Names for the users of a medium, from the hives that its volumes hold.
namespace hv {

/// Finds the hives while volumes are examined, and reads them when it is known who is
/// to be named. The bin of a volume without Windows has the users of another volume, so
/// each hive may name the users of all.
class user_names {
public:
    /// Of which volume a view is, and of when.
    struct moment_of_view {
        u64 volume = 0; ///< byte on the medium
        std::optional<u64> taken =
            {}; ///< FILETIME of a snapshot; nothing: as it is now
    };

    /// Notes the hives that an open view leads to. The view needn't outlive this.
    void note_hives(const volume_view &view, const moment_of_view &when);

    /// Names the users and owners of all deletions. Volumes as they are now come before
    /// snapshots, a later snapshot before an earlier one, accounts before the folders
    /// of profiles, and a hive that was written later before another. Hives are read
    /// until all have a name.
    void name_users(examination &out) const;

private:
    // A hive, and the view that leads to it.
    struct found_hive {
        byte_source_ptr source;
        u64 offset = 0;
        u32 view = 0;
        moment_of_view when;
        hive_kind kind = hive_kind::accounts;
        std::string path;
        u64 entry = 0;
        u64 written = 0; ///< FILETIME

        std::string text() const;
        bool comes_before(const found_hive &other) const;
        bool is_copy_of(const found_hive &other) const;
    };

    void note_hive(const volume_view &view, found_hive hive);
    std::vector<found_hive> in_order() const;
    static std::string read_hive(names_by_sid &out, const found_hive &hive,
                                 u64 &budget);

    std::vector<found_hive> m_hives;
};

/// The name of a SID that is the same on every computer, such as "S-1-5-18"; empty for
/// any other.
std::u16string well_known_name(std::string_view sid);

} // namespace hv

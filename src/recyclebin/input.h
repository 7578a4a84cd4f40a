#pragma once

#include "evidence/examine.h"
#include "evidence/examine_files.h"
#include "evidence/unlock_volumes.h"
#include "media/open_medium.h"
#include "recyclebin/bytes_command.h"

#include <string>

/// What a user may name as a medium.
namespace hv {

enum class input_kind {
    medium,       ///< a disk or a volume, raw or in a container
    folder,       ///< that is a bin, or holds bins
    mft_copy,     ///< a copy of an $MFT
    metadata_file ///< one `$I` file or list
};

/// For a user: "a folder", "a copy of an $MFT".
std::string_view name_of(input_kind kind);

/// What was named, opened as what it is by its content. A folder's source has no bytes:
/// they are in the files of its sightings. What can't be read of it becomes a fault of
/// the source.
class opened_input {
public:
    explicit opened_input(std::string path);

    /// Puts the volumes that there are keys for in the place of their locked bytes.
    /// Returns what went wrong, in words.
    std::vector<std::string> unlock(const volume_keys &keys);

    input_kind kind() const { return m_kind; }
    const opened_medium &source() const { return m_source; }
    bytes_access access() const;
    /// Where `sighting::file` begins; empty for a medium and a copy of an $MFT.
    std::string folder() const;
    /// Whether writing to this path would change what is examined.
    bool holds(const std::string &path) const;
    /// `options` are for a medium; everything else is examined whole.
    void examine(examination &out, const examine_options &options) const;

private:
    void open();

    std::string m_path;
    input_kind m_kind = input_kind::medium;
    opened_medium m_source;
    bool m_is_unlocked = false;
    std::shared_ptr<unread_list> m_unread = std::make_shared<unread_list>();
};

} // namespace hv

#pragma once

#include "base/hv_types.h"

#include <map>
#include <span>
#include <string>

/// The names of users in registry hives of Windows. A hive begins with a header, and
/// has its keys and values in cells; libregf reads them.
namespace hv {

/// Names by the text of a SID, "S-1-5-21-...".
using names_by_sid = std::map<std::string, std::u16string>;

/// The hives that name users.
enum class hive_kind {
    accounts, ///< "SAM": the accounts of the computer itself
    profiles  ///< "SOFTWARE": the folders of all who logged on, such as "C:\Users\ada"
};

/// Whether hives can be read: libregf is optional, in the build and on the machine.
bool can_read_hives();

/// When a hive was last written, a FILETIME; 0 for bytes that are no hive.
u64 hive_written(std::span<const u8> hive);

/// Adds the names that a hive has. Of accounts, the SID follows from that of the
/// computer, in the value "V" of "SAM\Domains\Account", and the number of the account,
/// the type of its value below "Users\Names". Of profiles, the name is the last part of
/// the folder's path. A process of its own reads the hive, with little time and memory,
/// so that damage stops that one alone. False if the hive can't be read or that process
/// didn't finish; `out` is as it was then.
bool read_names(names_by_sid &out, hive_kind kind, std::span<const u8> hive);

} // namespace hv

#pragma once

#include "evidence/sighting.h"

#include <optional>
#include <string>
#include <string_view>

/// What Windows names things in a bin, in the form that evidence needs: an item is told
/// by what its two names have in common.
namespace hv {

enum class bin_name_kind {
    other,
    metadata,   ///< "$IAB12CD.txt"
    data,       ///< "$RAB12CD.txt"
    list,       ///< "INFO2", "INFO"
    listed_data ///< "Dc1.txt": a data item that a list tells of
};

/// What a name is, if its folder is one of a bin.
bin_name_kind kind_of_name(std::u16string_view name);
/// Whether a sighting has the name of a data item.
bool is_data_name(const sighting &seen);
/// Whether a sighting is of the metadata that is or was in the bin: of its record, or
/// of its name in the index of the folder.
bool shows_metadata(const sighting &seen);
/// The same of the data item.
bool shows_data(const sighting &seen);
/// Whether Windows itself would give a `$I` or `$R` file this name: six letters or
/// digits, and perhaps an extension. For names whose folder isn't known.
bool is_made_by_windows(std::u16string_view name);
/// What the two names of an item have in common: "AB12CD.txt", "Dc1.txt".
std::u16string item_of_name(std::u16string_view name);
/// The name of the data item of a list's record.
std::u16string listed_data_name(u32 drive, u32 number, std::u16string_view path);

/// A folder in the root of a volume that is a bin, of any Windows.
bool is_bin_folder(std::u16string_view name);
/// Like "S-1-5-21-...".
bool is_user_folder(std::u16string_view name);

} // namespace hv

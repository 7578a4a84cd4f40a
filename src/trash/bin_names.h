#pragma once

#include <array>
#include <string>
#include <string_view>

/// What Windows names the bin, the metadata files and the data files in it, and how a
/// path is put together from a folder's path and a name. There are several rules for
/// the same question, as the roads to a row differ: they are here side by side, each
/// with its reason.
namespace hv {

// ---- The bin

/// The bin's folder in the root of a volume: of Windows Vista and later, and before.
inline constexpr std::array<const char *, 2> bin_folder_names = {"$Recycle.Bin",
                                                                 "RECYCLER"};

/// A name of one byte is never looked at, wherever it is: no name of the bin's is so
/// short.
inline constexpr std::size_t min_name = 2;

/// Records: a folder in the root of a volume is a bin if this is its whole name, in any
/// case. Windows itself writes "$RECYCLE.BIN" as well.
bool is_bin_name(std::string_view name);

/// Files: the position after the bin's name in the path of a folder, or npos. The name
/// may be a part of a longer one: bins are copied to folders such as "C_$Recycle.Bin".
std::size_t bin_name_end(std::string_view folder);

/// True for the old layout, "RECYCLER", whose data files have names such as "Dc1.txt".
/// Only an upper-case "R" counts: that is what Windows writes.
bool is_old_bin_name(std::string_view name);

// ---- Metadata files

/// Records: an `INFO2`, or a `$I` name as long as those of Windows: "$I", six
/// characters, an extension. A volume has other files whose names begin "$I".
bool is_metadata_record_name(std::string_view name);

/// Files: any `$I...`, and any name with "INFO2" in it. Whoever lists a file by hand
/// wants it read, and copies of an `INFO2` get longer names.
bool is_metadata_file_name(std::string_view name);

/// Records whose content is kept for the parsers: everything that
/// `is_metadata_record_name` may take later, and short `$I` names besides.
bool may_be_metadata(std::string_view name);

/// Records whose clusters are read although they are no folder of the bin: an `INFO2`
/// in any case of letters.
bool is_info2_name(std::string_view name);

// ---- Data files

/// Records: the name of the data item that a path leads to or through, after the text
/// of the bin (`bin_text`: "\" and the bin's name). Empty if it leads to none. Under
/// the old layout a data file is only a name that begins with "D", so any later folder
/// or file that does is taken for one.
std::string_view item_in_path(std::string_view path, std::string_view bin_text,
                              bool old_layout);

/// Files: the name of the `$R...` item in a path, after the user's SID, so that the
/// "$R" of the bin's own name isn't taken for an item. Empty without a SID or an item.
std::string_view item_after_user(std::string_view path);

/// The position of the user's SID in a path, or npos: a local or domain account, or
/// else a cloud account.
std::size_t find_user_sid(std::string_view path);

/// True for a path that a run over a bin may read: a metadata file by its name, or
/// anything below a folder with a bin's name. Here the whole name of the folder counts,
/// since a file that passes can't be the results file.
bool is_evidence_name(std::string_view path);

// ---- The path of a record below its parent

/// How `path_below` treats a folder's path. Folders got their paths from the walk,
/// which ends them with a backslash; the root's own path ends with a slash, and a
/// folder may have none. Rows show these paths and readers compare them byte for byte,
/// so each road keeps its way with those two.
enum class path_join {
    backslash,   ///< classification: a backslash unless there is one: "[root]/\name"
    as_is,       ///< data items: nothing is added: "[root]/name", "name"
    or_top,      ///< metadata: a folder's text without a separator is left out: "\name"
    a_separator, ///< orphans: a backslash unless there is either: "[root]/name"
};

std::string path_below(std::string_view folder, std::string_view name, path_join join);

} // namespace hv

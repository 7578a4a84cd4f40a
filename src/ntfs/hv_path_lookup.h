#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_log.h"
#include "ntfs/hv_directory_index.h"

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Finds the $MFT entry of a path through the indexes of the directories on the way.
/// Names are compared ignoring the case of ASCII letters.
namespace hv {

class CNtfs;

/// "No entry" where the number of a directory is expected.
inline constexpr u64 no_entry = ~u64{0};

/// Whether a lookup goes on at the target of a symbolic link or a junction.
enum class link_mode { stop, follow };

/// Finds the entry of a path such as "\$Recycle.Bin". A drive letter and the prefix of
/// a snapshot's device are dropped. `out_inode` gets the entry number, `out_parent`
/// that of the directory that holds the entry, `out_path` the path as resolved. Each
/// directory on the way is added to the volume's path cache. On failure `out_inode` is
/// 0, `out_parent` is `no_entry` and `out_path` is untouched.
bool find_inode_by_path(u64 &out_inode, u64 &out_parent, std::wstring &out_path,
                        CNtfs &volume, std::wstring_view path, link_mode links,
                        log_handle log);

/// The same for a UTF-8 path; one that isn't UTF-8 is never found. `out_path` is only
/// set if links were to be followed.
bool find_inode_by_path_utf8(u64 &out_inode, u64 &out_parent, std::string &out_path,
                             CNtfs &volume, std::string_view path, link_mode links,
                             log_handle log);

/// Adds the entry numbers of a directory's children, from its $I30 index. For an
/// extension record, its base record is read. False if the directory can't be read or
/// the last part of its index yields nothing; `children` then holds what was found.
bool read_directory_children(std::set<u64> &children, const CNtfs &volume, u64 entry,
                             name_walk mode);

/// Finds a child of a directory by its name, without the cache. False, with `out_entry`
/// untouched, if there is none.
bool find_child_by_name(u64 directory, std::string_view name, u64 &out_entry,
                        const CNtfs &volume);

/// One $FILE_NAME of a record.
struct record_name {
    std::string name;           ///< UTF-8
    std::array<u8, 68> fixed{}; ///< fixed part of the content
    bool is_dos = false;        ///< made for DOS beside a long name
};
/// Names by the entry number of their parent.
using record_names = std::multimap<u64, record_name>;

/// Which names of a record are wanted. Lookups take the defaults; the others are kept
/// for callers of the library.
struct name_filter {
    bool dos_names = false;                         ///< names made for DOS as well
    std::optional<u64> parent_entry = std::nullopt; ///< only names under this directory
};

/// Collects the names of an entry, from the $FILE_NAME attributes of the records that
/// its attribute list names, then from those of its own record. `record` is that
/// record, with its update sequence applied. `budget` is how many bytes may still be
/// read for lists; it shrinks by them. False if there is no such name.
bool read_names_of_record(record_names &out_names, const CNtfs &volume, u64 entry,
                          byte_view record, const name_filter &wanted, u64 &budget);

} // namespace hv

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

/// From a path to its `$MFT` entry, through the directories' indexes. Names compare
/// without regard to the case of ASCII letters.
namespace hv {

class CNtfs;

/// "No entry" where the number of a directory is expected.
inline constexpr u64 no_entry = ~u64{0};

/// Whether a path goes on at the target of a reparse point.
enum class link_mode { stop, follow };

/// Finds the entry of a path such as "\$Recycle.Bin". A drive letter and the prefix of
/// a snapshot's device are dropped. `out_parent` gets the number of the directory that
/// holds the entry, `out_path` the path as resolved. Every directory on the way goes
/// into the volume's path cache. On failure `out_inode` is 0, `out_parent` is
/// `no_entry` and `out_path` is untouched.
bool find_inode_by_path(u64 &out_inode, u64 &out_parent, std::wstring &out_path,
                        CNtfs &volume, std::wstring_view path, link_mode links,
                        log_handle log);

/// The same for a UTF-8 path; one that isn't UTF-8 is never found. `out_path` is only
/// set if links were to be followed.
bool find_inode_by_path_utf8(u64 &out_inode, u64 &out_parent, std::string &out_path,
                             CNtfs &volume, std::string_view path, link_mode links,
                             log_handle log);

/// Adds the entry numbers of a directory's children, from its $I30 index. An extension
/// record stands for its base record. False if the directory can't be read or the last
/// part of its index yields nothing; `children` then holds what was found.
bool read_directory_children(std::set<u64> &children, const CNtfs &volume, u64 entry,
                             name_walk mode);

/// Finds a child of a directory by its name, without the cache. `out_entry` is set on
/// success only.
bool find_child_by_name(u64 directory, std::string_view name, u64 &out_entry,
                        const CNtfs &volume);

/// One $FILE_NAME of a record.
struct record_name {
    std::string name;           ///< UTF-8
    std::array<u8, 68> fixed{}; ///< fixed part of the content
    bool is_dos = false;
};
/// Names by the entry number of their parent.
using record_names = std::multimap<u64, record_name>;

/// Collects the names of a record that was read, those that an attribute list has put
/// into other records first. Without `all_namespaces` names made for DOS are left out.
/// With a parent, only the names under it are taken. `budget` bounds the bytes that are
/// read for lists, and shrinks by them. False if there is no name.
bool read_names_of_record(record_names &out_names, const CNtfs &volume, u64 entry,
                          byte_view record, bool all_namespaces,
                          std::optional<u64> parent_filter, u64 &budget);

} // namespace hv

#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/examine.h"

#include <functional>
#include <string>
#include <vector>

/// What users have besides disks and volumes: bins that were copied or are mounted,
/// copies of an $MFT, single metadata files.
namespace hv {

/// What couldn't be read, in words, such as "bin/INFO2: Permission denied". No more
/// than `max_unread` of them are kept, and a last one that says so.
using unread_list = std::vector<std::string>;
inline constexpr std::size_t max_unread = 1000;

/// Examines a folder of this system: a bin, a user's folder in one, or a folder that
/// holds bins or metadata files at any depth. Each bin, and each other folder with
/// metadata files, becomes a region. Links are not followed, and nothing but regular
/// files is opened. The owners and times of files are those of a copy and aren't
/// reported. Once `should_stop`, which is asked for each file, says true, what was
/// found so far is the result.
void examine_folder(examination &out, unread_list &unread, const std::string &path,
                    const std::function<bool()> &should_stop = {});

/// The folder that holds a file, as its path names it; "." if it names none.
std::string folder_of_file(const std::string &path);

/// Whether a file surely is a `$I` file or a list, by its content; its name only
/// decides where that is cut off or has more after it.
bool is_metadata_file(const byte_source &file, const std::string &path);
/// Examines a file of that kind. What lies beside it, under the name that belongs to
/// the metadata, counts as its data item.
void examine_metadata_file(examination &out, unread_list &unread,
                           const byte_source &file, const std::string &path);

/// Examines a copy of an $MFT: all that its records hold, in use or freed. What is in
/// clusters isn't there: such content is `data_state::unknown`. Of the options, only
/// those that report and stop count.
void examine_mft_copy(examination &out, const byte_source_ptr &copy,
                      const examine_options &options = {});

} // namespace hv

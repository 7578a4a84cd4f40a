#pragma once

#include "base/hv_types.h"
#include "records/inode_record.h"

#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace hv {

/// One deleted file. The first group is what its metadata says, the second what became
/// of it when it was looked for.
struct trash_entry {
    u32 version = 0;           ///< 0 for `INFO2`, 1 or 2 for `$I`
    std::string metadata_name; ///< name of the metadata file
    std::string deleted_path;  ///< full path before the deletion
    std::string other_info;
    bool carved = false;        ///< found in raw clusters
    std::vector<u8> raw_data;   ///< a carved `INFO2`, not parsed yet
    u32 record_number = 0;      ///< `INFO2` only
    u32 drive_number = 0;       ///< `INFO2` only; 0 is drive A
    u64 deleted_time = 0;       ///< FILETIME
    u64 file_size = 0;          ///< bytes, as the metadata states it
    u64 source_offset = 0;      ///< byte position of the metadata on the medium
    u64 meta_record = no_index; ///< store index of the metadata file

    std::string user_sid; ///< the directory above the metadata file
    bool has_data_file = false;
    u64 data_record = no_index; ///< store index of the data file or, unpaired, of the
                                ///< metadata file
    std::string restored_path;  ///< path to print for a paired entry
};

/// The rows of a run. They come out in the byte order of their keys, equal keys in the
/// order in which they came in.
class result_list {
public:
    bool empty() const { return m_rows.empty(); }
    void add(std::string key, trash_entry entry);
    /// The rows in the order of output.
    std::vector<const trash_entry *> in_order() const;
    /// The row that comes out first, or null.
    const trash_entry *first() const;

private:
    using row = std::pair<std::string, trash_entry>;
    std::deque<row> m_rows;
};

} // namespace hv

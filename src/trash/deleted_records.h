#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"
#include "formats/deleted_file_layout.h"
#include "records/trash_entry.h"

#include <string_view>
#include <vector>

/// The two formats in which Windows keeps what it knows about a deleted file. The bytes
/// are often damaged or truncated: each record is tested field by field, and a record
/// that fails costs only itself.
namespace hv {

/// The only lists that this reader takes: records of 800 bytes. It counts offsets from
/// a cursor four bytes before a record, since a list may lack its last four bytes.
namespace info2 {
inline constexpr std::size_t cursor_to_record = 4;
inline constexpr std::size_t first_cursor = list_header::size - cursor_to_record;
inline constexpr std::size_t min_size = first_cursor + list_record::size;
} // namespace info2

/// What a parser takes over from the metadata file's own record.
struct metadata_source {
    u64 record = no_index; ///< store index
    std::string_view name;
    std::string_view target_name;
    u64 position = 0; ///< byte position on the medium
};

/// Whether an entry comes from a file or was found in raw clusters.
enum class entry_origin { file, carved };

/// True for a plausible `$I` of version 1.
bool check_i1(byte_view file);
/// True for a plausible `$I` of version 2. The path may be truncated.
bool check_i2(byte_view file);
/// True if the bytes from a cursor to the end of the data begin with a plausible
/// `INFO2` record, whose path begins with a letter and a colon.
bool looks_like_info2(byte_view from_cursor);
/// True if the record size in the header is that of an `INFO2`.
bool has_info2_header(byte_view file);

/// The parsers append what they find to `parsed`. False if they found nothing.
bool parse_i1(std::vector<trash_entry> &parsed, byte_view file,
              const metadata_source &source);
bool parse_i2(std::vector<trash_entry> &parsed, byte_view file,
              const metadata_source &source);
/// A bad record is passed over. A truncated one at the end is kept if it is convincing.
bool parse_info2(std::vector<trash_entry> &parsed, byte_view file,
                 const metadata_source &source, entry_origin origin);

/// Reads whichever of the formats the bytes are in.
bool parse_metadata(std::vector<trash_entry> &parsed, byte_view file,
                    const metadata_source &source);

/// How many bytes from the start of a metadata file the parsers can make use of, judged
/// by its first bytes.
u64 useful_metadata_size(byte_view head);

} // namespace hv

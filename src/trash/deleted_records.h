#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"
#include "records/trash_entry.h"

#include <string_view>
#include <vector>

/// The two formats in which Windows keeps what it knows about a deleted file. The bytes
/// are often damaged or truncated: each record is tested field by field, and a record
/// that fails costs only itself.
namespace hv {

// clang-format off

/// `$I` file: one deleted file. Version 1 is 544 bytes long, version 2 ends with its path.
namespace dollar_i {
inline constexpr le_field<u32> version      { 0}; ///< 1 or 2; the upper half isn't read
inline constexpr le_field<u64> file_size    { 8}; ///< bytes
inline constexpr le_field<u64> deleted_time {16}; ///< FILETIME
inline constexpr std::size_t   path_1       = 24; ///< version 1: UTF-16LE, 520 bytes
inline constexpr le_field<u32> path_units   {24}; ///< version 2: with the ending zero
inline constexpr std::size_t   path_2       = 28; ///< version 2: UTF-16LE
inline constexpr std::size_t   size_1       = 544;
inline constexpr std::size_t   min_size_2 = 30;
inline constexpr u32           max_units   = 2048;
} // namespace dollar_i

/// `INFO2` file: a header and an array of records, for a whole bin.
namespace info2 {
inline constexpr std::size_t record_size_field = 12; ///< u32, must be `record_size`
inline constexpr std::size_t first_cursor      = 16; ///< four bytes before record one
inline constexpr std::size_t min_size        = 816;
inline constexpr std::size_t record_size       = 800;
} // namespace info2

/// `INFO2` record. Offsets count from a cursor, which is four bytes before the record:
/// the first cursor is at offset 16 of the file, and it steps by 800.
namespace info2_record {
inline constexpr std::size_t ansi_path         = 4;   ///< 8-bit code page, 260 bytes
inline constexpr std::size_t ansi_path_size    = 260;
inline constexpr std::size_t record_number     = 264; ///< u32
inline constexpr std::size_t drive_number      = 268; ///< u32; 0 is A, 2 is C
inline constexpr std::size_t deleted_time      = 272; ///< FILETIME
inline constexpr std::size_t file_size         = 280; ///< u32, bytes
inline constexpr std::size_t wide_path         = 284; ///< UTF-16LE, 520 bytes
} // namespace info2_record

// clang-format on

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

#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_parse_rules.h"
#include "base/hv_types.h"
#include "formats/deleted_file_layout.h"

#include <optional>
#include <string>
#include <vector>

/// What Windows keeps about a file that was sent to the Recycle Bin: `$I` files of both
/// versions, and lists (`INFO2`, `INFO`) with records of 800 or 280 bytes.
///
/// There are two questions. The `parse_` functions are for bytes that are metadata by
/// their name and place: they read all that the rules let in.
/// The `recognize_` functions are for bytes that nothing names: every field has to be
/// what Windows writes, so that a document about the format yields no row.
namespace hv {

/// How the data of a metadata file is kept.
enum class metadata_format {
    dollar_i_1,
    dollar_i_2,
    info2_800, ///< `INFO2` of Windows 2000 and XP
    info2_280, ///< `INFO2` of Windows 98 and ME
    info_800,  ///< `INFO` of Windows NT 4
    info_280   ///< `INFO` of Windows 95
};

/// What a `$I` file, or a record of a list, states.
struct deleted_file {
    metadata_format format = metadata_format::dollar_i_2;
    u64 size = 0;    ///< bytes, as stated
    u64 deleted = 0; ///< FILETIME
    std::u16string path;
    bool path_is_whole = true; ///< false: the metadata is cut off in its path
    u32 number = 0;            ///< of the record in its list
    u32 drive = 0;             ///< of the record: 0 is A, 26 a network path
    bool is_struck = false;    ///< the list marks the record as purged or restored
    u64 length = 0;            ///< bytes that state all this
};

/// A record and its place in its list.
struct listed_file {
    u64 offset = 0; ///< of the record's first byte
    deleted_file file;
};

/// Reads a `$I` file. `file` is its whole content; bytes after the path are ignored.
/// False, with `out` untouched, if it isn't one or if the rules refuse it.
bool parse_dollar_i(deleted_file &out, byte_view file, const parse_rules &rules);

/// Reads the header of a list: which records follow. False, with `out` untouched, if
/// the size of its records is none that the rules allow.
bool parse_list_header(metadata_format &out, byte_view file, const parse_rules &rules);
/// 800 or 280; 0 for a `$I` file.
u32 list_record_size(metadata_format format);
/// Reads one record of a list, which `record` begins with. The record may be cut off in
/// its path. False, with `out` untouched, if it isn't one or if the rules refuse it.
bool parse_list_record(deleted_file &out, byte_view record, metadata_format format,
                       const parse_rules &rules);
/// Appends all records of a list, in their order; a bad record costs only itself. Where
/// torn metadata counts, a bad header costs only records that aren't sure without it.
void parse_list(std::vector<listed_file> &out, byte_view file,
                const parse_rules &rules);

/// True if `bytes` surely begin with the content of a `$I` file. They end where the
/// stretch that was found ends: a path that is cut off there still counts.
bool recognize_dollar_i(deleted_file &out, byte_view bytes);
/// True if `bytes` surely begin with the header of a list.
bool recognize_list_header(metadata_format &out, byte_view bytes);
/// True if `bytes` surely begin with a record of a list, of which 280 bytes have to be
/// there. `list` is the format of the list that it continues, if one is known; without
/// it, the bytes decide, and the list is taken for an `INFO2`.
bool recognize_list_record(deleted_file &out, byte_view bytes,
                           std::optional<metadata_format> list);

/// A quick test before `recognize_list_record`, from the record's numbers alone: false
/// if no record begins at `at`.
bool may_be_list_record(byte_view bytes, u64 at);

/// True for times from 1980 to 2107, in which a file can have been deleted.
bool is_believable_time(u64 filetime);

} // namespace hv

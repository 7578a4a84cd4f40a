#pragma once

#include "base/hv_types.h"

#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// One pattern of `-filter`: on a name, on a path, or on bytes inside the file.
struct filter_item {
    std::wstring path_text;    ///< text of `-filter_path`; nothing is compared with it
    std::wstring pattern_text; ///< as given, in lower case
    std::wstring name_text;    ///< without its stars
    std::wstring stream_text;  ///< what follows a colon, without its stars
    std::vector<u8> signature; ///< bytes of `-filter_sig`
    u64 signature_offset = 0;
    bool is_path = false;   ///< begins with "/"
    bool match_all = false; ///< was "*"
    bool star_front = false;
    bool star_back = false;
    bool has_stream = false;
    bool stream_all = false;
    bool stream_star_front = false;
    bool stream_star_back = false;
};

/// Replaces `list` by the patterns of `text`, separated by "|" or, where there is none,
/// by ",". A star counts only at the start and at the end of a pattern; elsewhere it is
/// dropped. A pattern "*" passes everything and replaces the other patterns.
void parse_filter(std::vector<filter_item> &list, std::string_view text);

/// The item of a `-filter_sig` value: hexadecimal bytes and, after "|" or else ",", the
/// byte offset in the file at which they are expected. A value that isn't hexadecimal
/// matches no file.
filter_item parse_signature_filter(std::string_view text);

/// The times of a file that a time window looks at, as FILETIMEs.
struct file_times {
    u64 modified = 0;
    u64 changed = 0;
};

/// `-cmd_start_time` and `-cmd_stop_time`, as FILETIMEs.
struct time_window {
    bool start_set = false;
    u64 start = 0;
    bool stop_set = false;
    u64 stop = 0;

    bool any() const { return start_set || stop_set; }
    /// False for a file with both its times before the start, or with one of them after
    /// the stop.
    bool holds(const file_times &times) const;
};

/// True if a path matches one of the patterns, or if there are none. Patterns are
/// compared with the file's name; those that begin with "/" also with the whole path;
/// signatures with the bytes of the file. Case is ignored. An empty path passes only
/// the empty list.
bool filter_passes_wide(std::wstring_view path, const std::vector<filter_item> &list);

/// The same for a path in UTF-8. An empty path never passes.
bool filter_passes(std::string_view utf8_path, const std::vector<filter_item> &list);

} // namespace hv

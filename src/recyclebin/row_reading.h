#pragma once

#include "recyclebin/words.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Rows that were written as lines of JSON, read again for what they state.
namespace hv {

/// What a row, or the metadata of one of its sightings, states. What it doesn't is
/// absent.
struct row_statement {
    std::optional<u64> deleted; ///< FILETIME
    std::optional<u64> size;
    std::optional<std::u16string> path;
};

/// One sighting of a row, and the bytes by which it is proved.
struct row_proof {
    std::u16string file; ///< that the ranges are in, below a folder; empty: the medium
    std::vector<byte_range> ranges;
    std::string sum;                       ///< SHA-256; may be empty
    std::optional<metadata_format> format; ///< absent: it isn't metadata
    u64 length = 0;                        ///< bytes of the metadata
    bool path_is_whole = true;
    row_statement stated;
};

struct written_row {
    std::string id;
    row_statement stated;
    std::vector<row_proof> proofs;
};

/// Reads a line. False, with `problem` in words, if it isn't a row of a schema that is
/// known.
bool read_row(written_row &row, std::string &problem, std::string_view line);

} // namespace hv

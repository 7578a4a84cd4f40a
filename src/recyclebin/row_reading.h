#pragma once

#include "recyclebin/words.h"

#include <nlohmann/json.hpp>
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
    std::string kind;    ///< as `word_for` writes it
    std::string source;  ///< the same
    std::vector<byte_range> ranges;
    std::string sum;                       ///< SHA-256; may be empty
    std::optional<metadata_format> format; ///< absent: it isn't metadata
    u64 length = 0;                        ///< bytes of the metadata
    bool path_is_whole = true;
    row_statement stated;
};

struct written_row {
    std::string id;
    std::u16string name; ///< in the bin, of the data item or else the metadata
    row_statement stated;
    std::vector<row_proof> proofs;
    bool is_carved = false; ///< by a sighting that only carving shows
    /// Another version of the form: it may have fields that this one lacks, or lack
    /// fields that this one has.
    bool is_other_version = false;
    nlohmann::ordered_json line; ///< all of it
};

/// Reads a line. False, with `problem` in words, if it isn't a row of a schema that is
/// known.
bool read_row(written_row &row, std::string &problem, std::string_view line);

} // namespace hv

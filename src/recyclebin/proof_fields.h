#pragma once

#include "base/hv_byte_view.h"
#include "evidence/sighting.h"

#include <string>
#include <vector>

/// What the bytes of a sighting say, field by field.
namespace hv {

/// Some of the bytes, and what they mean.
struct proof_field {
    u64 offset = 0; ///< from the first byte of the proof
    u64 length = 0;
    std::string meaning; ///< in words, escaped
};

/// The fields of metadata, of a FILE record, of a $FILE_NAME and of a line of the
/// change journal, by their on-disk structures. Empty for bytes of no known form.
std::vector<proof_field> proof_fields(const sighting &seen, byte_view bytes);

/// What the bytes of a metadata file, or of a list's record, state. Nothing if they
/// aren't metadata of this format.
std::optional<deleted_file> read_statement(byte_view bytes, metadata_format format);

} // namespace hv

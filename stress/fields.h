#pragma once

#include "stress/structures.h"

/// The grammar of structures: where in the bytes of one each field is, and what kind of
/// value it has.
namespace stress {

enum class field_kind {
    number,    ///< a size, an offset, a count, flags, a type
    reference, ///< an entry and its sequence number
    time,      ///< FILETIME
    cluster,   ///< number of a cluster of the volume
    place,     ///< bytes from the start of the volume
    position,  ///< sectors from the start of the medium
    power,     ///< of the boot sector: a power of two, or its exponent
    text8,     ///< a path in 8-bit characters
    text16,    ///< a name or a path in UTF-16
    runs       ///< an attribute outside of its record, for the run list in it
};

/// A field, in bytes from the start of its structure.
struct field {
    std::size_t offset = 0;
    std::size_t length = 0;
    field_kind kind = field_kind::number;
};

/// The fields of a structure, all inside of `bytes`: for records and blocks with an
/// update sequence, those in which it has been undone.
std::vector<field> fields_of(structure_kind kind, std::span<const u8> bytes);

} // namespace stress

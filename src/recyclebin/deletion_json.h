#pragma once

#include "disk/hv_byte_source.h"
#include "recyclebin/views.h"

#include <string>

namespace hv {

/// Of the form of a line; docs/recyclebin.schema.json describes it. The first number
/// grows when a reader of the form before has to change.
inline constexpr std::string_view json_schema_version = "1.1";

/// One deletion as a line of JSON, without its end. Reads the bytes that prove it from
/// the medium, for their sums.
std::string deletion_json(const deletion &item, const examination &found,
                          const byte_source &medium);

} // namespace hv

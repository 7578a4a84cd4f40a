#pragma once

#include "samples/bytes.h"

#include <string>

namespace lab {

/// The SHA-256 of some bytes, in lower-case hexadecimal digits.
std::string sha256(const test_support::byte_vector &bytes);

} // namespace lab

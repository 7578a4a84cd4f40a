#pragma once

#include "samples/bytes.h"

#include <span>

/// Media so small that thousands of runs a minute are possible: one for each kind of
/// structure that evidence is in.
namespace stress {

struct small_medium {
    const char *name;
    test_support::byte_vector (*make)();
};

std::span<const small_medium> small_media();

} // namespace stress

#pragma once

#include "hives/hive_names.h"

/// Hives through libregf, in this process.
namespace hv {

/// Whether libregf is on this machine.
bool has_regf_library();

/// Adds the names that a hive has, at most `max_hive_names`. False if its keys can't be
/// read.
bool read_regf_names(names_by_sid &out, hive_kind kind, std::span<const u8> hive);

/// More than any computer has.
inline constexpr int max_hive_names = 65536;

} // namespace hv

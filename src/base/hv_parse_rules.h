#pragma once

#include "base/hv_types.h"

namespace hv {

/// The rules of the parsers that cost evidence, as one value. A caller hands it in; no
/// parser knows which program asks. Each field is a rule of its own, named by what it
/// lets in.
struct parse_rules {
    /// Records of old systems: the array of the update sequence at 42 as well as at 48.
    bool records_of_old_systems = false;
    /// Lists (`INFO2`, `INFO`) with records of 280 bytes as well as of 800.
    bool lists_of_280 = false;
    /// Records of drive A, and of drive 26, which stands for network paths.
    bool all_drives = false;
    /// Records of a list whose path begins with no drive letter, such as network paths.
    bool network_paths = false;
    /// The last units of a path that fills its field.
    bool full_paths = false;
    /// Deletion times outside of the years that an examiner expects.
    bool any_time = false;
    /// `$I` files that lost bytes at their end, down to 24 bytes.
    bool torn_metadata = false;
    /// An overlay of a later snapshot's store belongs to that snapshot alone: it never
    /// shows in an earlier one.
    bool own_overlays_only = false;
    /// The catalog of shadow copies that the volume's header names, where no index
    /// leads to its file.
    bool catalog_by_header = false;

    /// What `veskit` does, which stays as it is.
    static constexpr parse_rules fixed() { return {}; }
    /// Nothing is left out.
    static constexpr parse_rules complete()
    {
        return {true, true, true, true, true, true, true, true, true};
    }
};

} // namespace hv

#pragma once

#include "disk/hv_byte_source.h"

#include <string>

namespace hv {

/// What unlocks encrypted volumes; empty where the user has none.
struct volume_keys {
    std::string recovery_key; ///< eight groups of six digits, with "-" between them
    std::string password;     ///< UTF-8

    bool empty() const { return recovery_key.empty() && password.empty(); }
};

/// A volume as its system sees it, or why it can't be read like that.
struct unlocked_volume {
    byte_source_ptr source;
    std::string problem; ///< as a sentence for a user
};

/// Unlocks a BitLocker volume: `volume` is the stretch of the medium that it takes up.
unlocked_volume unlock_bitlocker(const byte_source_ptr &volume,
                                 const volume_keys &keys);

} // namespace hv

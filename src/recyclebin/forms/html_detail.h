#pragma once

#include "recyclebin/forms/form.h"

namespace hv {

/// How one deletion is known: what follows from its sightings, then each of these with
/// its bytes, their sum, and the command that shows them. Of very long lists the rest
/// is counted.
void write_deletion_detail(std::ostream &out, const deletion &item,
                           const listing &told);

} // namespace hv

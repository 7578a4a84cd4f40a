#pragma once

#include "recyclebin/forms/form.h"

namespace hv {

/// Draws when the deletions were, as an SVG inside of a page: a lane for each user, the
/// busiest first, and a bar for each day. Deletions without a time are counted below.
void write_timeline_picture(std::ostream &out, const listing &told);

} // namespace hv

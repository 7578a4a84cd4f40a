#pragma once

namespace hv {

/// From here on, the first signal that asks the program to end lets it finish what it
/// writes; the second one ends it. So does a soft limit of processor time, until the
/// hard one. A limit on the size of files shows as a failed write.
void catch_interruptions();
/// Whether such a signal came.
bool is_interrupted();

} // namespace hv

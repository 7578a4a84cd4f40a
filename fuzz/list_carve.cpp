// `recyclebin list` with and without carving, over a small medium that is damaged:
// everything that must hold of a run, whatever the medium.

#include "fuzz/damaged_medium.h"

#include <map>

namespace {

const stress::baseline &baseline_of(std::size_t number)
{
    static std::map<std::size_t, stress::baseline> known;
    const auto found = known.find(number);
    if (found != known.end()) return found->second;
    return known
        .emplace(number, stress::make_baseline(fuzz::whole_medium_of(number).bytes))
        .first->second;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const fuzz::damaged_medium medium = fuzz::damage_medium(data, size);
    const stress::baseline &before = baseline_of(medium.number);
    fuzz::require_no(stress::check_all(before, medium.bytes, medium.done), medium);
    return 0;
}

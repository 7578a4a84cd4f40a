// The names of users in a hive, read in this process: by libregf where it is there. The
// first byte chooses the hive.

#include "hives/hive_names.h"
#ifdef VESKIT_WITH_REGF
#include "hives/regf_reader.h"
#endif

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    if (size == 0) return 0;
    const std::span<const hv::u8> hive{data + 1, size - 1};
    // Less than a header and a bin is no hive.
    if (hv::hive_written(hive) != 0 && hive.size() <= 4096) std::abort();
#ifdef VESKIT_WITH_REGF
    if (!hv::has_regf_library()) return 0;
    hv::names_by_sid names;
    const auto kind =
        data[0] % 2 == 0 ? hv::hive_kind::accounts : hv::hive_kind::profiles;
    hv::read_regf_names(names, kind, hive);
    if (names.size() > size) std::abort();
    for (const auto &[user, name] : names) {
        if (user.size() > size || name.size() > size) std::abort();
        // Of accounts, the SID is made; of profiles, a key has it for a name.
        if (kind == hv::hive_kind::accounts && !user.starts_with("S-1-")) std::abort();
    }
#endif
    return 0;
}

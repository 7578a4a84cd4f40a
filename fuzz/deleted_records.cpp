// The parsers of `$I` and `INFO2`.

#include "trash/deleted_records.h"

#include "base/hv_time.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    std::vector<hv::trash_entry> parsed;
    hv::parse_metadata(parsed, {data, size}, {});
    // An INFO2 record takes at least 285 bytes, a `$I` file is one record.
    if (parsed.size() > 1 + size / 800) std::abort();
    for (const hv::trash_entry &entry : parsed) {
        if (!hv::is_plausible_filetime(entry.deleted_time)) std::abort();
        // A UTF-16 unit becomes at most three bytes of UTF-8.
        if (entry.deleted_path.size() > 3 * (size / 2 + 1)) std::abort();
    }
    return 0;
}

#include "run/process_entries.h"

#include "base/hv_console.h"
#include "output/write_table.h"
#include "trash/resolve.h"

namespace hv {

void process_entries(std::ostream &results_stream, u64 volume_offset,
                     trash_options &options)
{
    resolve_records(options, volume_offset);
    flush_console();
    write_results(results_stream, options.results, options);
}

} // namespace hv

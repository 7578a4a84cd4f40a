#include "run/process_entries.h"

#include "base/hv_console.h"
#include "output/write_table.h"

namespace hv {

void process_entries(std::ostream &results_stream, const output_form &form,
                     const resolve_request &request, _trash_inodes &collection)
{
    resolve_records(collection, request);
    flush_console();
    write_results(results_stream, collection.results, collection.records, form);
}

} // namespace hv

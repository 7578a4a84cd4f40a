#include "recyclebin/deletion_json.h"
#include "recyclebin/forms/writers.h"

namespace hv {

void write_json_lines(std::ostream &out, const listing &told,
                      const form_options & /*options*/)
{
    for (const deletion *item : told.items)
        out << deletion_json(*item, told.found, told.medium) << '\n';
}

} // namespace hv

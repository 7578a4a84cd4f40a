#include "records/trash_inodes.h"

#include "base/hv_string.h"

namespace hv {

void _trash_inodes::index_data_file(std::string_view name, u64 store_index)
{
    m_r_indexes[lower_copy(name)].push_back(store_index);
}

} // namespace hv

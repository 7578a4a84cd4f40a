#include "records/known_references.h"

#include "ntfs/hv_ntfs_layout.h"

namespace hv {

namespace {

u64 reference_of(u64 entry, u16 sequence)
{
    return reference_entry(entry) | u64{sequence} << 48;
}

} // namespace

bool known_references::contains(u64 entry, u16 sequence)
{
    for (; m_indexed < m_records.size(); ++m_indexed) {
        const inode_record record = m_records[m_indexed];
        m_references.insert(reference_of(record.entry, record.sequence));
    }
    return m_references.contains(reference_of(entry, sequence));
}

} // namespace hv

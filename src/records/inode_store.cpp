#include "records/inode_store.h"

namespace hv {

namespace {

constexpr u32 no_extras = ~u32{0};

} // namespace

u64 inode_store::add()
{
    m_records.emplace_back();
    return m_records.size() - 1;
}

void inode_store::set_name(u64 index, std::string_view name)
{
    m_records[index].name = m_texts.add(name);
}

void inode_store::set_path(u64 index, std::string_view path)
{
    m_records[index].path = m_texts.add(path);
}

record_extras &inode_store::extras(u64 index)
{
    inode_record &record = m_records[index];
    if (record.extras == no_extras) {
        record.extras = static_cast<u32>(m_extras.size());
        m_extras.emplace_back();
    }
    return m_extras[record.extras];
}

const record_extras &inode_store::extras_or_blank(u64 index) const
{
    static const record_extras blank;
    const u32 place = m_records[index].extras;
    return place == no_extras ? blank : m_extras[place];
}

} // namespace hv

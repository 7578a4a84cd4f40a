#pragma once

#include "records/inode_record.h"

#include <deque>
#include <map>
#include <string_view>

namespace hv {

/// All records of a run. A store index is a position here and never changes.
class inode_store {
public:
    u64 size() const { return m_records.size(); }
    inode_record &operator[](u64 index) { return m_records[index]; }
    const inode_record &operator[](u64 index) const { return m_records[index]; }

    /// Appends a blank record and returns its index.
    u64 add();

    std::string_view name(u64 index) const
    {
        return m_texts.get(m_records[index].name);
    }
    std::string_view path(u64 index) const
    {
        return m_texts.get(m_records[index].path);
    }
    void set_name(u64 index, std::string_view name);
    void set_path(u64 index, std::string_view path);

    /// The record's extras, made at the first call.
    record_extras &extras(u64 index);
    /// The record's extras; blank ones for a record that has none.
    const record_extras &extras_or_blank(u64 index) const;

private:
    std::deque<inode_record> m_records;
    std::deque<record_extras> m_extras;
    text_arena m_texts;
};

/// The store of a run and the map into it that every kind of scan fills.
class _inode_collection {
public:
    _inode_collection() = default;
    virtual ~_inode_collection() = default;
    _inode_collection(const _inode_collection &) = delete;
    _inode_collection &operator=(const _inode_collection &) = delete;

    inode_store records;
    std::map<u64, u64> directories; ///< entry number of a directory to its store index
};

} // namespace hv

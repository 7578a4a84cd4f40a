#pragma once

#include "records/inode_record.h"

#include <deque>
#include <map>
#include <string_view>

namespace hv {

/// All records of a run. A store index is a position here and never changes.
///
/// Most records of a volume are files that no row is about. They are packed: some 70
/// bytes with the name, for a record of 1024. One that is changed is unpacked first.
class inode_store {
public:
    u64 size() const { return m_places.size(); }
    inode_record operator[](u64 index) const;
    /// The record, to be changed. Good until the end of the run.
    inode_record &edit(u64 index);

    /// Appends a blank record and returns its index.
    u64 add();
    /// Appends a record that probably won't be changed, without a path and extras, and
    /// returns its index.
    u64 add_packed(const inode_record &record, std::string_view name);

    std::string_view name(u64 index) const;
    /// Empty if none was set.
    std::string_view path(u64 index) const;
    void set_name(u64 index, std::string_view name);
    void set_path(u64 index, std::string_view path);

    /// The record's extras, made at the first call.
    record_extras &extras(u64 index);
    /// The record's extras; blank ones for a record that has none.
    const record_extras &extras_or_blank(u64 index) const;

private:
    // Where a record is: the packed one in the arena or, with an empty text, the
    // position among the unpacked ones.
    using place = text_ref;
    static bool is_packed(place where) { return where.length != 0; }
    inode_record unpack(place where) const;

    std::deque<place> m_places; ///< by store index
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

#pragma once

#include "records/inode_store.h"

#include <set>

namespace hv {

/// Tells the later passes which entries, each with its sequence number, the store has
/// already. The first pass never asks, so nothing is indexed before the first question.
class known_references {
public:
    /// `records` has to outlive the object; it may grow.
    explicit known_references(const inode_store &records) : m_records(records) {}

    bool contains(u64 entry, u16 sequence);

private:
    const inode_store &m_records;
    std::set<u64> m_references;
    u64 m_indexed = 0; ///< records of the store that are in the set
};

} // namespace hv

#pragma once

#include "evidence/sighting.h"

#include <map>
#include <set>
#include <string>
#include <vector>

/// All that was seen of one volume, or of one stretch outside of all volumes.
namespace hv {

/// Collects sightings. The same bytes seen through several views are one sighting.
class region_evidence {
public:
    explicit region_evidence(u32 number) : m_number(number) {}

    u32 number() const { return m_number; }
    /// Adds a sighting, or the views of one that is known.
    void add(sighting seen);
    /// Whether a sighting of any kind begins at this byte of the medium.
    bool is_known(u64 position) const { return m_places.contains(position); }
    std::vector<sighting> take() { return std::move(m_sightings); }
    const std::vector<sighting> &sightings() const { return m_sightings; }

    // Folders, from all views

    void add_bin(const entry_id &folder) { m_bins.insert(folder); }
    void add_user(const entry_id &folder, const std::u16string &name);
    bool is_bin(const entry_id &folder) const { return m_bins.contains(folder); }
    /// The name of a user's folder; null if it isn't one.
    const std::u16string *user(const entry_id &folder) const;
    const std::map<entry_id, std::u16string> &users() const { return m_users; }
    const std::set<entry_id> &bins() const { return m_bins; }

private:
    u32 m_number;
    std::vector<sighting> m_sightings;
    std::multimap<u64, std::size_t> m_places; ///< first byte -> sighting
    std::set<entry_id> m_bins;
    std::map<entry_id, std::u16string> m_users;
};

} // namespace hv

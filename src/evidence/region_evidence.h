#pragma once

#include "evidence/sighting.h"

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

/// All that was seen of one volume, or of one stretch outside of all volumes.
namespace hv {

/// Collects sightings. The same bytes seen through several views are one sighting.
class region_evidence {
public:
    explicit region_evidence(u32 number) : m_number(number) {}

    u32 number() const { return m_number; }
    /// Makes it the evidence of another region.
    void renumber(u32 number);
    /// Adds a sighting, or the views of one that is known.
    void add(sighting seen);
    std::vector<sighting> take() { return std::move(m_sightings); }
    const std::vector<sighting> &sightings() const { return m_sightings; }

    // Folders, from all views

    void add_bin(const entry_id &folder) { m_bins.insert(folder); }
    /// `created` is the FILETIME of the folder's creation: after a volume was
    /// formatted, another folder may have the same entry and sequence number.
    void add_user(const entry_id &folder, const std::u16string &name, u64 created);
    bool is_bin(const entry_id &folder) const { return m_bins.contains(folder); }
    /// The name of the user's folder that this was at a moment, a FILETIME: the
    /// youngest that is no younger. Null if there was none.
    const std::u16string *user(const entry_id &folder, u64 moment) const;
    /// A user's folder, and when it was created.
    struct user_folder {
        u64 created = 0;
        std::u16string name;
    };
    const std::multimap<entry_id, user_folder> &users() const { return m_users; }
    const std::set<entry_id> &bins() const { return m_bins; }

private:
    u32 m_number;
    std::vector<sighting> m_sightings;
    /// By what sightings of one thing have in common.
    std::unordered_multimap<std::size_t, std::size_t> m_known;
    std::set<entry_id> m_bins;
    std::multimap<entry_id, user_folder> m_users;
};

} // namespace hv

#pragma once

#include "evidence/deletion.h"
#include "recyclebin/words.h"

#include <map>

/// Where deletions were seen, and what a bin held at one moment.
namespace hv {

/// The number of the view of a volume as it is now; snapshots have numbers from 1 on.
inline constexpr u32 view_now = 0;

/// All places where one deletion was seen.
struct seen_places {
    bool is_live = false;
    std::set<u32> snapshots;
    bool is_carved = false; ///< by no view of the volume
    bool is_logged = false; ///< in the change journal

    bool holds(seen_place place) const;
    /// "live, snapshots 1-3, carved".
    std::string text() const;
};

/// Whether only an examination that carves shows what is there.
bool needs_carving(evidence_source source);

seen_places places_of(const deletion &item);

/// Whether `in_use` of a sighting says something: of a record that a view leads to.
bool knows_use(const sighting &seen);

/// Whether the data is known to belong to another than the user of the bin.
bool has_other_owner(const deletion &item);

/// Whether the metadata or the data item was in the bin, and not purged, in that view.
bool was_in_bin(const deletion &item, u32 view);

/// The numbers that volumes have in all forms.
class volume_numbers {
public:
    explicit volume_numbers(const examination &found);
    /// Of a region; nothing for a stretch outside of all volumes.
    std::optional<u32> number_of(u32 region) const;
    /// As a cell of a table: "1", or "-" outside of all volumes.
    std::string text(u32 region) const;
    std::size_t count() const { return m_numbers.size(); }

private:
    std::map<u32, u32> m_numbers; // of region numbers
};

} // namespace hv

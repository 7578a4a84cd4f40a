#pragma once

#include "evidence/deletion.h"
#include "evidence/volume_view.h"
#include "stress/structures.h"

#include <map>
#include <memory>
#include <set>

/// What the rows of an undamaged medium depend on.
namespace stress {

/// Knows for each sighting the bytes without which it need not be found: those that
/// prove it, and those that lead to them or say what they mean.
class dependencies {
public:
    /// `medium` and `found` are of one run, and outlive this.
    dependencies(std::span<const u8> medium, const hv::examination &found,
                 const std::vector<structure> &structures);

    std::vector<byte_range> of(const hv::sighting &seen) const;

private:
    // The bytes that a file in use has outside of its records.
    struct owned_bytes {
        byte_range range;
        u64 entry = 0;
    };
    struct volume_map {
        std::unique_ptr<hv::volume_view> view;          // null: not a volume
        std::map<u64, std::vector<byte_range>> records; // by entry, with extensions
        std::map<u64, u64> parents;
        std::vector<owned_bytes> owned;
        std::vector<byte_range> bitmap;
    };
    using range_list = std::vector<byte_range>;

    void add_volume(const hv::examined_region &region);
    void note_record(volume_map &of, u64 entry, hv::byte_view raw) const;
    void add_structure_around(range_list &needs, const byte_range &proof) const;
    static void add_records(range_list &needs, const volume_map &of, u64 entry);
    static void add_owners(range_list &needs, const volume_map &of,
                           const byte_range &range);
    void add_folders(range_list &needs, const volume_map &of,
                     const hv::sighting &seen) const;
    void add_shadows(range_list &needs, const volume_map &of,
                     const hv::sighting &seen) const;
    static void add_way(range_list &needs, const volume_map &of, u64 entry);
    static void add_bitmap(range_list &needs, const volume_map &of,
                           const byte_range &range);

    std::span<const u8> m_medium;
    hv::byte_source_ptr m_source;
    std::vector<structure> m_structures;
    std::multimap<u64, byte_range> m_by_number; // records, by the number they state
    std::vector<volume_map> m_volumes;          // one for each region
};

/// Whether two lists of ranges have a byte in common.
bool have_common_bytes(const std::vector<byte_range> &some,
                       const std::vector<byte_range> &others);

} // namespace stress
